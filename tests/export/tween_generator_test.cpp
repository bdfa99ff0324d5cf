#include "../support/temporary_folder.h"
#include "export/heic_generator_error.h"
#include "export/tween_generator.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumivesper::exporting {
namespace {

using ::testing::HasSubstr;

class TweenGeneratorTest : public ::testing::Test {
protected:
    std::filesystem::path solid(const std::string& name, int width, int height,
                                std::uint8_t value) {
        platform::PixelImage pixels(width, height);
        for (std::size_t i = 0; i < pixels.rgba.size(); i += 4) {
            pixels.rgba[i] = pixels.rgba[i + 1] = pixels.rgba[i + 2] = value;
            pixels.rgba[i + 3] = 255;
        }
        const auto path = folder.path() / name;
        platform::writePng(pixels, path);
        return path;
    }

    HeicFrameSource frameAt(const std::filesystem::path& path) {
        return HeicFrameSource{document::WallpaperImage{}, path, {}};
    }

    testing::TemporaryFolder folder;
    TweenGenerator generator;
};

TEST_F(TweenGeneratorTest, EasedFractionsAreASmoothstepOfTheEvenSpacing) {
    EXPECT_DOUBLE_EQ(TweenGenerator::easedFraction(1, 1), 0.5);
    const double three[] = {0.15625, 0.5, 0.84375};
    for (int i = 1; i <= 3; ++i)
        EXPECT_DOUBLE_EQ(TweenGenerator::easedFraction(i, 3), three[i - 1]);
}

TEST_F(TweenGeneratorTest, BlendsRunFromTheFirstImageTowardsTheSecond) {
    const auto black = solid("black.png", 8, 4, 0);
    const auto white = solid("white.png", 8, 4, 200);
    std::vector<std::pair<int, int>> calls;
    const auto tweens = generator.generateTweens(
        black, white, 3, [&](int done, int total) { calls.emplace_back(done, total); });
    ASSERT_EQ(tweens.size(), 3u);
    const double fractions[] = {0.15625, 0.5, 0.84375};
    for (std::size_t n = 0; n < 3; ++n) {
        EXPECT_EQ(tweens[n].width, 8);
        EXPECT_NEAR(tweens[n].rgba[0], 200 * fractions[n], 0.51) << "tween " << n;
        EXPECT_EQ(tweens[n].rgba[3], 255);
    }
    EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{{1, 3}, {2, 3}, {3, 3}}));
}

TEST_F(TweenGeneratorTest, ASecondImageOfAnotherShapeIsStretchedToTheFirst) {
    const auto wide = solid("wide.png", 16, 4, 0);
    const auto square = solid("square.png", 6, 6, 100);
    const auto tweens = generator.generateTweens(wide, square, 1);
    ASSERT_EQ(tweens.size(), 1u);
    EXPECT_EQ(tweens[0].width, 16);
    EXPECT_EQ(tweens[0].height, 4);
    EXPECT_NEAR(tweens[0].pixel(15, 3)[0], 50, 1);
}

TEST_F(TweenGeneratorTest, InvalidCountsAndMissingFilesFailBeforeAnyWork) {
    const auto a = solid("a.png", 4, 4, 0);
    for (int count : {0, -2}) {
        try {
            generator.generateTweens(a, a, count);
            FAIL() << "count " << count;
        } catch (const TweenGeneratorError& error) {
            EXPECT_EQ(error.description(), "Invalid tween count");
        }
    }
    try {
        generator.generateTweens(a, folder.path() / "missing.png", 2);
        FAIL();
    } catch (const TweenGeneratorError& error) {
        EXPECT_EQ(error.description(), "Failed to load images for tweening");
    }
}

TEST_F(TweenGeneratorTest, SavedTweensAreNamedAfterTheBaseAndNumberedFromOne) {
    const auto a = solid("a.png", 4, 4, 0);
    const auto b = solid("b.png", 4, 4, 100);
    const auto out = folder.path() / "made" / "here";
    const auto paths = generator.generateAndSaveTweens(a, b, 2, out, "sunrise");
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_EQ(paths[0], out / "sunrise_tween_1.png");
    EXPECT_EQ(paths[1], out / "sunrise_tween_2.png");
    const auto second = platform::loadImage(paths[1]);
    EXPECT_NEAR(second.rgba[0], 100 * TweenGenerator::easedFraction(2, 2), 0.51);
}

TEST_F(TweenGeneratorTest, CancellingBetweenFramesEndsTheRun) {
    const auto a = solid("a.png", 4, 4, 0);
    const auto b = solid("b.png", 4, 4, 100);
    std::stop_source stop;
    int done = 0;
    EXPECT_THROW(generator.generateAndSaveTweens(
                     a, b, 5, folder.path() / "out", "x",
                     [&](int completed, int) {
                         done = completed;
                         stop.request_stop();
                     },
                     stop.get_token()),
                 platform::CancellationError);
    EXPECT_EQ(done, 1);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "out" / "x_tween_1.png"));
}

TEST_F(TweenGeneratorTest, BlendFrameMixesLinearlyAndWritesANumberedExportFrame) {
    const auto a = solid("a.png", 6, 4, 0);
    const auto b = solid("b.png", 6, 4, 200);
    document::WallpaperImage tween;
    tween.altitude = 12.5;
    const auto result = generator.blendFrame(frameAt(a), frameAt(b), tween, 0, folder.path(), 0.3);
    EXPECT_EQ(result.url, folder.path() / "tween_0000.png");
    EXPECT_EQ(result.size, (FrameSize{6, 4}));
    EXPECT_EQ(result.image.altitude, 12.5);
    EXPECT_EQ(result.image.id, tween.id);
    EXPECT_EQ(platform::loadImage(result.url).rgba[0], 60);
    EXPECT_EQ(generator.blendFrame(frameAt(a), frameAt(b), tween, 12, folder.path(), 1.0).url,
              folder.path() / "tween_0012.png");
}

TEST_F(TweenGeneratorTest, BlendFrameRefusesFramesOfDifferentSizes) {
    const auto a = solid("a.png", 6, 4, 0);
    const auto b = solid("b.png", 4, 6, 0);
    try {
        generator.blendFrame(frameAt(a), frameAt(b), {}, 0, folder.path(), 0.5);
        FAIL();
    } catch (const HeicGeneratorError& error) {
        EXPECT_EQ(error.description(), "Image processing failed: Source images have different "
                                       "sizes: (0.0, 0.0, 6.0, 4.0) vs (0.0, 0.0, 4.0, 6.0)");
    }
    try {
        generator.blendFrame(frameAt(a), frameAt(folder.path() / "gone.png"), {}, 0, folder.path(),
                             0.5);
        FAIL();
    } catch (const HeicGeneratorError& error) {
        EXPECT_EQ(error.description(),
                  "Failed to load image: " + (folder.path() / "gone.png").string());
    }
}

} // namespace
} // namespace lumivesper::exporting
