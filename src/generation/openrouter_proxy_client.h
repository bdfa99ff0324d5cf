#pragma once

#include "generation/base64.h"
#include "generation/network_session.h"
#include "generation/token_manager.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <stop_token>
#include <string>

namespace lumivesper::generation {

// Image requests through our own server, which forwards a chat completion to the image model.
// Adds the bearer token, retries once on 401, and digs the image out of whichever answer shape
// the model chose. Results are plain bytes, treated as PNG by callers. Safe to call from several
// threads at once; they share one token manager.
class OpenRouterProxyClient {
public:
    // How long a proxied request may go without a byte moving: the image model's run comes before
    // any answer. Uploads of several megabytes on a slow line may take longer, as long as they move.
    static constexpr std::chrono::seconds requestTimeout{180};

    OpenRouterProxyClient(std::string serverURL, settings::Defaults& defaults,
                          NetworkSession session = {});

    // Text only: the base frame.
    Bytes generateImage(const std::string& prompt, const std::string& model,
                        std::stop_token stop = {}) const;
    // One image to work from: relighting.
    Bytes generateImage(const std::string& prompt, const Bytes& referenceImage,
                        const std::string& model, std::stop_token stop = {}) const;
    // A reference and the image to fix, in that order.
    Bytes editImage(const std::string& prompt, const Bytes& referenceImage,
                    const Bytes& currentImage, const std::string& model,
                    std::stop_token stop = {}) const;

    const std::string serverURL;
    const std::shared_ptr<TokenManager> tokenManager;

private:
    Bytes send(const nlohmann::json& body, const std::string& path, std::stop_token stop) const;
    Bytes perform(const platform::HttpRequest& request, std::stop_token stop) const;
    Bytes download(const std::string& url, std::stop_token stop) const;
    std::optional<Bytes> extractImage(const nlohmann::ordered_json& root,
                                      const nlohmann::ordered_json& message,
                                      std::stop_token stop) const;

    const NetworkSession session_;
};

// "openrouter/x" goes out as "x"; anything else as it stands.
std::string proxyModelId(const std::string& model);

} // namespace lumivesper::generation
