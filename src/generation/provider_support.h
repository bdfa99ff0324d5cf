#pragma once

#include "generation/base64.h"
#include "generation/generated_image.h"
#include "generation/image_generation_error.h"
#include "generation/network_session.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::generation {

// Per-request idle time-out of the direct provider clients.
inline constexpr std::chrono::seconds providerRequestTimeout{60};

inline bool isSuccessStatus(long status) {
    return status >= 200 && status <= 299;
}

// "<Provider> error <status>: <body>", the text of requestFailed.
std::string providerErrorText(std::string_view provider, const platform::HttpResponse& response);

// GET of an image URL that `provider` answered with, logged under `tag`. An answer other than 2xx
// is requestFailed with the provider's error text; a text that is not a URL, or bytes that do not
// decode as an image, are decodeFailed.
GeneratedImage fetchImage(const NetworkSession& session, const std::string& url,
                          std::string_view provider, std::string_view tag, std::stop_token stop);

// The first image of an images-endpoint answer ({"data": [{"b64_json" or "url", "content_type"}]}),
// which OpenAI and OpenRouter share: inline bytes when they decode, else what `fromURL` makes of
// the URL. No entries is invalidResponse; neither usable bytes nor a URL is decodeFailed.
template <typename ImageData>
GeneratedImage firstImageOf(const std::vector<ImageData>& data,
                            const std::function<GeneratedImage(const std::string&)>& fromURL) {
    if (data.empty())
        throw ImageGenerationError::invalidResponse();
    const ImageData& first = data.front();
    if (first.b64_json) {
        if (auto bytes = decodeBase64IgnoringUnknown(*first.b64_json))
            return {std::move(*bytes), first.content_type};
    }
    if (first.url)
        return fromURL(*first.url);
    throw ImageGenerationError::decodeFailed();
}

// Sends `request`, logging it and its response under `tag`.
platform::HttpResponse sendLogged(const NetworkSession& session,
                                  const platform::HttpRequest& request, std::string_view tag,
                                  std::stop_token stop);

} // namespace lumivesper::generation
