#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::generation {

struct OpenAIImageRequest {
    std::string model;
    std::string prompt;
    int n = 1;
    std::optional<std::string> size; // left out when absent
};

struct OpenAIImageData {
    std::optional<std::string> b64_json;
    std::optional<std::string> url;
    std::optional<std::string> content_type;
};

struct OpenAIImageResponse {
    std::vector<OpenAIImageData> data;
};

nlohmann::ordered_json toJson(const OpenAIImageRequest& request);
// None when the body is not this shape.
std::optional<OpenAIImageResponse> decodeOpenAIImageResponse(const std::string& body);

} // namespace lumivesper::generation
