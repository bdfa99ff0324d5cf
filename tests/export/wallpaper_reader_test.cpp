#include "../support/temporary_folder.h"
#include "export/wallpaper_reader.h"
#include "wallpaper_file_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lcms2.h>

namespace lumivesper::exporting {
namespace {

using testing::elementXmp;
using testing::metadataValue;
using testing::Picture;
using D = PlistValue::Dictionary;
using A = PlistValue::Array;

class WallpaperReaderTest : public ::testing::Test {
protected:
    std::filesystem::path write(const std::vector<Picture>& pictures, std::size_t primary,
                                const std::string& xmp) {
        const auto path = folder.path() / ("w" + std::to_string(++files) + ".heic");
        testing::writeHeif(path, pictures, primary, xmp);
        return path;
    }

    // Three small images told apart by their width.
    std::vector<Picture> three() {
        return {testing::picture(64, 32), testing::picture(96, 32), testing::picture(128, 32)};
    }

    lumivesper::testing::TemporaryFolder folder;
    int files = 0;
};

// Near enough after lossy coding.
void expectColour(const platform::PixelImage& image, int x, int y, std::array<int, 3> rgb,
                  const std::string& what) {
    const auto* pixel = image.pixel(x, y);
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(pixel[c], rgb[c], 8) << what << " channel " << c;
    EXPECT_EQ(pixel[3], 255) << what;
}

TEST_F(WallpaperReaderTest, SolarWithoutLightFlagsWithAppearanceBesideAsElementOnALaterPrimary) {
    const PlistValue document(D{
        {"ap", PlistValue(D{{"l", 2}, {"d", 0}})},
        {"si", PlistValue(A{PlistValue(D{{"i", 0}, {"a", -20.5}, {"z", 10}}), // integer angle
                            PlistValue(D{{"i", 2}, {"a", 40.25}, {"z", 180.0}, {"o", true}}),
                            PlistValue(D{{"i", 1}, {"a", 5.0}, {"z", 270.0}, {"x", "unknown"}})})},
        {"future", PlistValue(A{PlistValue(1.5)})}});
    const auto info =
        readWallpaper(write(three(), 1, elementXmp("solar", metadataValue(document))));

    EXPECT_EQ(info.kind, "solar");
    EXPECT_EQ(info.xmpForm, "element");
    EXPECT_EQ(info.primaryIndex, 1);
    ASSERT_EQ(info.images.size(), 3u);
    EXPECT_EQ(info.images[2].width, 128);
    EXPECT_FALSE(info.images[0].hasXmp);
    EXPECT_TRUE(info.images[1].hasXmp);
    ASSERT_EQ(info.solarFrames.size(), 3u);
    EXPECT_EQ(std::tuple(info.solarFrames[0].index, info.solarFrames[0].altitude,
                         info.solarFrames[0].azimuth, info.solarFrames[0].light),
              std::tuple(0ll, -20.5, 10.0, std::optional<long long>()));
    EXPECT_EQ(info.solarFrames[1].light, 1);
    EXPECT_EQ(std::tuple(info.solarFrames[2].index, info.solarFrames[2].azimuth),
              std::tuple(1ll, 270.0));
    EXPECT_EQ(std::pair(info.lightIndex, info.darkIndex),
              std::pair(std::optional(2ll), std::optional(0ll)));
}

TEST_F(WallpaperReaderTest, HourAndAppearanceDocumentsInEitherForm) {
    const PlistValue hours(D{{"ap", PlistValue(D{{"d", 1}, {"l", 0}})},
                             {"ti", PlistValue(A{PlistValue(D{{"t", 0.25}, {"i", 0}}),
                                                 PlistValue(D{{"t", 0.75}, {"i", 1}}),
                                                 PlistValue(D{{"t", 1.0}, {"i", 2}})})}});
    const auto h24 = readWallpaper(write(three(), 0, xmpPacket("h24", metadataValue(hours))));
    EXPECT_EQ(std::tuple(h24.kind, h24.xmpForm, h24.properties.size()),
              std::tuple("h24", "attribute", 1u));
    ASSERT_EQ(h24.hourFrames.size(), 3u);
    EXPECT_EQ(std::pair(h24.hourFrames[1].index, h24.hourFrames[1].dayFraction),
              std::pair(1ll, 0.75));
    EXPECT_EQ(h24.darkIndex, 1);

    const PlistValue appearance(D{{"l", 1}, {"d", 0}});
    const auto apr = readWallpaper(write({testing::picture(64, 32), testing::picture(96, 32)}, 1,
                                         elementXmp("apr", metadataValue(appearance))));
    EXPECT_EQ(std::tuple(apr.kind, apr.primaryIndex, apr.lightIndex, apr.darkIndex),
              std::tuple("apr", 1, std::optional(1ll), std::optional(0ll)));
}

TEST_F(WallpaperReaderTest, MalformedDocumentsGiveAClearError) {
    auto solar = [](PlistValue record) {
        return metadataValue(PlistValue(D{{"si", PlistValue(A{std::move(record)})}}));
    };
    const std::pair<std::string, std::string> cases[] = {
        {xmpPacket("solar", "%%%%"), "not valid base64"},
        {xmpPacket("solar", "bm90IGEgcGxpc3QsIGp1c3QgdGV4dA=="), "not a readable property list"},
        {xmpPacket("solar", solar(PlistValue(D{{"i", 0}, {"a", "high"}, {"z", 1.0}}))),
         "Solar metadata record 0: \"a\" is not a number"},
        {xmpPacket("solar", solar(PlistValue(D{{"i", 3}, {"a", 1.0}, {"z", 1.0}}))),
         "image index 3 is out of range (the file holds 3 images)"},
        {xmpPacket("solar", solar(PlistValue(D{{"a", 1.0}, {"z", 1.0}}))), "\"i\" is missing"},
        {xmpPacket("solar", metadataValue(PlistValue(D{{"si", PlistValue(1)}}))),
         "\"si\" is not a list of records"},
        {xmpPacket("h24", metadataValue(PlistValue(
                              D{{"ti", PlistValue(A{PlistValue(D{{"t", 2.5}, {"i", 0}})})}}))),
         "not a fraction of the day"},
        {xmpPacket("apr", metadataValue(PlistValue(D{{"l", 0}}))), "\"d\" is missing"},
        {xmpPacket("apr", metadataValue(PlistValue(D{{"l", 0}, {"d", -1}}))), "out of range"},
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>", "no apple_desktop:solar, apple_desktop:h24"},
        {"", "carries no XMP metadata"},
    };
    for (const auto& [xmp, message] : cases) {
        try {
            readWallpaper(write(three(), 0, xmp));
            ADD_FAILURE() << "no error for " << message;
        } catch (const WallpaperReadError& error) {
            EXPECT_THAT(error.what(), ::testing::HasSubstr(message));
        }
        EXPECT_FALSE(isDynamicWallpaper(folder.path() / ("w" + std::to_string(files) + ".heic")));
    }
    EXPECT_TRUE(isDynamicWallpaper(
        write(three(), 2, xmpPacket("apr", metadataValue(PlistValue(D{{"l", 0}, {"d", 2}}))))));
}

// A profile whose red and green primaries are sRGB's green and red: a reader that applies it
// swaps those channels, one that ignores it does not.
testing::Bytes swappedPrimariesProfile() {
    const cmsCIExyY white{0.3127, 0.3290, 1};
    const cmsCIExyYTRIPLE primaries{{0.30, 0.60, 1}, {0.64, 0.33, 1}, {0.15, 0.06, 1}};
    const double srgb[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, srgb);
    cmsToneCurve* curves[3] = {curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    testing::Bytes bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(curve);
    return bytes;
}

TEST_F(WallpaperReaderTest, DecodesGridsDeepAndProfiledImagesToEightBitSrgb) {
    const std::array<std::array<std::uint8_t, 3>, 4> quadrants{
        {{200, 40, 40}, {40, 200, 40}, {40, 40, 200}, {220, 220, 60}}};
    std::vector<testing::CodedTile> tiles;
    for (const auto& [r, g, b] : quadrants)
        tiles.push_back(testing::encodeTile(testing::picture(64, 64, r, g, b)));
    const auto other = testing::encodeTile(testing::picture(64, 64, 90, 90, 90));
    const PlistValue document(
        D{{"si", PlistValue(A{PlistValue(D{{"i", 0}, {"a", 10.0}, {"z", 90.0}}),
                              PlistValue(D{{"i", 1}, {"a", -10.0}, {"z", 270.0}})})}});
    const auto bytes = testing::gridWallpaper(tiles, 2, 2, 64, {other}, 64,
                                              xmpPacket("solar", metadataValue(document)));
    const auto gridPath = folder.path() / "grid.heic";
    std::ofstream(gridPath, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    const WallpaperFile grid(gridPath);
    ASSERT_EQ(grid.info().images.size(), 2u);
    EXPECT_EQ(std::pair(grid.info().images[0].width, grid.info().images[0].height),
              std::pair(128, 128));
    const auto assembled = grid.decodeImage(0);
    ASSERT_EQ(std::pair(assembled.width, assembled.height), std::pair(128, 128));
    for (int n = 0; n < 4; ++n) {
        const auto& [r, g, b] = quadrants[n];
        expectColour(assembled, 32 + 64 * (n % 2), 32 + 64 * (n / 2), {r, g, b},
                     "tile " + std::to_string(n));
    }
    expectColour(grid.decodeImage(1), 10, 10, {90, 90, 90}, "plain image after the grid");

    Picture deep = testing::picture(64, 64, 180, 120, 60);
    deep.tenBit = true;
    Picture profiled = testing::picture(64, 64, 200, 60, 30);
    profiled.icc = swappedPrimariesProfile();
    const WallpaperFile file(write(
        {deep, profiled}, 0, xmpPacket("apr", metadataValue(PlistValue(D{{"l", 0}, {"d", 1}})))));
    EXPECT_EQ(file.info().images[0].bitDepth, 10);
    EXPECT_THAT(file.info().images[1].colourProfile, ::testing::StartsWith("ICC: "));
    expectColour(file.decodeImage(0), 5, 5, {180, 120, 60}, "10-bit");
    const auto converted = file.decodeImage(1);
    EXPECT_GT(converted.pixel(5, 5)[1], 150) << "the profile's red is sRGB green";
    EXPECT_LT(converted.pixel(5, 5)[0], 110);
}

} // namespace
} // namespace lumivesper::exporting
