#include "generation/network_log.h"

#include "generation/request_text.h"
#include "platform/console.h"
#include "platform/redaction.h"

#include <cstdlib>

namespace lumivesper::generation {

namespace {

std::string head(std::string_view kind, std::string_view tag) {
    std::string text = "[Lumivesper AI][";
    text += kind;
    text += "][";
    text += tag;
    text += "] ";
    return text;
}

// Every network line goes out here, with keys of URLs and answers hidden.
void logLine(std::string_view kind, std::string_view tag, const std::string& text) {
    platform::consoleLine(head(kind, tag) + platform::redactedSecrets(text));
}

void logBody(std::string_view tag, std::string_view body) {
    if (auto readable = readableForm(body); readable && !readable->empty())
        logLine("Network", tag, "Body: " + *readable);
}

} // namespace

bool networkLogsEnabled() {
    const char* value = std::getenv("LUMIVESPER_NETWORK_LOGS");
    return value && std::string_view(value) == "1";
}

std::optional<std::string> readableForm(std::string_view bytes) {
    if (bytes.empty())
        return std::nullopt;
    if (auto text = utf8Text(bytes))
        return text;
    return "<binary " + std::to_string(bytes.size()) + " bytes>";
}

void logPrompt(std::string_view tag, const std::optional<std::string>& systemPrompt,
               std::string_view userPrompt) {
    if (!networkLogsEnabled())
        return;
    if (systemPrompt && !systemPrompt->empty())
        logLine("Prompt", tag, "System: " + *systemPrompt);
    logLine("Prompt", tag, "User: " + std::string(userPrompt));
}

void logRequest(std::string_view tag, const platform::HttpRequest& request) {
    if (!networkLogsEnabled())
        return;
    const std::string method = request.method.empty() ? "GET" : request.method;
    const std::string url = request.url.empty() ? "<nil>" : request.url;
    logLine("Network", tag, method + " " + url);
    logBody(tag, request.body);
}

void logResponse(std::string_view tag, const platform::HttpResponse* response) {
    if (!networkLogsEnabled())
        return;
    const std::string status = response ? std::to_string(response->status) : "<nil>";
    logLine("Network", tag, "Status: " + status);
    if (response)
        logBody(tag, response->body);
}

} // namespace lumivesper::generation
