#include "../support/temporary_folder.h"
#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/heic_writer.h"
#include "export/tween_generator.h"
#include "export/wallpaper_reader.h"
#include "export_test_support.h"
#include "platform/cancellation.h"
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

class HeicGeneratorTest : public ::testing::Test {
protected:
    // A small solid PNG; its width tells the frames apart in the written file.
    WallpaperImage image(const std::string& name, int width, std::optional<double> altitude = {},
                         std::optional<double> azimuth = {}, std::optional<bool> isLight = {}) {
        auto result =
            testing::solidImage(folder.path(), name, width, 16, static_cast<std::uint8_t>(width));
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
                                         reports.push_back(std::to_string(current) + "/" +
                                                           std::to_string(total) + " " + message);
                                     });
        } catch (const HeicGeneratorError& error) {
            return error.description();
        }
        return {};
    }

    lumivesper::testing::TemporaryFolder folder;
    std::filesystem::path output = folder.path() / "out.heic";
    std::vector<std::string> reports;
};

TEST_F(HeicGeneratorTest, TimeFileKeepsTheGivenOrderExactValuesAndXmpOnThePrimaryOnly) {
    // Deliberately not in sun order: the caller's order is the file's order.
    const auto images =
        std::vector{image("noon.png", 32, 60.5, 180.25), image("dawn.png", 24, -6.0, 95.125),
                    image("odd.png", 16, 12.3456789, 400.0, false)};
    ASSERT_EQ(generate(images, WallpaperMode::time), "");
    EXPECT_THAT(reports,
                ElementsAre("0/3 Starting generation...", "0/3 Creating time-based wallpaper...",
                            "1/3 Encoded image 1/3", "2/3 Encoded image 2/3",
                            "3/3 Encoded image 3/3", "3/3 Solar wallpaper created with 3 images"));

    const auto info = readWallpaper(output);
    EXPECT_EQ(info.kind, "solar");
    EXPECT_EQ(info.primaryIndex, 0);
    ASSERT_EQ(info.images.size(), 3u);
    ASSERT_EQ(info.solarFrames.size(), 3u);
    const std::tuple<int, double, double, int> expected[] = {
        {32, 60.5, 180.25, 1}, {24, -6.0, 95.125, 0}, {16, 12.3456789, 400.0, 0}}; // isLight wins
    for (std::size_t n = 0; n < 3; ++n) {
        const auto& [width, altitude, azimuth, light] = expected[n];
        EXPECT_EQ(info.images[n].width, width);
        EXPECT_EQ(info.images[n].hasXmp, n == 0);
        EXPECT_EQ(info.solarFrames[n].index, static_cast<int>(n));
        EXPECT_EQ(info.solarFrames[n].altitude, altitude);
        EXPECT_EQ(info.solarFrames[n].azimuth, azimuth);
        EXPECT_EQ(info.solarFrames[n].light, light);
    }
}

TEST_F(HeicGeneratorTest, ConfigurationWithoutStagesDoublesTheTotalButTakesTheDirectPath) {
    HeicPreprocessConfig config;
    config.upscaleStrategy = upscale::HeicUpscaleStrategy::scale4; // wants nothing on its own
    config.outputDirectory = folder.path() / "never-made";
    ASSERT_EQ(generate({image("a.png", 16, 10, 90), image("b.png", 16, 50, 180)},
                       WallpaperMode::time, config),
              "");
    EXPECT_THAT(reports,
                ElementsAre("0/4 Starting generation...", "0/4 Creating time-based wallpaper...",
                            "3/4 Encoded image 1/2", "4/4 Encoded image 2/2",
                            "4/4 Solar wallpaper created with 2 images"));
    EXPECT_FALSE(std::filesystem::exists(config.outputDirectory));
}

TEST_F(HeicGeneratorTest, AppearanceTakesTheFirstLightAndTheOnlyDarkImage) {
    const auto images = std::vector{image("day1.png", 32, {}, {}, true),
                                    image("day2.png", 24), // isLight none sorts as light
                                    image("night.png", 16, {}, {}, false)};
    ASSERT_EQ(generate(images, WallpaperMode::appearance), "");
    EXPECT_THAT(reports, ElementsAre("0/3 Starting generation...",
                                     "0/3 Creating appearance-based wallpaper...",
                                     "3/3 Appearance wallpaper created"));
    const auto info = readWallpaper(output);
    EXPECT_EQ(std::tuple(info.kind, info.lightIndex, info.darkIndex), std::tuple("apr", 0, 1));
    ASSERT_EQ(info.images.size(), 2u);
    EXPECT_EQ(std::pair(info.images[0].width, info.images[0].hasXmp), std::pair(32, true));
    EXPECT_EQ(std::pair(info.images[1].width, info.images[1].hasXmp), std::pair(16, false));
}

