#pragma once

#include "platform/http_client.h"

#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::generation {

// Developer diagnostics of the direct provider clients: prompts, requests and responses on
// standard output, only while LUMIVESPER_NETWORK_LOGS is exactly "1" (read at each call). They
// show API keys that travel in a URL, which is why they are off by default.
bool networkLogsEnabled();

void logPrompt(std::string_view tag, const std::optional<std::string>& systemPrompt,
               std::string_view userPrompt);
void logRequest(std::string_view tag, const platform::HttpRequest& request);
// `response` is null when no HTTP response came back.
void logResponse(std::string_view tag, const platform::HttpResponse* response);

// None for empty data; the text if it is UTF-8; otherwise "<binary N bytes>".
std::optional<std::string> readableForm(std::string_view bytes);

} // namespace lumivesper::generation
