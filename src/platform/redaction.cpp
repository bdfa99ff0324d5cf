#include "platform/redaction.h"

#include <array>
#include <cctype>

namespace lumivesper::platform {

namespace {

constexpr std::string_view replacement = "REDACTED";

// Names of query parameters whose values are credentials, in lower case.
constexpr std::array<std::string_view, 6> secretParameters{"key",          "api_key", "apikey",
                                                           "access_token", "token",   "secret"};

char lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool startsWithIgnoringCase(std::string_view text, std::size_t at, std::string_view prefix) {
    if (text.size() - at < prefix.size())
        return false;
    for (std::size_t i = 0; i < prefix.size(); ++i)
        if (lower(text[at + i]) != lower(prefix[i]))
            return false;
    return true;
}

// Whether a query separator ends just before `at`: "?", "&", ";" (of "&amp;"), "%3F", "%26".
bool followsSeparator(std::string_view text, std::size_t at) {
    if (at == 0)
        return false;
    const char previous = text[at - 1];
    if (previous == '?' || previous == '&' || previous == ';')
        return true;
    return at >= 3 && (startsWithIgnoringCase(text, at - 3, "%3F") ||
                       startsWithIgnoringCase(text, at - 3, "%26"));
}

// Length of "=" or "%3D" at `at`, or 0.
std::size_t assignmentLength(std::string_view text, std::size_t at) {
    if (at < text.size() && text[at] == '=')
        return 1;
    return startsWithIgnoringCase(text, at, "%3D") ? 3 : 0;
}

bool endsValue(char c) {
    return c == '&' || c == '#' || c == '"' || c == '\'' || c == '<' || c == '>' || c == ')' ||
           c == ',' || std::isspace(static_cast<unsigned char>(c));
}

// End of a value starting at `at`; "%26" (an encoded "&") ends it too.
std::size_t valueEnd(std::string_view text, std::size_t at) {
    while (at < text.size() && !endsValue(text[at]) && !startsWithIgnoringCase(text, at, "%26"))
        ++at;
    return at;
}

} // namespace

std::string redactedSecrets(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    std::size_t copied = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        std::size_t valueStart = std::string_view::npos;
        if (startsWithIgnoringCase(text, at, "bearer ")) {
            valueStart = at + 7;
        } else if (followsSeparator(text, at)) {
            for (const auto name : secretParameters) {
                if (!startsWithIgnoringCase(text, at, name))
                    continue;
                if (const auto length = assignmentLength(text, at + name.size())) {
                    valueStart = at + name.size() + length;
                    break;
                }
            }
        }
        if (valueStart == std::string_view::npos)
            continue;
        const std::size_t end = valueEnd(text, valueStart);
        if (end == valueStart)
            continue;
        result.append(text.substr(copied, valueStart - copied));
        result.append(replacement);
        copied = end;
        at = end - 1;
    }
    result.append(text.substr(copied));
    return result;
}

} // namespace lumivesper::platform
