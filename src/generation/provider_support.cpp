#include "generation/provider_support.h"

#include "generation/image_generation_error.h"
#include "generation/network_log.h"
#include "generation/request_text.h"
#include "platform/image_io.h"

namespace lumivesper::generation {

std::string providerErrorText(std::string_view provider, const platform::HttpResponse& response) {
    const auto body = utf8Text(response.body);
    return std::string(provider) + " error " + std::to_string(response.status) + ": " +
           (body ? *body : "Unknown error");
}

platform::HttpResponse sendLogged(const NetworkSession& session,
                                  const platform::HttpRequest& request, std::string_view tag,
                                  std::stop_token stop) {
    logRequest(tag, request);
    auto response = session.http.send(request, std::move(stop));
    logResponse(tag, &response);
    return response;
}

GeneratedImage fetchImage(const NetworkSession& session, const std::string& url,
                          std::string_view provider, std::string_view tag, std::stop_token stop) {
    if (!isParsableURL(url))
        throw ImageGenerationError::decodeFailed();
    platform::HttpRequest request;
    request.method = "GET";
    request.url = url;
    request.timeout = session.timeout(providerRequestTimeout);
    auto response = sendLogged(session, request, tag, std::move(stop));
    // An error page is not an image, whatever its size.
    if (!isSuccessStatus(response.status))
        throw ImageGenerationError::requestFailed(providerErrorText(provider, response));
    if (!platform::decodesAsImage(response.body))
        throw ImageGenerationError::decodeFailed();
    return {toBytes(response.body), response.header("Content-Type")};
}

} // namespace lumivesper::generation
