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
// Written by other programs only: frames placed by the hour ("ti" records of "t" and "i").
inline constexpr std::string_view hourPropertyName = "h24";

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

// One desktop property found in an XMP packet: which one, its base64 text, and whether it stood
// as an attribute of rdf:Description (our form) or as an element (the form of other writers).
struct DesktopProperty {
    enum class Form { attribute, element };
    std::string name; // "solar", "h24" or "apr"
    std::string value;
    Form form = Form::attribute;
};

// Every desktop property of an XMP packet, in document order. The packet is read as XML with its
// namespaces resolved, so any prefix bound to the desktop namespace counts; a packet that is not
// well-formed XML is scanned for the literal attribute text, as desktop readers scan it.
std::vector<DesktopProperty> findDesktopProperties(std::string_view xmp);

} // namespace lumivesper::exporting
