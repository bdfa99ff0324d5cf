#pragma once

#include <string>
#include <string_view>

namespace lumivesper::platform {

// `text` with the values of credentials replaced by "REDACTED": query parameters that carry a key
// or token ("?key=", "&api_key=", "access_token=", also percent- or HTML-encoded, as servers echo
// URLs in error pages) and "Bearer" tokens. For every text a user or a log sees that may hold a URL
// or a server's answer.
std::string redactedSecrets(std::string_view text);

} // namespace lumivesper::platform
