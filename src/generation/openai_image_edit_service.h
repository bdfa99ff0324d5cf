#pragma once

#include "generation/api_key_provider.h"
#include "generation/image_generation_service.h"
#include "generation/network_session.h"

#include <memory>

namespace lumivesper::generation {

// OpenAI's image endpoints: JSON for a new image, a multipart upload to edit a reference image.
class OpenAIImageEditService final : public ImageGenerationService {
public:
    static constexpr const char* defaultHost = "https://api.openai.com";

    OpenAIImageEditService(std::shared_ptr<const APIKeyProvider> apiKeyProvider,
                           NetworkSession session, std::string generationURL, std::string editsURL);
    // The public endpoints, or the same paths under `host` (a stand-in server).
    explicit OpenAIImageEditService(std::shared_ptr<const APIKeyProvider> apiKeyProvider,
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
    const std::string generationURL;
    const std::string editsURL;

private:
    GeneratedImage handleResponse(const platform::HttpResponse& response,
                                  std::stop_token stop) const;
};

// The multipart body of an edit: model, prompt, n, size (when given), then the image as
// "reference.png". Exposed for its exact layout.
std::string openAIEditBody(const std::string& boundary, const std::string& model,
                           const std::string& prompt, const std::optional<std::string>& size,
                           const Bytes& image);

} // namespace lumivesper::generation
