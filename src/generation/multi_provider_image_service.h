#pragma once

#include "generation/gemini_image_edit_service.h"
#include "generation/image_generation_service.h"
#include "generation/openai_image_edit_service.h"
#include "generation/openrouter_image_service.h"

#include <optional>

namespace lumivesper::generation {

// Picks a direct provider by model id and hands the call to it. A model that names a provider
// without a key fails rather than falling to another provider, so a user never pays a provider
// they did not choose.
class MultiProviderImageService final : public ImageGenerationService {
public:
    MultiProviderImageService(OpenAIImageEditService openAI, GeminiImageEditService gemini,
                              std::optional<OpenRouterImageService> openRouter);

    // The wiring of the application: keys from OPENAI_API_KEY, GEMINI_API_KEY and
    // OPENROUTER_API_KEY, the providers' public hosts.
    static MultiProviderImageService standard(NetworkSession session = {});

    bool isConfigured() const override;
    GeneratedImage generateImage(const std::string& prompt, const std::string& model,
                                 const std::string& aspectRatio,
                                 const std::optional<Bytes>& referenceImage,
                                 const std::optional<std::string>& systemPrompt,
                                 const std::optional<std::string>& imageSize,
                                 std::stop_token stop = {}) const override;

    const OpenAIImageEditService openAI;
    const GeminiImageEditService gemini;
    const std::optional<OpenRouterImageService> openRouter;

private:
    GeneratedImage callGemini(const std::string& prompt, const std::string& model,
                              const std::optional<Bytes>& referenceImage,
                              const std::optional<std::string>& systemPrompt,
                              std::stop_token stop) const;
};

} // namespace lumivesper::generation