TEST_F(HeicGeneratorTest, FailuresBeforeAnyEncodingLeaveThePreviousFileAlone) {
    EXPECT_EQ(generate({}, WallpaperMode::time), "Invalid configuration: No images provided");
    EXPECT_THAT(reports, ElementsAre("0/0 Starting generation..."));
    reports.clear();
    EXPECT_EQ(generate({image("a.png", 8)}, WallpaperMode::appearance),
              "Invalid configuration: Appearance mode requires at least 2 images");
    EXPECT_THAT(reports, ElementsAre("0/1 Starting generation...",
                                     "0/1 Creating appearance-based wallpaper..."));

    std::ofstream(output) << "previous";
    std::ofstream(folder.path() / "text.png") << "not an image";
    auto noPath = image("a.png", 8), gone = noPath, text = noPath;
    noPath.fileName = "lost.png";
    noPath.sourcePath.reset();
    gone.sourcePath = folder.path() / "nowhere.png";
    text.sourcePath = folder.path() / "text.png";
    const std::pair<WallpaperImage, std::string> cases[] = {
        {noPath, "Invalid configuration: Image lost.png has no source path"},
        {gone, "Failed to load image: " + gone.sourcePath->string()},
        {text, "Failed to load image: " + text.sourcePath->string()}};
    for (const auto& [bad, description] : cases)
        EXPECT_EQ(generate({image("b.png", 8), bad}, WallpaperMode::time), description);
    EXPECT_EQ(std::filesystem::file_size(output), 8u);

    EXPECT_EQ(generate({image("c.png", 8)}, WallpaperMode::time), "");
    EXPECT_EQ(readWallpaper(output).images.size(), 1u);
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_THAT(entry.path().filename().string(), ::testing::Not(HasSubstr("partial")));
}

TEST_F(HeicGeneratorTest, CancellingWhileEncodingLeavesThePreviousFileAlone) {
    std::ofstream(output) << "previous";
    const auto images = std::vector{image("a.png", 16, 10, 90), image("b.png", 16, 20, 120),
                                    image("c.png", 16, 30, 150)};
    // Between frames, and after the last one before the file is written. Frames already in
    // flight may still report; nothing may be written.
    for (const std::string stopAt : {"Encoded image 1/3", "Encoded image 3/3"}) {
        std::stop_source stop;
        std::vector<std::string> seen;
        EXPECT_THROW(HeicGenerator().generate(
                         images, output, WallpaperMode::time, std::nullopt,
                         [&](int, int, const std::string& message) {
                             seen.push_back(message);
                             if (message == stopAt)
                                 stop.request_stop();
                         },
                         stop.get_token()),
                     platform::CancellationError);
        EXPECT_THAT(seen, ::testing::Contains(stopAt));
        EXPECT_THAT(seen.back(), HasSubstr("Encoded image"));
        EXPECT_EQ(std::filesystem::file_size(output), 8u);
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_THAT(entry.path().filename().string(), ::testing::Not(HasSubstr("partial")));
}

TEST_F(HeicGeneratorTest, ADestinationThatCannotBeWrittenIsRefusedBeforeAnyWork) {
    HeicPreprocessConfig config;
    config.targetSize = FrameSize{32, 16};
    config.outputDirectory = folder.path() / "frames";
    const auto source = image("a.png", 16, 10, 90);
    // /proc takes no new file, not even from root; a missing folder is refused the same way.
    for (const auto& destination :
         {std::filesystem::path("/proc/wall.heic"), folder.path() / "missing" / "wall.heic"}) {
        reports.clear();
        output = destination;
        EXPECT_EQ(generate({source}, WallpaperMode::time, config), "Failed to create HEIC file");
        EXPECT_THAT(reports, ElementsAre("0/2 Starting generation...")) << destination;
        EXPECT_FALSE(std::filesystem::exists(config.outputDirectory));
    }
}

TEST(WallpaperFileTest, ReaderRefusesOtherFilesAndTheWriterKeepsAlpha) {
    lumivesper::testing::TemporaryFolder folder;
    const auto path = [&](const char* name) { return folder.path() / name; };
    platform::PixelImage translucent(64, 64);
    for (std::size_t i = 3; i < translucent.rgba.size(); i += 4)
        translucent.rgba[i] = 128;
    for (auto [name, xmp] : {std::pair{"plain.heic", ""}, {"whole.heic", "<x:xmpmeta/>"}}) {
        HeicWriter writer(path(name));
        writer.addImage(translucent, xmp);
        writer.finalize();
    }
    EXPECT_NEAR(platform::loadImage(path("whole.heic")).rgba[3], 128, 3);
    std::filesystem::copy_file(path("whole.heic"), path("cut.heic"));
    std::filesystem::resize_file(path("cut.heic"),
                                 std::filesystem::file_size(path("cut.heic")) / 2);
    EXPECT_THROW(readWallpaper(path("cut.heic")), WallpaperReadError);
    try {
        readWallpaper(path("plain.heic"));
        FAIL() << "a HEIC without metadata was accepted";
    } catch (const WallpaperReadError& error) {
        EXPECT_THAT(error.what(), HasSubstr("not a dynamic wallpaper"));
    }
}

class TweenGeneratorTest : public HeicGeneratorTest {
protected:
    std::filesystem::path solid(const std::string& name, int width, int height,
                                std::uint8_t value) {
        return *testing::solidImage(folder.path(), name, width, height, value).sourcePath;
    }
    static HeicFrameSource frameAt(const std::filesystem::path& path) { return {{}, path, {}}; }

    TweenGenerator generator;
    const std::filesystem::path black = solid("black.png", 8, 4, 0);
    const std::filesystem::path grey = solid("grey.png", 8, 4, 200);
};

TEST_F(TweenGeneratorTest, BlendsRunAlongASmoothstepFromTheFirstImageTowardsTheSecond) {
    EXPECT_DOUBLE_EQ(TweenGenerator::easedFraction(1, 1), 0.5);
    std::vector<std::pair<int, int>> calls;
    const auto tweens = generator.generateTweens(
        black, grey, 3, [&](int done, int total) { calls.emplace_back(done, total); });
    ASSERT_EQ(tweens.size(), 3u);
    const double fractions[] = {0.15625, 0.5, 0.84375};
    for (std::size_t n = 0; n < 3; ++n) {
        EXPECT_DOUBLE_EQ(TweenGenerator::easedFraction(static_cast<int>(n) + 1, 3), fractions[n]);
        EXPECT_NEAR(tweens[n].rgba[0], 200 * fractions[n], 0.51) << "tween " << n;
        EXPECT_EQ(tweens[n].rgba[3], 255);
    }
    EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{{1, 3}, {2, 3}, {3, 3}}));

    // A second image of another shape is stretched to the first.
    const auto stretched =
        generator.generateTweens(solid("wide.png", 16, 4, 0), solid("square.png", 6, 6, 100), 1);
    ASSERT_EQ(stretched.size(), 1u);
    EXPECT_EQ(std::pair(stretched[0].width, stretched[0].height), std::pair(16, 4));
    EXPECT_NEAR(stretched[0].pixel(15, 3)[0], 50, 1);
}

