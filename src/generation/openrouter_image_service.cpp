#include "generation/openrouter_image_service.h"

#include "generation/image_generation_error.h"
#include "generation/network_log.h"
#include "generation/openrouter/openrouter_records.h"
#include "generation/provider_support.h"
#include "generation/request_text.h"

namespace lumivesper::generation {

namespace {

constexpr const char* imagesTag = "OpenRouter-Images";
constexpr const char* chatTag = "OpenRouter-Chat";

// The images endpoint does not know the model; only chat will do. Never leaves this file.
struct UseChatEndpoint {};

platform::HttpRequest jsonPost(const NetworkSession& session, const std::string& url,
                               const std::string& key, std::string body) {
    platform::HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.timeout = session.timeout(providerRequestTimeout);
    request.headers = {{"Content-Type", "application/json"},
                       {"Authorization", "Bearer " + key},
                       {"X-Title", "Lumivesper AI"}};
    request.body = std::move(body);
    return request;
}

} // namespace

bool openRouterModelNeedsChat(std::string_view model) {
    const std::string id = lowercased(trimmed(model));
    if (id.starts_with("google/") || id.find("gemini") != std::string::npos)
        return true;
    if (id.starts_with("openai/") && id.find("gpt") != std::string::npos)
        return true;
    return id.find("gpt-") != std::string::npos;
}

OpenRouterImageService::OpenRouterImageService(
    std::shared_ptr<const APIKeyProvider> apiKeyProvider_, NetworkSession session_,
    std::string baseURL_, std::string chatURL_)
    : apiKeyProvider(std::move(apiKeyProvider_)), session(std::move(session_)),
      baseURL(std::move(baseURL_)), chatURL(std::move(chatURL_)) {}

OpenRouterImageService::OpenRouterImageService(
    std::shared_ptr<const APIKeyProvider> apiKeyProvider_, NetworkSession session_,
    const std::string& host)
    : OpenRouterImageService(std::move(apiKeyProvider_), std::move(session_),
                             host + "/api/v1/images/generations",
                             host + "/api/v1/chat/completions") {}

bool OpenRouterImageService::isConfigured() const {
    return hasKey(*apiKeyProvider);
}

GeneratedImage OpenRouterImageService::generateImage(
    const std::string& prompt, const std::string& model, const std::string& aspectRatio,
    const std::optional<Bytes>& referenceImage, const std::optional<std::string>& systemPrompt,
    const std::optional<std::string>& imageSize, std::stop_token stop) const {
    const std::string key = requireKey(*apiKeyProvider);
    std::string name = trimmed(model);
    if (lowercased(name).starts_with("openrouter/"))
        name.erase(0, std::string_view("openrouter/").size());

    if (!referenceImage && !openRouterModelNeedsChat(name)) {
        try {
            return viaImagesEndpoint(key, prompt, name, aspectRatio, stop);
        } catch (const UseChatEndpoint&) {
            // The model has no images endpoint; chat below makes the same image.
        }
    }
    return viaChatEndpoint(key, prompt, name, aspectRatio, referenceImage, systemPrompt, imageSize,
                           stop);
}

GeneratedImage OpenRouterImageService::viaImagesEndpoint(const std::string& key,
                                                         const std::string& prompt,
                                                         const std::string& model,
                                                         const std::string& aspectRatio,
                                                         std::stop_token stop) const {
    logPrompt(imagesTag, std::nullopt, prompt);
    // The provider reads the ratio from a field called "size"; that is what it expects.
    const OpenRouterImagesRequest body{model, prompt, 1, aspectRatio, "b64_json"};
    const auto response =
        sendLogged(session, jsonPost(session, baseURL, key, toJson(body).dump()), imagesTag, stop);
    if (response.status == 404 || response.status == 405)
        throw UseChatEndpoint{};
    if (!isSuccessStatus(response.status))
        throw ImageGenerationError::requestFailed(providerErrorText("OpenRouter", response));
    const auto decoded = decodeOpenRouterImagesResponse(response.body);
    if (!decoded)
        throw ImageGenerationError::invalidResponse();
    return firstImageOf(decoded->data,
                        [&](const std::string& url) { return imageFromText(url, stop); });
}

GeneratedImage OpenRouterImageService::viaChatEndpoint(
    const std::string& key, const std::string& prompt, const std::string& model,
    const std::string& aspectRatio, const std::optional<Bytes>& referenceImage,
    const std::optional<std::string>& systemPrompt, const std::optional<std::string>& imageSize,
    std::stop_token stop) const {
    logPrompt(chatTag, systemPrompt, prompt);
    OpenRouterChatRequest body;
    body.model = model;
    if (systemPrompt && !systemPrompt->empty())
        body.messages.push_back({"system", *systemPrompt});
    if (referenceImage) {
        // Image first, then the instruction. The proxy client sends them the other way round;
        // each order is deliberate, so the two are not to be unified.
        std::vector<OpenRouterContentPart> parts{
            {"image_url", std::nullopt, pngDataURL(*referenceImage)},
            {"text", prompt, std::nullopt}};
        body.messages.push_back({"user", std::move(parts)});
    } else {
        body.messages.push_back({"user", prompt});
    }
    if (!aspectRatio.empty() || imageSize) {
        OpenRouterImageConfig config;
        if (!aspectRatio.empty())
            config.aspect_ratio = aspectRatio;
        config.image_size = imageSize;
        body.image_config = config;
    }
    const auto response =
        sendLogged(session, jsonPost(session, chatURL, key, toJson(body).dump()), chatTag, stop);
    if (!isSuccessStatus(response.status))
        throw ImageGenerationError::requestFailed(providerErrorText("OpenRouter", response));
    const auto url = chatResponseImageURL(response.body);
    if (!url)
        throw ImageGenerationError::decodeFailed();
    return imageFromText(*url, std::move(stop));
}

GeneratedImage OpenRouterImageService::imageFromText(const std::string& text,
                                                     std::stop_token stop) const {
    if (auto contents = parseDataURL(text))
        return {std::move(contents->bytes), contents->mimeType};
    return fetchImage(session, text, "OpenRouter", "OpenRouter-ImageFetch", std::move(stop));
}

} // namespace lumivesper::generation
