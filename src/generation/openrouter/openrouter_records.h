#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace lumivesper::generation {

struct OpenRouterImagesRequest {
    std::string model;
    std::string prompt;
    int n = 1;
    std::string size;
    std::string response_format = "b64_json";
};

struct OpenRouterImageData {
    std::optional<std::string> b64_json;
    std::optional<std::string> url;
    std::optional<std::string> content_type;
};

struct OpenRouterImagesResponse {
    std::vector<OpenRouterImageData> data;
};

struct OpenRouterContentPart {
    std::string type;
    std::optional<std::string> text;
    std::optional<std::string> imageURL; // encoded as "image_url": {"url": ...}
};

struct OpenRouterMessage {
    std::string role;
    std::variant<std::string, std::vector<OpenRouterContentPart>> content;
};

struct OpenRouterImageConfig {
    std::optional<std::string> aspect_ratio;
    std::optional<std::string> image_size;
};

struct OpenRouterChatRequest {
    std::string model;
    std::vector<OpenRouterMessage> messages;
    std::vector<std::string> modalities{"image", "text"};
    std::optional<OpenRouterImageConfig> image_config;
};

nlohmann::ordered_json toJson(const OpenRouterImagesRequest& request);
nlohmann::ordered_json toJson(const OpenRouterChatRequest& request);

// None when the body is not this shape.
std::optional<OpenRouterImagesResponse> decodeOpenRouterImagesResponse(const std::string& body);
// choices[0].message.images[0].image_url.url, or none when any step is missing.
std::optional<std::string> chatResponseImageURL(const std::string& body);

} // namespace lumivesper::generation
