#pragma once

#include "generation/api_key_provider.h"
#include "generation/image_generation_service.h"
#include "generation/network_session.h"

#include <memory>

namespace lumivesper::generation {

// Gemini's generateContent call. It takes no size or aspect ratio; those arguments are ignored.
class GeminiImageEditService final : public ImageGenerationService {
public:
    static constexpr const char* defaultHost = "https://generativelanguage.googleapis.com";

    // The public endpoint, or the same path under `host` (a stand-in server).
    explicit GeminiImageEditService(std::shared_ptr<const APIKeyProvider> keyProvider,
                                    NetworkSession networkSession = {},
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
};

} // namespace lumivesper::generation
