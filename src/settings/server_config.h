#pragma once

#include <string>

namespace lumivesper::settings {

// The built-in addresses: absolute HTTPS base URLs without a trailing slash. The paths behind
// them are added by each client.
inline constexpr const char* builtInServerURL = "https://api.lumivesper.app";
inline constexpr const char* builtInFeedBaseURL = "https://api.lumivesper.app";

// The base URL of the program's server: $API_SERVER_URL when it is set and not empty (taken as it
// stands, with no trimming), else the built-in address. Prints which one it chose on every call.
// Reads only the environment, so it may be called from any thread.
std::string defaultServerURL();

// The base URL of the update feed: $SPARKLE_FEED_BASE_URL when set and not empty, else the
// built-in address. Prints nothing.
std::string feedBaseURL();

} // namespace lumivesper::settings
