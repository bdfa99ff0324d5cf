#pragma once

#include "platform/http_client.h"

#include <memory>
#include <string>
#include <utility>

namespace lumivesper::generation {
class APIKeyProvider;
}

namespace lumivesper::upscale {

// A remote upscaling path, laid out for later: nothing makes or calls one yet, and it has no
// operations until a service is chosen.
class ImageUpscalingService {
public:
    virtual ~ImageUpscalingService() = default;
};

class HuggingFaceImageUpscaleService : public ImageUpscalingService {
public:
    HuggingFaceImageUpscaleService(std::shared_ptr<const generation::APIKeyProvider> apiKeyProvider,
                                   std::shared_ptr<const platform::HttpClient> session,
                                   std::string baseURL)
        : apiKeyProvider(std::move(apiKeyProvider)), session(std::move(session)),
          baseURL(std::move(baseURL)) {}

    std::shared_ptr<const generation::APIKeyProvider> apiKeyProvider;
    std::shared_ptr<const platform::HttpClient> session;
    std::string baseURL;
};

} // namespace lumivesper::upscale
