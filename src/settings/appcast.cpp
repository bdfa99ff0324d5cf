#include "settings/appcast.h"

#include <cctype>
#include <cstring>
#include <pugixml.hpp>

namespace lumivesper::settings {

namespace {

// Feeds put their own fields in a namespace whose prefix we do not rely on: match the local name.
bool hasLocalName(const char* name, std::string_view localName) {
    std::string_view full(name);
    if (const auto colon = full.rfind(':'); colon != std::string_view::npos)
        full.remove_prefix(colon + 1);
    return full == localName;
}

std::optional<std::string> childText(const pugi::xml_node& node, std::string_view localName) {
    for (const pugi::xml_node child : node.children())
        if (child.type() == pugi::node_element && hasLocalName(child.name(), localName))
            return std::string(child.text().get());
    return std::nullopt;
}

std::optional<std::string> attribute(const pugi::xml_node& node, std::string_view localName) {
    if (!node)
        return std::nullopt;
    for (const pugi::xml_attribute item : node.attributes())
        if (hasLocalName(item.name(), localName))
            return std::string(item.value());
    return std::nullopt;
}

std::string trimmed(std::string text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

// Prefers the item's own element, then the enclosure's attribute.
std::string field(const pugi::xml_node& item, const pugi::xml_node& enclosure,
                  std::string_view localName) {
    if (auto text = childText(item, localName); text && !trimmed(*text).empty())
        return trimmed(*text);
    return trimmed(attribute(enclosure, localName).value_or(""));
}

struct VersionPart {
    bool numeric = false;
    std::string_view text;
};

std::vector<VersionPart> splitVersion(std::string_view version) {
    std::vector<VersionPart> parts;
    std::size_t i = 0;
    while (i < version.size()) {
        const unsigned char c = static_cast<unsigned char>(version[i]);
        if (!std::isalnum(c)) {
            ++i; // separators only delimit
            continue;
        }
        const bool numeric = std::isdigit(c) != 0;
        std::size_t end = i;
        while (end < version.size()) {
            const unsigned char next = static_cast<unsigned char>(version[end]);
            if (!std::isalnum(next) || (std::isdigit(next) != 0) != numeric)
                break;
            ++end;
        }
        parts.push_back({numeric, version.substr(i, end - i)});
        i = end;
    }
    return parts;
}

// Numbers of any length, without overflow.
int compareNumbers(std::string_view a, std::string_view b) {
    while (a.size() > 1 && a.front() == '0')
        a.remove_prefix(1);
    while (b.size() > 1 && b.front() == '0')
        b.remove_prefix(1);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return a.compare(b) < 0 ? -1 : (a == b ? 0 : 1);
}

} // namespace

std::vector<AppcastItem> parseAppcast(std::string_view xml) {
    pugi::xml_document document;
    const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size());
    if (!result)
        throw AppcastError(std::string("The update feed is not valid XML: ") +
                           result.description() + ".");
    const pugi::xml_node channel = document.child("rss").child("channel");
    if (!channel)
        throw AppcastError("The update feed is not an RSS feed with a channel.");

    std::vector<AppcastItem> items;
    for (const pugi::xml_node item : channel.children("item")) {
        const pugi::xml_node enclosure = item.child("enclosure");
        AppcastItem entry;
        entry.version = field(item, enclosure, "version");
        if (entry.version.empty())
            continue;
        entry.displayVersion = field(item, enclosure, "shortVersionString");
        if (entry.displayVersion.empty())
            entry.displayVersion = entry.version;
        entry.title = trimmed(item.child("title").text().get());
        if (auto url = attribute(enclosure, "url"); url && !url->empty())
            entry.downloadURL = *url;
        if (auto notes = childText(item, "releaseNotesLink"); notes && !trimmed(*notes).empty())
            entry.releaseNotesURL = trimmed(*notes);
        items.push_back(std::move(entry));
    }
    return items;
}

int compareVersions(std::string_view a, std::string_view b) {
    const auto left = splitVersion(a);
    const auto right = splitVersion(b);
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        const VersionPart& x = left[i];
        const VersionPart& y = right[i];
        if (x.numeric != y.numeric)
            return x.numeric ? 1 : -1;
        const int order = x.numeric ? compareNumbers(x.text, y.text)
                                    : (x.text < y.text ? -1 : (x.text == y.text ? 0 : 1));
        if (order != 0)
            return order;
    }
    const auto& longer = left.size() > right.size() ? left : right;
    const int sign = left.size() > right.size() ? 1 : -1;
    // Trailing zeros add nothing: "1.0" is "1.0.0".
    bool onlyZeros = true;
    for (std::size_t i = common; i < longer.size(); ++i)
        onlyZeros = onlyZeros && longer[i].numeric && compareNumbers(longer[i].text, "0") == 0;
    if (onlyZeros)
        return 0;
    // The longer one goes on: with a number it is a later release, with text a pre-release.
    return longer[common].numeric ? sign : -sign;
}

std::optional<AppcastItem> newestUpdate(const std::vector<AppcastItem>& items,
                                        std::string_view currentVersion) {
    std::optional<AppcastItem> newest;
    for (const auto& item : items) {
        if (compareVersions(item.version, currentVersion) <= 0)
            continue;
        if (!newest || compareVersions(item.version, newest->version) > 0)
            newest = item;
    }
    return newest;
}

} // namespace lumivesper::settings
