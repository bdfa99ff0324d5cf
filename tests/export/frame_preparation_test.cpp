#include "../support/temporary_folder.h"
#include "export/export_options.h"
#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export_test_support.h"
#include "platform/image_io.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>

namespace lumivesper::exporting {
namespace {

using document::WallpaperImage;

TEST(TweenBlendFactorTest, FollowsTheSunsClimbBetweenTheKeyFrames) {
    const double none = std::nan("");
    auto at = [&](double altitude) {
        WallpaperImage image;
        image.altitude = std::isnan(altitude) ? std::nullopt : std::optional(altitude);
        return image;
    };
    // previous, tween, next, expected: halfway up; a fraction of the climb, not of the run; equal
    // keys; no altitude on a key or on the tween; above and below both, rising and falling.
    const double cases[][4] = {{0, 15, 30, 0.5},   {0, 6, 30, 0.2},    {20, 5, 20, 0.5},
                               {none, 5, 20, 0.5}, {0, none, 20, 0.5}, {0, 50, 30, 1.0},
                               {0, -10, 30, 0.0},  {40, 50, 10, 0.0},  {40, 0, 10, 1.0}};
    for (const auto& [previous, tween, next, expected] : cases)
        EXPECT_DOUBLE_EQ(tweenBlendFactor(at(tween), at(previous), at(next)), expected)
            << previous << ", " << tween << ", " << next;
}

class FramePreparationTest : public ::testing::Test {
protected:
    WallpaperImage grey(const std::string& name, std::uint8_t value, std::optional<double> altitude,
                        bool isTween = false) {
        auto image = testing::solidImage(folder.path(), name, 6, 4, value);
        image.altitude = altitude;
        image.azimuth = 100;
        image.isTween = isTween;
        return image;
    }

    HeicPreprocessConfig upscaling(bool keep) {
        HeicPreprocessConfig config;
        config.upscaler = upscaler;
        config.upscaleStrategy = upscale::HeicUpscaleStrategy::scale2;
        config.outputDirectory = folder.path() / "work";
        config.keepPreprocessedFrames = keep;
        return config;
    }

    PreparedFrames prepare(const std::vector<WallpaperImage>& images,
                           const HeicPreprocessConfig& config, int total) {
        return HeicGenerator().prepareFrames(
            images, config, total,
            [this](int current, int steps, const std::string& message) {
                std::lock_guard lock(mutex);
                reports.push_back({current, steps, message});
            },
            {});
    }

