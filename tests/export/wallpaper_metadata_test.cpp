#include "export/bplist_reader.h"
#include "export/bplist_writer.h"
#include "export/wallpaper_metadata.h"

#include <bit>
#include <cstring>
#include <gtest/gtest.h>

namespace lumivesper::exporting {
namespace {

using document::WallpaperImage;

// The marker byte of every object in a binary property list, found through its offset table:
// this is what a reader sees, independent of our own reader.
std::vector<std::uint8_t> objectMarkers(const std::vector<std::uint8_t>& bytes) {
    const std::size_t trailer = bytes.size() - 32;
    const int offsetSize = bytes[trailer + 6];
    auto bigEndian = [&](std::size_t at, int size) {
        std::uint64_t value = 0;
        for (int i = 0; i < size; ++i)
            value = (value << 8) | bytes[at + i];
        return value;
    };
    const auto count = bigEndian(trailer + 8, 8);
    const auto table = bigEndian(trailer + 24, 8);
    std::vector<std::uint8_t> markers;
    for (std::uint64_t i = 0; i < count; ++i)
        markers.push_back(bytes[bigEndian(table + i * offsetSize, offsetSize)]);
    return markers;
}

WallpaperImage frame(std::optional<double> altitude, std::optional<double> azimuth,
                     std::optional<bool> isLight = std::nullopt) {
    WallpaperImage image;
    image.altitude = altitude;
    image.azimuth = azimuth;
    image.isLight = isLight;
    return image;
}

const PlistValue& record(const PlistValue& root, std::size_t n) {
    return root.find("si")->array().at(n);
}

// Writes the document to bytes and reads it back, as the desktop would.
PlistValue roundTrip(const std::vector<WallpaperImage>& frames) {
    return readBinaryPlist(writeBinaryPlist(solarDocument(frames)));
}

TEST(SolarDocumentTest, AnglesPassThroughExactlyAndTheLightFlagFollowsIsLightThenAltitude) {
    // altitude, azimuth, isLight, expected "o": isLight first, then altitude; a missing angle is 0.
    using Angle = std::optional<double>;
    const std::tuple<Angle, Angle, std::optional<bool>, std::int64_t> cases[] = {
        {-6.0, 10.0, {}, 0},  {-6.0, 10.0, true, 1},  {40.0, 10.0, false, 0},
        {0.0, 10.0, {}, 1},   {{}, {}, {}, 1},        {-0.0001, 10.0, {}, 0},
        {95.0, -30.0, {}, 1}, {-90.5, 400.25, {}, 0}, {12.3456789, 12.3456789, {}, 1}};
    std::vector<WallpaperImage> frames;
    for (const auto& [altitude, azimuth, isLight, light] : cases)
        frames.push_back(frame(altitude, azimuth, isLight));
    const auto root = roundTrip(frames);
    auto bits = [](double value) { return std::bit_cast<std::uint64_t>(value); };
    for (std::size_t n = 0; n < std::size(cases); ++n) {
        const auto& [altitude, azimuth, isLight, light] = cases[n];
        const auto &a = *record(root, n).find("a"), &z = *record(root, n).find("z"),
                   &o = *record(root, n).find("o");
        ASSERT_TRUE(a.isReal() && z.isReal() && o.isInteger()) << "record " << n;
        EXPECT_EQ(o.integer(), light) << "record " << n;
        EXPECT_EQ(bits(a.real()), bits(altitude.value_or(0))) << "record " << n; // no rounding
        EXPECT_EQ(bits(z.real()), bits(azimuth.value_or(0))) << "record " << n;
    }
}

TEST(SolarDocumentTest, ValueTypesInTheBytesAreIntegersAndEightByteRealsNeverBooleans) {
    // Whole-number angles equal to the "o" and "i" values are the trap: they must stay reals.
    const auto bytes =
        writeBinaryPlist(solarDocument({frame(1.0, 0.0, true), frame(0.0, 1.0, false)}));
    ASSERT_EQ(std::memcmp(bytes.data(), "bplist00", 8), 0);
    int reals = 0;
    for (auto marker : objectMarkers(bytes)) {
        EXPECT_NE(marker, 0x08) << "boolean false";
        EXPECT_NE(marker, 0x09) << "boolean true";
        EXPECT_NE(marker, 0x22) << "4-byte real";
        reals += marker == 0x23;
    }
    EXPECT_EQ(reals, 2); // 1.0 and 0.0, each stored once
}

TEST(SolarDocumentTest, RecordsHaveTheFourKeysAndSequentialIndicesEvenWithWideReferences) {
    std::vector<WallpaperImage> frames;
    for (int n = 0; n < 300; ++n)
        frames.push_back(frame(n * 0.25 - 30, n * 1.5));
    const auto root = roundTrip(frames);
    ASSERT_EQ(root.dictionary().size(), 1u);
    ASSERT_EQ(root.find("si")->array().size(), 300u);
    for (std::size_t n : {0u, 1u, 299u}) {
        EXPECT_EQ(record(root, n).dictionary().size(), 4u);
        EXPECT_EQ(record(root, n).find("i")->integer(), static_cast<std::int64_t>(n));
        EXPECT_EQ(record(root, n).find("a")->real(), n * 0.25 - 30);
        EXPECT_EQ(record(root, n).find("z")->real(), n * 1.5);
    }
}

TEST(AppearanceDocumentTest, HoldsLightZeroAndDarkOneAsIntegersOnly) {
    const auto root = readBinaryPlist(writeBinaryPlist(appearanceDocument()));
    ASSERT_EQ(root.dictionary().size(), 2u);
    ASSERT_TRUE(root.find("l")->isInteger() && root.find("d")->isInteger());
    EXPECT_EQ(std::pair(root.find("l")->integer(), root.find("d")->integer()), std::pair(0l, 1l));
}

TEST(XmpPacketTest, CarriesThePropertyAsADoubleQuotedAttributeOfOneDescription) {
    const auto packet = xmpPacket("solar", "QUJD");
    EXPECT_NE(packet.find("xmlns:apple_desktop=\"http://ns.apple.com/namespace/1.0/\""),
              std::string::npos);
    EXPECT_NE(packet.find("apple_desktop:solar=\"QUJD\""), std::string::npos);
    EXPECT_NE(packet.find("<rdf:Description rdf:about=\"\""), std::string::npos);
    EXPECT_EQ(packet.find("<apple_desktop:"), std::string::npos); // never the element form
    EXPECT_EQ(packet.find('\''), std::string::npos);
    EXPECT_EQ(packet.find("rdf:Description"), packet.rfind("rdf:Description"));

    const auto found = findDesktopProperties(xmpPacket("apr", "TWFu"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].name + "=" + found[0].value, "apr=TWFu");
}

TEST(XmpPacketTest, FindsThePropertiesOfOtherWritersWhateverTheirFormAndPrefix) {
    using Form = DesktopProperty::Form;
    const std::string rdf = "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"";
    const std::string ns = "\"http://ns.apple.com/namespace/1.0/\"";
    const std::tuple<std::string, std::string, std::string, Form> cases[] = {
        // element form, value wrapped over lines, in an xpacket with NUL padding
        {"<?xpacket begin=\"\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?><x:xmpmeta "
         "xmlns:x=\"adobe:ns:meta/\">"
         "<rdf:RDF " +
             rdf + "><rdf:Description rdf:about=\"\" xmlns:apple_desktop=" + ns +
             "><apple_desktop:h24>QU\n JD</apple_desktop:h24></rdf:Description></rdf:RDF>"
             "</x:xmpmeta><?xpacket end=\"w\"?>" +
             std::string(3, '\0'),
         "h24", "QU\n JD", Form::element},
        // another prefix bound to the namespace on an outer element
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" xmlns:desk=" + ns + "><rdf:RDF " + rdf +
             "><rdf:Description desk:solar=\"QUJD\"/></rdf:RDF></x:xmpmeta>",
         "solar", "QUJD", Form::attribute},
        // the value as an rdf:Alt list
        {"<rdf:RDF " + rdf + " xmlns:apple_desktop=" + ns +
             "><rdf:Description><apple_desktop:apr>"
             "<rdf:Alt><rdf:li>TWFu</rdf:li></rdf:Alt></apple_desktop:apr></rdf:Description></"
             "rdf:RDF>",
         "apr", "TWFu", Form::element},
        // not well-formed XML: the literal attribute text still counts
        {"<x:xmpmeta><broken apple_desktop:solar=\"QUJD\">", "solar", "QUJD", Form::attribute},
    };
    for (const auto& [xmp, name, value, form] : cases) {
        const auto found = findDesktopProperties(xmp);
        ASSERT_EQ(found.size(), 1u) << xmp;
        EXPECT_EQ(std::tuple(found[0].name, found[0].value, found[0].form),
                  std::tuple(name, value, form));
    }
    // Same local name, other namespace: not ours.
    EXPECT_TRUE(findDesktopProperties("<r xmlns:apple_desktop=\"http://example.com/\" "
                                      "apple_desktop:solar=\"QUJD\"/>")
                    .empty());
}

} // namespace
} // namespace lumivesper::exporting
