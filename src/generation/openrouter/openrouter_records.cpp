#include "generation/openrouter/openrouter_records.h"

#include "generation/wire_json.h"

namespace lumivesper::generation {

namespace {

nlohmann::ordered_json partJson(const OpenRouterContentPart& part) {
    nlohmann::ordered_json json;
    json["type"] = part.type;
    if (part.text)
        json["text"] = *part.text;
    if (part.imageURL)
        json["image_url"] = {{"url", *part.imageURL}};
    return json;
}

nlohmann::ordered_json messageJson(const OpenRouterMessage& message) {
    nlohmann::ordered_json json;
    json["role"] = message.role;
    if (const auto* text = std::get_if<std::string>(&message.content)) {
        json["content"] = *text;
        return json;
    }
    auto parts = nlohmann::ordered_json::array();
    for (const auto& part : std::get<std::vector<OpenRouterContentPart>>(message.content))
        parts.push_back(partJson(part));
    json["content"] = std::move(parts);
    return json;
}

const nlohmann::json* firstElement(const nlohmann::json& object, const char* key) {
    if (!object.is_object())
        return nullptr;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_array() || found->empty())
        return nullptr;
    return &found->front();
}

const nlohmann::json* member(const nlohmann::json* object, const char* key) {
    if (!object || !object->is_object())
        return nullptr;
    const auto found = object->find(key);
    return found == object->end() ? nullptr : &*found;
}

} // namespace

nlohmann::ordered_json toJson(const OpenRouterImagesRequest& request) {
    nlohmann::ordered_json json;
    json["model"] = request.model;
    json["prompt"] = request.prompt;
    json["n"] = request.n;
    json["size"] = request.size;
    json["response_format"] = request.response_format;
    return json;
}

nlohmann::ordered_json toJson(const OpenRouterChatRequest& request) {
    nlohmann::ordered_json json;
    json["model"] = request.model;
    auto messages = nlohmann::ordered_json::array();
    for (const auto& message : request.messages)
        messages.push_back(messageJson(message));
    json["messages"] = std::move(messages);
    json["modalities"] = request.modalities;
    if (request.image_config) {
        nlohmann::ordered_json config = nlohmann::ordered_json::object();
        if (request.image_config->aspect_ratio)
            config["aspect_ratio"] = *request.image_config->aspect_ratio;
        if (request.image_config->image_size)
            config["image_size"] = *request.image_config->image_size;
        json["image_config"] = std::move(config);
    }
    return json;
}

std::optional<OpenRouterImagesResponse> decodeOpenRouterImagesResponse(const std::string& body) {
    return decodeWire(body, [](const nlohmann::json& json) {
        OpenRouterImagesResponse response;
        for (const auto& item : requiredArray(json, "data")) {
            OpenRouterImageData data;
            data.b64_json = optionalString(item, "b64_json");
            data.url = optionalString(item, "url");
            data.content_type = optionalString(item, "content_type");
            response.data.push_back(std::move(data));
        }
        return response;
    });
}

std::optional<std::string> chatResponseImageURL(const std::string& body) {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    if (json.is_discarded())
        return std::nullopt;
    const auto* message = member(firstElement(json, "choices"), "message");
    if (!message)
        return std::nullopt;
    const auto* image = firstElement(*message, "images");
    const auto* url = member(member(image, "image_url"), "url");
    if (!url || !url->is_string())
        return std::nullopt;
    return url->get<std::string>();
}

} // namespace lumivesper::generation
