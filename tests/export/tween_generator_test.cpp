#include "../support/temporary_folder.h"
#include "export/heic_generator_error.h"
#include "export/tween_generator.h"
#include "export_test_support.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"

#include <gtest/gtest.h>

namespace lumivesper::exporting {
namespace {

class TweenGeneratorTest : public ::testing::Test {
protected:
    std::filesystem::path solid(const std::string& name, int width, int height,
                                std::uint8_t value) {
        return *testing::solidImage(folder.path(), name, width, height, value).sourcePath;
    }

    static HeicFrameSource frameAt(const std::filesystem::path& path) { return {{}, path, {}}; }

    lumivesper::testing::TemporaryFolder folder;
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
    document::WallpaperImage tween;
    tween.altitude = 12.5;
    const auto result =
        generator.blendFrame(frameAt(black), frameAt(grey), tween, 0, folder.path(), 0.3);
    EXPECT_EQ(result.url, folder.path() / "tween_0000.png");
    EXPECT_EQ(result.size, (FrameSize{8, 4}));
    EXPECT_EQ(result.image.altitude, 12.5);
    EXPECT_EQ(result.image.id, tween.id);
    EXPECT_EQ(platform::loadImage(result.url).rgba[0], 60);
    EXPECT_EQ(generator.blendFrame(frameAt(black), frameAt(grey), tween, 12, folder.path(), 1).url,
              folder.path() / "tween_0012.png");

    const auto tall = solid("tall.png", 4, 6, 0), gone = folder.path() / "gone.png";
    EXPECT_EQ(
        testing::failure<HeicGeneratorError>([&] {
            generator.blendFrame(frameAt(black), frameAt(tall), {}, 0, folder.path(), 0.5);
        }),
        "Image processing failed: Source images have different sizes: (0.0, 0.0, 8.0, 4.0) vs "
        "(0.0, 0.0, 4.0, 6.0)");
    EXPECT_EQ(testing::failure<HeicGeneratorError>([&] {
                  generator.blendFrame(frameAt(black), frameAt(gone), {}, 0, folder.path(), 0.5);
              }),
              "Failed to load image: " + gone.string());
}

} // namespace
} // namespace lumivesper::exporting
