#include "generation/gemini_image_edit_service.h"

#include "generation/gemini/gemini_records.h"
#include "generation/image_generation_error.h"
#include "generation/network_log.h"
#include "generation/provider_support.h"
#include "generation/request_text.h"

#include <cctype>

namespace lumivesper::generation {

namespace {

// Percent-encoding for a path component or query value.
std::string percentEncoded(std::string_view text, std::string_view keep) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) || keep.find(c) != std::string_view::npos) {
            result += c;
            continue;
        }
        result += '%';
        result += hex[byte >> 4];
        result += hex[byte & 15];
    }
    return result;
}

} // namespace

GeminiImageEditService::GeminiImageEditService(std::shared_ptr<const APIKeyProvider> keyProvider,
                                               NetworkSession networkSession,
                                               const std::string& host)
    : apiKeyProvider(std::move(keyProvider)), session(std::move(networkSession)),
      baseURL(host + "/v1beta/models") {}

bool GeminiImageEditService::isConfigured() const {
    return hasKey(*apiKeyProvider);
}

GeneratedImage GeminiImageEditService::generateImage(
    const std::string& prompt, const std::string& model, const std::string& /*aspectRatio*/,
    const std::optional<Bytes>& referenceImage, const std::optional<std::string>& systemPrompt,
    const std::optional<std::string>& /*imageSize*/, std::stop_token stop) const {
    const std::string key = requireKey(*apiKeyProvider);
    const std::string name = modelNameAfterProvider(model);
    const std::string text = combinedPrompt(systemPrompt, prompt);
    logPrompt("Gemini", std::nullopt, text);

    GeminiContent content{"user", {text}};
    if (referenceImage)
        content.parts.emplace_back(GeminiInlineData{"image/png", encodeBase64(*referenceImage)});

    std::string base = baseURL;
    if (!base.empty() && base.back() == '/')
        base.pop_back();
    const std::string url = base + "/" +
                            percentEncoded(name + ":generateContent", "-._~:@!$&'()*+,;=/") +
                            "?key=" + percentEncoded(key, "-._~");
    if (!isParsableURL(url))
        throw ImageGenerationError::invalidResponse();

    platform::HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.timeout = session.timeout(providerRequestTimeout);
    request.headers = {{"Content-Type", "application/json"}};
    request.body = toJson(GeminiRequest{{std::move(content)}}).dump();
    const auto response = sendLogged(session, request, "Gemini", stop);

    if (!isSuccessStatus(response.status))
        throw ImageGenerationError::requestFailed(providerErrorText("Gemini", response));
    const auto decoded = decodeGeminiResponse(response.body);
    if (!decoded)
        throw ImageGenerationError::invalidResponse();
    if (decoded->candidates.empty())
        throw ImageGenerationError::decodeFailed();
    for (const auto& part : decoded->candidates.front().parts) {
        if (!part.inline_data || !part.inline_data->data)
            continue;
        if (auto bytes = decodeBase64IgnoringUnknown(*part.inline_data->data))
            return {std::move(*bytes), part.inline_data->mime_type};
    }
    throw ImageGenerationError::decodeFailed();
}

} // namespace lumivesper::generation
