#include "../support/temporary_folder.h"
#include "document/project_io.h"
#include "export/heic_generator.h"
#include "export/wallpaper_import.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"
#include "sun/solar_time_samples.h"
#include "wallpaper_file_builder.h"

#include <gtest/gtest.h>

namespace lumivesper::exporting {
namespace {

using testing::metadataValue;
using D = PlistValue::Dictionary;
using A = PlistValue::Array;

class WallpaperImportTest : public ::testing::Test {
protected:
    // Three images told apart by their colour.
    std::filesystem::path wallpaper(const std::string& name, const PlistValue& document) {
        const auto path = folder.path() / name;
        testing::writeHeif(
            path,
            {testing::picture(64, 32, 250, 10, 10), testing::picture(64, 32, 10, 250, 10),
             testing::picture(64, 32, 10, 10, 250)},
            0, xmpPacket(name.starts_with("h24") ? "h24" : "solar", metadataValue(document)));
        return path;
    }

    // Opens the package as the application does and exports it again.
    WallpaperFileInfo reexport(const std::filesystem::path& package) {
        const auto loaded = document::readPackage(package);
        EXPECT_TRUE(loaded.missingFileNames.empty());
        const auto output = folder.path() / "again.heic";
        HeicGenerator().generate(loaded.project.images, output, loaded.project.mode, std::nullopt,
                                 {});
        return readWallpaper(output);
    }

    lumivesper::testing::TemporaryFolder folder;
};

TEST_F(WallpaperImportTest, SolarRecordsComeBackTheSameAfterImportReopenAndExport) {
    // In the order of the day, one record without "o", and the last two sharing an image.
    const PlistValue document(
        D{{"si", PlistValue(A{PlistValue(D{{"i", 2}, {"a", 5.5}, {"z", 95.25}, {"o", 1}}),
                              PlistValue(D{{"i", 0}, {"a", 50.125}, {"z", 180.0}}),
                              PlistValue(D{{"i", 1}, {"a", -3.0}, {"z", 265.0}, {"o", 1}}),
                              PlistValue(D{{"i", 1}, {"a", -30.0}, {"z", 330.0}, {"o", 0}})})}});
    std::vector<std::string> reports;
    const auto package =
        importDynamicWallpaper(wallpaper("solar.heic", document), folder.path() / "solar.lvesper",
                               {}, [&](int current, int total, const std::string& message) {
                                   reports.push_back(std::to_string(current) + "/" +
                                                     std::to_string(total) + " " + message);
                               });
    EXPECT_EQ(reports, (std::vector<std::string>{"1/3 Decoded image 1/3", "2/3 Decoded image 2/3",
                                                 "3/3 Decoded image 3/3"}));
    const auto images = document::readPackage(package).project.images;
    ASSERT_EQ(images.size(), 4u);
    EXPECT_EQ(images[2].fileName, images[3].fileName); // one file for one image
    const auto first = platform::loadImage(*images[0].sourcePath);
    EXPECT_NEAR(first.pixel(3, 3)[2], 250, 8); // image 2 is the blue one

    const auto info = reexport(package);
    const std::tuple<double, double, long long> expected[] = {
        {5.5, 95.25, 1}, {50.125, 180.0, 1}, {-3.0, 265.0, 1}, {-30.0, 330.0, 0}};
    ASSERT_EQ(info.solarFrames.size(), 4u);
    for (std::size_t n = 0; n < 4; ++n)
        EXPECT_EQ(std::tuple(info.solarFrames[n].altitude, info.solarFrames[n].azimuth,
                             info.solarFrames[n].light.value_or(-1)),
                  expected[n])
            << "record " << n;
}

TEST_F(WallpaperImportTest, HoursBecomeReferenceSunPositionsThatKeepTheOrderOfTheDay) {
    // Out of order in the file, and midnight written as the end of the day.
    const PlistValue document(D{{"ti", PlistValue(A{PlistValue(D{{"t", 0.75}, {"i", 0}}),
                                                    PlistValue(D{{"t", 0.25}, {"i", 1}}),
                                                    PlistValue(D{{"t", 1.0}, {"i", 2}})})}});
    const auto package =
        importDynamicWallpaper(wallpaper("h24.heic", document), folder.path() / "h24.lvesper");
    const auto info = reexport(package);
    EXPECT_EQ(info.kind, "solar");
    ASSERT_EQ(info.solarFrames.size(), 3u);
    const double hours[] = {0.0, 6.0, 18.0};
    for (std::size_t n = 0; n < 3; ++n)
        EXPECT_NEAR(
            sun::approximateSolarHour(info.solarFrames[n].altitude, info.solarFrames[n].azimuth),
            hours[n], 1.0 / 12)
            << "record " << n;
}

TEST_F(WallpaperImportTest, AnExistingTargetOrAStopLeavesNothingBehind) {
    const PlistValue document(
        D{{"si", PlistValue(A{PlistValue(D{{"i", 0}, {"a", 1.0}, {"z", 90.0}})})}});
    const auto source = wallpaper("solar.heic", document);
    std::filesystem::create_directory(folder.path() / "taken.lvesper");
    EXPECT_THROW(importDynamicWallpaper(source, folder.path() / "taken.lvesper"),
                 WallpaperImportError);

    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(
        importDynamicWallpaper(source, folder.path() / "stopped.lvesper", stop.get_token()),
        platform::CancellationError);
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        left.push_back(entry.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"solar.heic", "taken.lvesper"}));
}

} // namespace
} // namespace lumivesper::exporting
