#include "settings/server_config.h"

#include "platform/console.h"

#include <cstdlib>

namespace lumivesper::settings {

namespace {

// A variable set to the empty string counts as unset; one set to a blank does not.
const char* nonEmptyVariable(const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? value : nullptr;
}

} // namespace

std::string defaultServerURL() {
    if (const char* value = nonEmptyVariable("API_SERVER_URL")) {
        platform::consoleLine(std::string("🔧 Using API_SERVER_URL from environment: ") + value);
        return value;
    }
    platform::consoleLine(std::string("🔧 Using RELEASE serverURL: ") + builtInServerURL);
    return builtInServerURL;
}

std::string feedBaseURL() {
    if (const char* value = nonEmptyVariable("SPARKLE_FEED_BASE_URL"))
        return value;
    return builtInFeedBaseURL;
}

} // namespace lumivesper::settings
