#include "generation/gemini/gemini_records.h"

#include "generation/wire_json.h"

namespace lumivesper::generation {

namespace {

nlohmann::ordered_json partJson(const GeminiPart& part) {
    nlohmann::ordered_json json;
    if (const auto* text = std::get_if<std::string>(&part)) {
        json["text"] = *text;
        return json;
    }
    const auto& inlineData = std::get<GeminiInlineData>(part);
    json["inline_data"] = {{"mime_type", inlineData.mime_type}, {"data", inlineData.data}};
    return json;
}

GeminiResponsePart decodePart(const nlohmann::json& json) {
    GeminiResponsePart part;
    part.text = optionalString(json, "text");
    const auto inlineData = json.find("inline_data");
    if (inlineData != json.end() && !inlineData->is_null())
        part.inline_data = GeminiResponseInlineData{optionalString(*inlineData, "mime_type"),
                                                    optionalString(*inlineData, "data")};
    return part;
}

} // namespace

nlohmann::ordered_json toJson(const GeminiRequest& request) {
    auto contents = nlohmann::ordered_json::array();
    for (const auto& content : request.contents) {
        auto parts = nlohmann::ordered_json::array();
        for (const auto& part : content.parts)
            parts.push_back(partJson(part));
        nlohmann::ordered_json item;
        item["role"] = content.role;
        item["parts"] = std::move(parts);
        contents.push_back(std::move(item));
    }
    nlohmann::ordered_json json;
    json["contents"] = std::move(contents);
    return json;
}

std::optional<GeminiResponse> decodeGeminiResponse(const std::string& body) {
    return decodeWire(body, [](const nlohmann::json& json) {
        GeminiResponse response;
        // A refused prompt comes back without candidates; that is an answer, not a bad shape.
        if (!json.is_object())
            throw WireShapeError("expected an object");
        if (!json.contains("candidates"))
            return response;
        for (const auto& item : requiredArray(json, "candidates")) {
            if (!item.is_object() || !item.contains("content"))
                throw WireShapeError("a candidate without content");
            GeminiCandidate candidate;
            for (const auto& part : requiredArray(item.at("content"), "parts"))
                candidate.parts.push_back(decodePart(part));
            response.candidates.push_back(std::move(candidate));
        }
        return response;
    });
}

} // namespace lumivesper::generation
