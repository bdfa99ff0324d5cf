#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace lumivesper::generation {

struct GeminiInlineData {
    std::string mime_type;
    std::string data; // base64
};

// A part of a request: text, or inline data (encoded under "inline_data").
using GeminiPart = std::variant<std::string, GeminiInlineData>;

struct GeminiContent {
    std::string role;
    std::vector<GeminiPart> parts;
};

struct GeminiRequest {
    std::vector<GeminiContent> contents;
};

struct GeminiResponseInlineData {
    std::optional<std::string> mime_type;
    std::optional<std::string> data;
};

struct GeminiResponsePart {
    std::optional<std::string> text;
    std::optional<GeminiResponseInlineData> inline_data;
};

struct GeminiCandidate {
    std::vector<GeminiResponsePart> parts; // of its "content"
};

struct GeminiResponse {
    std::vector<GeminiCandidate> candidates;
};

nlohmann::ordered_json toJson(const GeminiRequest& request);
// None when the body is not this shape.
std::optional<GeminiResponse> decodeGeminiResponse(const std::string& body);

} // namespace lumivesper::generation