TEST_F(TweenGeneratorTest, InvalidCountsAndMissingFilesFailBeforeAnyWork) {
    for (int count : {0, -2})
        EXPECT_EQ(testing::failure<TweenGeneratorError>(
                      [&] { generator.generateTweens(black, black, count); }),
                  "Invalid tween count");
    EXPECT_EQ(testing::failure<TweenGeneratorError>(
                  [&] { generator.generateTweens(black, folder.path() / "missing.png", 2); }),
              "Failed to load images for tweening");
}

TEST_F(TweenGeneratorTest, SavedTweensAreNamedAfterTheBaseAndCancellationStopsBetweenFrames) {
    const auto out = folder.path() / "made" / "here";
    const auto paths = generator.generateAndSaveTweens(black, grey, 2, out, "sunrise");
    EXPECT_EQ(paths, (std::vector{out / "sunrise_tween_1.png", out / "sunrise_tween_2.png"}));
    EXPECT_NEAR(platform::loadImage(paths.at(1)).rgba[0], 200 * TweenGenerator::easedFraction(2, 2),
                0.51);

    std::stop_source stop;
    int done = 0;
    EXPECT_THROW(generator.generateAndSaveTweens(
                     black, grey, 5, folder.path() / "out", "x",
                     [&](int completed, int) {
                         done = completed;
                         stop.request_stop();
                     },
                     stop.get_token()),
                 platform::CancellationError);
    EXPECT_EQ(done, 1);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "out" / "x_tween_1.png"));
}

TEST_F(TweenGeneratorTest, BlendFrameMixesLinearlyIntoANumberedFrameOfEqualSizesOnly) {
    const WallpaperImage tween;
    const auto result =
        generator.blendFrame(frameAt(black), frameAt(grey), tween, 0, folder.path(), 0.3);
    EXPECT_EQ(result.url, folder.path() / "tween_0000.png");
    EXPECT_EQ(result.size, (FrameSize{8, 4}));
    EXPECT_EQ(result.image.id, tween.id);
    EXPECT_EQ(platform::loadImage(result.url).rgba[0], 60);
    EXPECT_EQ(generator.blendFrame(frameAt(black), frameAt(grey), tween, 12, folder.path(), 1).url,
              folder.path() / "tween_0012.png");

    const auto tall = solid("tall.png", 4, 6, 0);
    EXPECT_EQ(
        testing::failure<HeicGeneratorError>([&] {
            generator.blendFrame(frameAt(black), frameAt(tall), {}, 0, folder.path(), 0.5);
        }),
        "Image processing failed: Source images have different sizes: (0.0, 0.0, 8.0, 4.0) vs "
        "(0.0, 0.0, 4.0, 6.0)");
}

} // namespace
} // namespace lumivesper::exporting
