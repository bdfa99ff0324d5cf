#include "../support/temporary_folder.h"
#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/heic_writer.h"
#include "export/wallpaper_reader.h"
#include "platform/image_io.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumivesper::exporting {
namespace {

using document::WallpaperImage;
using document::WallpaperMode;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Report {
    int current;
    int total;
    std::string message;
    bool operator==(const Report&) const = default;
};

void PrintTo(const Report& report, std::ostream* out) {
    *out << "(" << report.current << ", " << report.total << ", \"" << report.message << "\")";
}

class HeicGeneratorTest : public ::testing::Test {
protected:
    // A small solid-colour PNG; its size tells the frames apart in the written file.
    WallpaperImage image(const std::string& name, int width, int height,
                         std::optional<double> altitude = std::nullopt,
                         std::optional<double> azimuth = std::nullopt,
                         std::optional<bool> isLight = std::nullopt) {
        platform::PixelImage pixels(width, height);
        for (std::size_t i = 0; i < pixels.rgba.size(); i += 4) {
            pixels.rgba[i] = static_cast<std::uint8_t>(width);
            pixels.rgba[i + 1] = static_cast<std::uint8_t>(height);
            pixels.rgba[i + 2] = 90;
            pixels.rgba[i + 3] = 255;
        }
        const auto path = folder.path() / name;
        platform::writePng(pixels, path);
        WallpaperImage result;
        result.fileName = name;
        result.sourcePath = path;
        result.altitude = altitude;
        result.azimuth = azimuth;
        result.isLight = isLight;
        return result;
    }

    // Runs the generator and returns the error's description, or "" on success.
    std::string generate(const std::vector<WallpaperImage>& images, WallpaperMode mode,
                         const std::optional<HeicPreprocessConfig>& config = std::nullopt) {
        try {
            HeicGenerator().generate(images, output, mode, config,
                                     [this](int current, int total, const std::string& message) {
                                         reports.push_back({current, total, message});
                                     });
        } catch (const HeicGeneratorError& error) {
            return error.description();
        }
        return {};
    }

