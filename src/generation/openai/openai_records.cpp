#include "generation/openai/openai_records.h"

#include "generation/wire_json.h"

namespace lumivesper::generation {

nlohmann::ordered_json toJson(const OpenAIImageRequest& request) {
    nlohmann::ordered_json json;
    json["model"] = request.model;
    json["prompt"] = request.prompt;
    json["n"] = request.n;
    if (request.size)
        json["size"] = *request.size;
    return json;
}

std::optional<OpenAIImageResponse> decodeOpenAIImageResponse(const std::string& body) {
    return decodeWire(body, [](const nlohmann::json& json) {
        OpenAIImageResponse response;
        for (const auto& item : requiredArray(json, "data")) {
            OpenAIImageData data;
            data.b64_json = optionalString(item, "b64_json");
            data.url = optionalString(item, "url");
            data.content_type = optionalString(item, "content_type");
            response.data.push_back(std::move(data));
        }
        return response;
    });
}

} // namespace lumivesper::generation
