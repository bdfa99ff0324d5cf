#include "export/wallpaper_metadata.h"

#include "export/bplist_writer.h"
#include "platform/base64.h"

#include <pugixml.hpp>

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

namespace {

bool isDesktopPropertyName(std::string_view name) {
    return name == solarPropertyName || name == hourPropertyName || name == appearancePropertyName;
}

// The namespace URI that `prefix` stands for where `node` is, or empty when it is not declared.
std::string_view namespaceOf(pugi::xml_node node, std::string_view prefix) {
    const std::string declaration = "xmlns:" + std::string(prefix);
    for (; node; node = node.parent())
        if (const auto attribute = node.attribute(declaration.c_str()))
            return attribute.value();
    return {};
}

// The local name of a qualified `name` when its prefix is bound to the desktop namespace. An
// undeclared "apple_desktop" prefix counts too: some writers leave the declaration out.
std::optional<std::string_view> desktopLocalName(pugi::xml_node scope, std::string_view name) {
    const auto colon = name.find(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    const auto prefix = name.substr(0, colon);
    const auto uri = namespaceOf(scope, prefix);
    if (uri != desktopNamespaceUri && !(uri.empty() && prefix == desktopPrefix))
        return std::nullopt;
    const auto local = name.substr(colon + 1);
    return isDesktopPropertyName(local) ? std::optional(local) : std::nullopt;
}

// All text below an element, for values written as rdf:Alt or split over several text nodes.
std::string deepText(pugi::xml_node element) {
    std::string text;
    for (auto node = element.first_child(); node; node = node.next_sibling()) {
        if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata)
            text += node.value();
        else if (node.type() == pugi::node_element)
            text += deepText(node);
    }
    return text;
}

void collect(pugi::xml_node element, std::vector<DesktopProperty>& found) {
    for (auto attribute : element.attributes())
        if (const auto local = desktopLocalName(element, attribute.name()))
            found.push_back(
                {std::string(*local), attribute.value(), DesktopProperty::Form::attribute});
    for (auto child = element.first_child(); child; child = child.next_sibling()) {
        if (child.type() != pugi::node_element)
            continue;
        if (const auto local = desktopLocalName(child, child.name()))
            found.push_back({std::string(*local), deepText(child), DesktopProperty::Form::element});
        else
            collect(child, found);
    }
}

std::vector<DesktopProperty> scanLiteralAttributes(std::string_view xmp) {
    std::vector<DesktopProperty> found;
    for (std::string_view name : {solarPropertyName, hourPropertyName, appearancePropertyName}) {
        const std::string needle = std::string(desktopPrefix) + ':' + std::string(name) + "=\"";
        const auto start = xmp.find(needle);
        if (start == std::string_view::npos)
            continue;
        const auto valueStart = start + needle.size();
        const auto end = xmp.find('"', valueStart);
        if (end != std::string_view::npos)
            found.push_back({std::string(name),
                             std::string(xmp.substr(valueStart, end - valueStart)),
                             DesktopProperty::Form::attribute});
    }
    return found;
}

} // namespace

std::vector<DesktopProperty> findDesktopProperties(std::string_view xmp) {
    // Packets are often padded with NULs or blanks after the closing processing instruction.
    while (!xmp.empty() && (xmp.back() == '\0'))
        xmp.remove_suffix(1);
    pugi::xml_document document;
    if (!document.load_buffer(xmp.data(), xmp.size(), pugi::parse_default, pugi::encoding_utf8))
        return scanLiteralAttributes(xmp);
    std::vector<DesktopProperty> found;
    collect(document.document_element(), found);
    return found;
}

} // namespace lumivesper::exporting
