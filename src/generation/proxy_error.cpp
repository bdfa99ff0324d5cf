#include "generation/proxy_error.h"

#include "platform/redaction.h"

#include <utility>

namespace lumivesper::generation {

ProxyError::ProxyError(Case kind, long status, std::string body, const std::string& description)
    : std::runtime_error(description), kind_(kind), status_(status), body_(std::move(body)) {}

ProxyError ProxyError::serverError(long status, std::string body) {
    // The body stays whole for callers; what a user reads hides any key a server echoed.
    const std::string description =
        "Server error " + std::to_string(status) + ": " + platform::redactedSecrets(body);
    return {Case::serverError, status, std::move(body), description};
}
ProxyError ProxyError::invalidURL() {
    return {Case::invalidURL, 0, {}, "Invalid server URL"};
}
ProxyError ProxyError::invalidResponse() {
    return {Case::invalidResponse, 0, {}, "Invalid response from server"};
}
ProxyError ProxyError::unauthorized() {
    return {Case::unauthorized, 0, {}, "Unauthorized - token expired"};
}
ProxyError ProxyError::invalidImageResponse() {
    return {Case::invalidImageResponse, 0, {}, "Invalid image response from server"};
}

} // namespace lumivesper::generation
