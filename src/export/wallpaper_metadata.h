#pragma once

#include "document/wallpaper_image.h"
#include "export/property_list.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::exporting {

// Desktop readers look for these exact texts; none of them may change.
inline constexpr std::string_view desktopNamespaceUri = "http://ns.apple.com/namespace/1.0/";
inline constexpr std::string_view desktopPrefix = "apple_desktop";
inline constexpr std::string_view solarPropertyName = "solar";
inline constexpr std::string_view appearancePropertyName = "apr";

// The "o" value of a frame: its isLight when set, else whether its altitude (0 when unset) is at
// or above the horizon.
int lightFlag(const document::WallpaperImage& image);

// {"si": [{"i", "a", "z", "o"}, ...]}, one record per frame in the order given.
PlistValue solarDocument(const std::vector<document::WallpaperImage>& frames);

// {"l": 0, "d": 1}: an appearance file always holds the light image first.
PlistValue appearanceDocument();

// base64 of the binary property list of `document`, on one line.
std::string encodeMetadataValue(const PlistValue& document);

// The XMP packet that carries one property of the desktop namespace as a double-quoted attribute
// of a single rdf:Description: the form that readers which scan the raw text accept.
std::string xmpPacket(std::string_view propertyName, std::string_view base64Value);

// What an XMP packet says: which property it carries and its value, read the way desktop readers
// read it (the literal attribute text). None when neither property is there.
struct DesktopProperty {
    std::string name; // "solar" or "apr"
    std::string value;
};
std::optional<DesktopProperty> findDesktopProperty(std::string_view xmp);

} // namespace lumivesper::exporting
