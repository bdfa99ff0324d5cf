#pragma once

#include "generation/api_key_provider.h"
#include "generation/image_generation_service.h"
#include "generation/network_session.h"

#include <memory>

namespace lumivesper::generation {

// OpenRouter for a user with a key of their own: the images endpoint where the model has one,
// chat completions for image-to-image and for models that only speak chat.
class OpenRouterImageService final : public ImageGenerationService {
public:
    static constexpr const char* defaultHost = "https://openrouter.ai";

    OpenRouterImageService(std::shared_ptr<const APIKeyProvider> apiKeyProvider,
                           NetworkSession session, std::string baseURL, std::string chatURL);
    // The public endpoints, or the same paths under `host` (a stand-in server).
    explicit OpenRouterImageService(std::shared_ptr<const APIKeyProvider> apiKeyProvider,
                                    NetworkSession session = {},
                                    const std::string& host = defaultHost);

    bool isConfigured() const override;
    GeneratedImage generateImage(const std::string& prompt, const std::string& model,
                                 const std::string& aspectRatio,
                                 const std::optional<Bytes>& referenceImage,
                                 const std::optional<std::string>& systemPrompt,
                                 const std::optional<std::string>& imageSize,
                                 std::stop_token stop = {}) const override;

    const std::shared_ptr<const APIKeyProvider> apiKeyProvider;
    const NetworkSession session;
    const std::string baseURL;
    const std::string chatURL;

private:
    GeneratedImage viaImagesEndpoint(const std::string& key, const std::string& prompt,
                                     const std::string& model, const std::string& aspectRatio,
                                     std::stop_token stop) const;
    GeneratedImage viaChatEndpoint(const std::string& key, const std::string& prompt,
                                   const std::string& model, const std::string& aspectRatio,
                                   const std::optional<Bytes>& referenceImage,
                                   const std::optional<std::string>& systemPrompt,
                                   const std::optional<std::string>& imageSize,
                                   std::stop_token stop) const;
    GeneratedImage imageFromText(const std::string& text, std::stop_token stop) const;
};

// Whether a model (after "openrouter/" is dropped) must go through chat completions.
bool openRouterModelNeedsChat(std::string_view model);

} // namespace lumivesper::generation