    testing::TemporaryFolder folder;
    std::filesystem::path output = folder.path() / "out.heic";
    std::vector<Report> reports;
};

TEST_F(HeicGeneratorTest, EmptyListReportsTheStartThenFails) {
    EXPECT_EQ(generate({}, WallpaperMode::time), "Invalid configuration: No images provided");
    EXPECT_THAT(reports, ElementsAre(Report{0, 0, "Starting generation..."}));
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(HeicGeneratorTest, TimePathReportsEachEncodedImage) {
    const auto images = std::vector{image("a.png", 16, 8, 10, 90), image("b.png", 16, 8, 50, 180)};
    ASSERT_EQ(generate(images, WallpaperMode::time), "");
    EXPECT_THAT(reports,
                ElementsAre(Report{0, 2, "Starting generation..."},
                            Report{0, 2, "Creating time-based wallpaper..."},
                            Report{1, 2, "Encoded image 1/2"}, Report{2, 2, "Encoded image 2/2"},
                            Report{2, 2, "Solar wallpaper created with 2 images"}));
}

TEST_F(HeicGeneratorTest, ConfigurationWithoutStagesDoublesTheTotalButTakesTheDirectPath) {
    HeicPreprocessConfig config;
    config.upscaleStrategy = upscale::HeicUpscaleStrategy::scale4; // wants nothing on its own
    config.outputDirectory = folder.path() / "never-made";
    const auto images = std::vector{image("a.png", 16, 8, 10, 90), image("b.png", 16, 8, 50, 180),
                                    image("c.png", 16, 8, 20, 250)};
    ASSERT_EQ(generate(images, WallpaperMode::time, config), "");
    EXPECT_THAT(reports,
                ElementsAre(Report{0, 6, "Starting generation..."},
                            Report{0, 6, "Creating time-based wallpaper..."},
                            Report{4, 6, "Encoded image 1/3"}, Report{5, 6, "Encoded image 2/3"},
                            Report{6, 6, "Encoded image 3/3"},
                            Report{6, 6, "Solar wallpaper created with 3 images"}));
    EXPECT_FALSE(std::filesystem::exists(config.outputDirectory));
}

TEST_F(HeicGeneratorTest, TimeFileKeepsTheGivenOrderAndExactValues) {
    // Deliberately not in sun order: the caller's order is the file's order.
    const auto images = std::vector{image("noon.png", 32, 16, 60.5, 180.25),
                                    image("dawn.png", 24, 16, -6.0, 95.125),
                                    image("odd.png", 16, 16, 12.3456789, 400.0, false)};
    ASSERT_EQ(generate(images, WallpaperMode::time), "");

    const auto info = readWallpaper(output);
    EXPECT_EQ(info.kind, "solar");
    ASSERT_EQ(info.images.size(), 3u);
    EXPECT_EQ(info.primaryIndex, 0);
    EXPECT_EQ(info.images[0].width, 32);
    EXPECT_EQ(info.images[1].width, 24);
    EXPECT_EQ(info.images[2].width, 16);
    EXPECT_TRUE(info.images[0].hasXmp);
    EXPECT_FALSE(info.images[1].hasXmp);
    EXPECT_FALSE(info.images[2].hasXmp);
    ASSERT_EQ(info.solarFrames.size(), 3u);
    EXPECT_EQ(info.solarFrames[1].index, 1);
    EXPECT_EQ(info.solarFrames[0].altitude, 60.5);
    EXPECT_EQ(info.solarFrames[1].azimuth, 95.125);
    EXPECT_EQ(info.solarFrames[1].light, 0);
    EXPECT_EQ(info.solarFrames[2].altitude, 12.3456789);
    EXPECT_EQ(info.solarFrames[2].azimuth, 400.0);
    EXPECT_EQ(info.solarFrames[2].light, 0); // isLight false wins over a positive altitude
}

TEST_F(HeicGeneratorTest, AppearanceTakesTheFirstLightAndTheOnlyDarkImage) {
    const auto images = std::vector{image("day1.png", 32, 16, {}, {}, true),
                                    image("day2.png", 24, 16), // isLight none sorts as light
                                    image("night.png", 16, 16, {}, {}, false)};
    ASSERT_EQ(generate(images, WallpaperMode::appearance), "");
    EXPECT_THAT(reports, ElementsAre(Report{0, 3, "Starting generation..."},
                                     Report{0, 3, "Creating appearance-based wallpaper..."},
                                     Report{3, 3, "Appearance wallpaper created"}));
    const auto info = readWallpaper(output);
    EXPECT_EQ(info.kind, "apr");
    ASSERT_EQ(info.images.size(), 2u);
    EXPECT_EQ(info.images[0].width, 32);
    EXPECT_EQ(info.images[1].width, 16);
    EXPECT_EQ(info.lightIndex, 0);
    EXPECT_EQ(info.darkIndex, 1);
    EXPECT_TRUE(info.images[0].hasXmp);
    EXPECT_FALSE(info.images[1].hasXmp);
}

TEST_F(HeicGeneratorTest, AppearanceNeedsTwoImages) {
    EXPECT_EQ(generate({image("a.png", 8, 8)}, WallpaperMode::appearance),
              "Invalid configuration: Appearance mode requires at least 2 images");
    EXPECT_THAT(reports, ElementsAre(Report{0, 1, "Starting generation..."},
                                     Report{0, 1, "Creating appearance-based wallpaper..."}));
}

TEST_F(HeicGeneratorTest, TheFirstBadImageStopsTheRunBeforeAnyWork) {
    auto missingPath = image("a.png", 8, 8);
    missingPath.fileName = "lost.png";
    missingPath.sourcePath.reset();
    EXPECT_EQ(generate({image("b.png", 8, 8), missingPath}, WallpaperMode::time),
              "Invalid configuration: Image lost.png has no source path");

    auto gone = image("c.png", 8, 8);
    gone.sourcePath = folder.path() / "nowhere.png";
    EXPECT_EQ(generate({gone}, WallpaperMode::time),
              "Failed to load image: " + (folder.path() / "nowhere.png").string());
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(HeicGeneratorTest, UndecodableFrameIsAnImageLoadFailure) {
    const auto path = folder.path() / "text.png";
    std::ofstream(path) << "not an image";
    auto broken = image("x.png", 8, 8);
    broken.sourcePath = path;
    EXPECT_EQ(generate({image("a.png", 8, 8), broken}, WallpaperMode::time),
              "Failed to load image: " + path.string());
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(HeicGeneratorTest, MissingOutputFolderFailsBeforeEncoding) {
    output = folder.path() / "no-such-folder" / "out.heic";
    EXPECT_EQ(generate({image("a.png", 8, 8, 1, 2)}, WallpaperMode::time),
              "Failed to create HEIC file");
    for (const auto& report : reports)
        EXPECT_THAT(report.message, ::testing::Not(HasSubstr("Encoded")));
}

TEST_F(HeicGeneratorTest, ExistingFileIsReplacedOnlyBySuccess) {
    std::ofstream(output) << "previous";
    auto gone = image("a.png", 8, 8);
    gone.sourcePath = folder.path() / "nowhere.png";
    EXPECT_NE(generate({image("b.png", 8, 8), gone}, WallpaperMode::time), "");
    EXPECT_EQ(std::filesystem::file_size(output), 8u);
    EXPECT_EQ(generate({image("c.png", 8, 8)}, WallpaperMode::time), "");
    EXPECT_EQ(readWallpaper(output).images.size(), 1u);
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_THAT(entry.path().filename().string(), ::testing::Not(HasSubstr("partial")));
}

TEST(HeicWriterTest, TranslucentFramesKeepTheirAlpha) {
    testing::TemporaryFolder folder;
    platform::PixelImage pixels(8, 8);
    for (std::size_t i = 0; i < pixels.rgba.size(); i += 4)
        pixels.rgba[i + 3] = 128;
    HeicWriter writer(folder.path() / "alpha.heic");
    writer.addImage(pixels, "<x/>");
    writer.finalize();
    const auto decoded = platform::loadImage(folder.path() / "alpha.heic");
    EXPECT_NEAR(decoded.rgba[3], 128, 3);
}

TEST(WallpaperReaderTest, RefusesFilesThatAreNotDynamicWallpapers) {
    testing::TemporaryFolder folder;
    const auto text = folder.path() / "text.heic";
    std::ofstream(text) << "hello, this is not a HEIF file at all";
    EXPECT_THROW(readWallpaper(text), WallpaperReadError);
    EXPECT_THROW(readWallpaper(folder.path() / "missing.heic"), WallpaperReadError);

    const auto plain = folder.path() / "plain.heic";
    {
        HeicWriter writer(plain);
        writer.addImage(platform::PixelImage(8, 8));
        writer.finalize();
    }
    try {
        readWallpaper(plain);
        FAIL() << "a HEIC without metadata was accepted";
    } catch (const WallpaperReadError& error) {
        EXPECT_THAT(error.what(), HasSubstr("not a dynamic wallpaper"));
    }

    // Cut a real wallpaper short.
    const auto whole = folder.path() / "whole.heic";
    {
        HeicWriter writer(whole);
        writer.addImage(platform::PixelImage(64, 64), "<x:xmpmeta/>");
        writer.finalize();
    }
    const auto size = std::filesystem::file_size(whole);
    std::filesystem::copy_file(whole, folder.path() / "cut.heic");
    std::filesystem::resize_file(folder.path() / "cut.heic", size / 2);
    EXPECT_THROW(readWallpaper(folder.path() / "cut.heic"), WallpaperReadError);
}

} // namespace
} // namespace lumivesper::exporting
