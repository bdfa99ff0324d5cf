#pragma once

#include "generation/generated_image.h"
#include "generation/network_session.h"

#include <chrono>
#include <stop_token>
#include <string>
#include <string_view>

namespace lumivesper::generation {

// Per-request time-out of the direct provider clients.
inline constexpr std::chrono::seconds providerRequestTimeout{60};

inline bool isSuccessStatus(long status) {
    return status >= 200 && status <= 299;
}

// "<Provider> error <status>: <body>", the text of requestFailed.
std::string providerErrorText(std::string_view provider, const platform::HttpResponse& response);

// GET of an image URL a provider answered with, logged under `tag`. The status is not checked:
// whatever came back is the image. A text that is not a URL is decodeFailed.
GeneratedImage fetchImage(const NetworkSession& session, const std::string& url,
                          std::string_view tag, std::stop_token stop);

// Sends `request`, logging it and its response under `tag`.
platform::HttpResponse sendLogged(const NetworkSession& session,
                                  const platform::HttpRequest& request, std::string_view tag,
                                  std::stop_token stop);

} // namespace lumivesper::generation
