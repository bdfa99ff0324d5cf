#include "generation/multi_provider_image_service.h"

#include "generation/image_generation_error.h"
#include "generation/image_provider_route.h"

#include <memory>

namespace lumivesper::generation {

MultiProviderImageService::MultiProviderImageService(
    OpenAIImageEditService openAI_, GeminiImageEditService gemini_,
    std::optional<OpenRouterImageService> openRouter_)
    : openAI(std::move(openAI_)), gemini(std::move(gemini_)), openRouter(std::move(openRouter_)) {}

MultiProviderImageService MultiProviderImageService::standard(NetworkSession session) {
    auto key = [](const char* name) { return std::make_shared<EnvironmentAPIKeyProvider>(name); };
    return MultiProviderImageService(OpenAIImageEditService(key("OPENAI_API_KEY"), session),
                                     GeminiImageEditService(key("GEMINI_API_KEY"), session),
                                     OpenRouterImageService(key("OPENROUTER_API_KEY"), session));
}

bool MultiProviderImageService::isConfigured() const {
    return openAI.isConfigured() || gemini.isConfigured() ||
           (openRouter && openRouter->isConfigured());
}

GeneratedImage MultiProviderImageService::callGemini(const std::string& prompt,
                                                     const std::string& model,
                                                     const std::optional<Bytes>& referenceImage,
                                                     const std::optional<std::string>& systemPrompt,
                                                     std::stop_token stop) const {
    // Gemini takes no size: ratio and size stop here.
    return gemini.generateImage(prompt, model, "", referenceImage, systemPrompt, std::nullopt,
                                std::move(stop));
}

GeneratedImage MultiProviderImageService::generateImage(
    const std::string& prompt, const std::string& model, const std::string& aspectRatio,
    const std::optional<Bytes>& referenceImage, const std::optional<std::string>& systemPrompt,
    const std::optional<std::string>& imageSize, std::stop_token stop) const {
    switch (imageProviderRoute(model)) {
    case ImageProviderRoute::openAI:
        if (!openAI.isConfigured())
            throw ImageGenerationError::missingAPIKey();
        return openAI.generateImage(prompt, model, aspectRatio, referenceImage, systemPrompt,
                                    imageSize, std::move(stop));
    case ImageProviderRoute::gemini:
        if (!gemini.isConfigured())
            throw ImageGenerationError::missingAPIKey();
        return callGemini(prompt, model, referenceImage, systemPrompt, std::move(stop));
    case ImageProviderRoute::openRouter:
        if (!openRouter || !openRouter->isConfigured())
            throw ImageGenerationError::missingAPIKey();
        return openRouter->generateImage(prompt, model, aspectRatio, referenceImage, systemPrompt,
                                         imageSize, std::move(stop));
    case ImageProviderRoute::automatic:
        break;
    }
    if (openAI.isConfigured())
        return openAI.generateImage(prompt, model, aspectRatio, referenceImage, systemPrompt,
                                    imageSize, std::move(stop));
    if (gemini.isConfigured())
        return callGemini(prompt, model, referenceImage, systemPrompt, std::move(stop));
    if (openRouter && openRouter->isConfigured())
        return openRouter->generateImage(prompt, model, aspectRatio, referenceImage, systemPrompt,
                                         imageSize, std::move(stop));
    throw ImageGenerationError::missingAPIKey();
}

} // namespace lumivesper::generation