    lumivesper::testing::TemporaryFolder folder;
    std::shared_ptr<testing::FakeUpscaler> upscaler =
        std::make_shared<testing::FakeUpscaler>(std::set<int>{2});
    std::mutex mutex;
    std::vector<testing::Report> reports;
};

TEST_F(FramePreparationTest, OptimizedPathBlendsTweensFromUpscaledKeysWithWrapAround) {
    // The stored tween files are deliberately wrong (value 7): they must not be used.
    const std::vector<WallpaperImage> images = {
        grey("t0.png", 7, 5, true),  // before the first key: previous wraps to the last key
        grey("a.png", 0, 0),         // key, black
        grey("t1.png", 7, 15, true), // halfway between a and b
        grey("b.png", 200, 30),      // key
        grey("t2.png", 7, 10, true), // after the last key: next wraps to the first
    };
    const auto prepared = prepare(images, upscaling(true), 10);
    ASSERT_EQ(prepared.frames.size(), 5u);
    for (std::size_t n = 0; n < images.size(); ++n) {
        EXPECT_EQ(prepared.frames[n].image.id, images[n].id) << n;
        EXPECT_EQ(platform::readImageSize(prepared.frames[n].url), (platform::ImageSize{12, 8}));
    }
    EXPECT_EQ(upscaler->upscales, 2); // key frames only
    // t0: from b (30) to a (0) at altitude 5: t = 25/30. t1: 0.5. t2: from b to a at 10: 2/3.
    EXPECT_NEAR(platform::loadImage(prepared.frames[0].url).rgba[0], 200 * (1 - 25.0 / 30), 1);
    EXPECT_NEAR(platform::loadImage(prepared.frames[2].url).rgba[0], 100, 1);
    EXPECT_NEAR(platform::loadImage(prepared.frames[4].url).rgba[0], 200 * (1 - 20.0 / 30), 1);
    EXPECT_EQ(prepared.frames[2].url.filename(), "tween_0001.png");
    EXPECT_EQ(prepared.frames[2].image.altitude, 15);

    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.front().message, "Upscaling 2 key frames...");
    EXPECT_EQ(reports.front().current, 0);
    EXPECT_EQ(reports.back().message, "Regenerating tweens (3/3)...");
    EXPECT_EQ(reports.back().current, 10);
    for (const auto& report : reports) { // the key frames fill 98% at most
        EXPECT_EQ(report.total, 10);
        EXPECT_TRUE(report.current <= 9 || !report.message.starts_with("Preprocessed"))
            << report.message;
    }
    EXPECT_FALSE(prepared.cleanup); // kept frames have nothing to clean
}

TEST_F(FramePreparationTest, OnlyTweensCannotBeUpscaled) {
    EXPECT_EQ(
        testing::failure<HeicGeneratorError>([&] {
            prepare({grey("t.png", 1, 5, true), grey("u.png", 1, 6, true)}, upscaling(false), 4);
        }),
        "Invalid configuration: No key frames found (only tweens)");
}

TEST_F(FramePreparationTest, GenerateRemovesTheTemporaryFramesOnSuccessAndOnFailure) {
    const auto config = upscaling(false);
    const std::vector<WallpaperImage> images = {grey("a.png", 0, 0), grey("t.png", 7, 15, true),
                                                grey("b.png", 200, 30)};
    HeicGenerator().generate(images, folder.path() / "out.heic", document::WallpaperMode::time,
                             config, nullptr);
    EXPECT_FALSE(std::filesystem::exists(config.outputDirectory));
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "out.heic"));

    // The encoder fails (no output folder) after preparation: the frames go all the same.
    EXPECT_THROW(HeicGenerator().generate(images, folder.path() / "none" / "out.heic",
                                          document::WallpaperMode::time, config, nullptr),
                 HeicGeneratorError);
    EXPECT_FALSE(std::filesystem::exists(config.outputDirectory));
}

TEST(ExportOptionsTest, CanvasPresetsAndCustomSizes) {
    HeicExportOptions options;
    EXPECT_EQ(options.targetSize(), (FrameSize{7680, 4320}));
    options.canvasPreset = HeicCanvasPreset::apple6k;
    EXPECT_EQ(options.targetSize(), (FrameSize{6016, 3384}));
    options.canvasPreset = HeicCanvasPreset::matchSource;
    EXPECT_EQ(options.targetSize(), std::nullopt);

    options.canvasPreset = HeicCanvasPreset::custom;
    const std::pair<std::string, bool> widths[] = {
        {"100 ", true}, {" 3840\n", true}, {"12.5", true},  {"abc", false}, {"0", false},
        {"-5", false},  {"", false},       {"10px", false}, {"inf", false}};
    for (const auto& [width, valid] : widths) {
        options.customWidth = width;
        EXPECT_EQ(options.targetSize().has_value(), valid) << "'" << width << "'";
        EXPECT_EQ(options.validationError(),
                  valid ? std::nullopt
                        : std::optional<std::string>("Enter a valid custom canvas size."))
            << "'" << width << "'";
    }
    options.resizeEnabled = false;
    EXPECT_EQ(options.targetSize(), std::nullopt);
    EXPECT_EQ(options.validationError(), std::nullopt);
}

TEST(ExportOptionsTest, ConfigurationOnlyWhenSomethingChangesTheFrames) {
    const auto upscaler = std::make_shared<testing::FakeUpscaler>(std::set<int>{4});
    HeicExportOptions options;
    options.resizeEnabled = false;
    EXPECT_FALSE(makePreprocessConfig(options, nullptr)); // upscaling wanted, but no upscaler
    options.upscaleEnabled = false;
    EXPECT_FALSE(makePreprocessConfig(options, upscaler));
    options.resizeEnabled = true;
    const auto config = makePreprocessConfig(options, upscaler);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->upscaler, nullptr);
    EXPECT_EQ(config->upscaleStrategy, upscale::HeicUpscaleStrategy::off);
    EXPECT_EQ(config->targetSize, (FrameSize{7680, 4320}));
    EXPECT_TRUE(std::regex_match(config->outputDirectory.filename().string(),
                                 std::regex("LumivesperAIPreprocess-[0-9A-F-]{36}")));
}

} // namespace
} // namespace lumivesper::exporting
