#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::settings {

// One release in the update feed.
struct AppcastItem {
    std::string title;
    std::string version;        // the machine version compared with this build's
    std::string displayVersion; // what the user reads; the version when the feed gives none
    std::optional<std::string> downloadURL;
    std::optional<std::string> releaseNotesURL;
};

// An update feed that is not an RSS document with a channel.
class AppcastError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    std::string description() const { return what(); }
};

// The items of an RSS appcast, in feed order. Each item's version and short version string are
// read from its own elements or, failing those, from its enclosure's attributes; items without a
// version are skipped.
std::vector<AppcastItem> parseAppcast(std::string_view xml);

// Orders version strings the way people number releases: runs of digits compare as numbers,
// other runs as text, a number outranks text ("1.0.1" > "1.0b1"), and a trailing pre-release
// part makes a version older ("1.0b1" < "1.0"). Returns <0, 0 or >0.
int compareVersions(std::string_view a, std::string_view b);

// The newest item that is newer than `currentVersion`, if any.
std::optional<AppcastItem> newestUpdate(const std::vector<AppcastItem>& items,
                                        std::string_view currentVersion);

} // namespace lumivesper::settings
