#include "export/wallpaper_metadata.h"

#include "export/bplist_writer.h"
#include "platform/base64.h"

namespace lumivesper::exporting {

int lightFlag(const document::WallpaperImage& image) {
    if (image.isLight)
        return *image.isLight ? 1 : 0;
    return image.altitude.value_or(0.0) >= 0.0 ? 1 : 0;
}

PlistValue solarDocument(const std::vector<document::WallpaperImage>& frames) {
    PlistValue::Array records;
    records.reserve(frames.size());
    for (std::size_t n = 0; n < frames.size(); ++n) {
        const auto& frame = frames[n];
        // Values go in exactly as stored: no rounding, clamping or normalising.
        records.emplace_back(PlistValue::Dictionary{
            {"i", PlistValue(static_cast<std::int64_t>(n))},
            {"a", PlistValue(frame.altitude.value_or(0.0))},
            {"z", PlistValue(frame.azimuth.value_or(0.0))},
            {"o", PlistValue(lightFlag(frame))},
        });
    }
    return PlistValue(PlistValue::Dictionary{{"si", PlistValue(std::move(records))}});
}

PlistValue appearanceDocument() {
    return PlistValue(PlistValue::Dictionary{{"l", PlistValue(0)}, {"d", PlistValue(1)}});
}

std::string encodeMetadataValue(const PlistValue& document) {
    return platform::encodeBase64(writeBinaryPlist(document));
}

std::string xmpPacket(std::string_view propertyName, std::string_view base64Value) {
    std::string packet;
    packet += "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n";
    packet += " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n";
    packet += "  <rdf:Description rdf:about=\"\"\n";
    packet += "    xmlns:";
    packet += desktopPrefix;
    packet += "=\"";
    packet += desktopNamespaceUri;
    packet += "\"\n    ";
    packet += desktopPrefix;
    packet += ':';
    packet += propertyName;
    packet += "=\"";
    packet += base64Value; // base64 needs no XML escaping
    packet += "\"/>\n";
    packet += " </rdf:RDF>\n";
    packet += "</x:xmpmeta>\n";
    return packet;
}

std::optional<DesktopProperty> findDesktopProperty(std::string_view xmp) {
    for (std::string_view name : {solarPropertyName, appearancePropertyName}) {
        std::string needle(desktopPrefix);
        needle += ':';
        needle += name;
        needle += "=\"";
        const auto start = xmp.find(needle);
        if (start == std::string_view::npos)
            continue;
        const auto valueStart = start + needle.size();
        const auto end = xmp.find('"', valueStart);
        if (end == std::string_view::npos)
            return std::nullopt;
        return DesktopProperty{std::string(name),
                               std::string(xmp.substr(valueStart, end - valueStart))};
    }
    return std::nullopt;
}

} // namespace lumivesper::exporting
