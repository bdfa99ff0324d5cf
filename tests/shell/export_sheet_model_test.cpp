#include "shell/export_sheet_model.h"

#include <gtest/gtest.h>

namespace lumivesper::shell {
namespace {

using exporting::HeicCanvasPreset;
using exporting::HeicExportOptions;
using upscale::HeicUpscaleStrategy;

HeicExportOptions options(bool upscale, bool dither, HeicCanvasPreset preset) {
    HeicExportOptions made;
    made.upscaleEnabled = upscale;
    made.enableDither = dither;
    made.canvasPreset = preset;
    return made;
}

TEST(ExportSheetChoices, AreReadBackFromTheOptions) {
    struct Case {
        HeicExportOptions options;
        ExportQuality quality;
        TargetDisplay display;
    };
    const Case cases[] = {
        // Dither alone is not "Ultra": without upscaling the quality is "Standard".
        {options(false, true, HeicCanvasPreset::apple8k), ExportQuality::standard,
         TargetDisplay::thisDisplay},
        {options(true, false, HeicCanvasPreset::apple6k), ExportQuality::high,
         TargetDisplay::external},
        {options(true, true, HeicCanvasPreset::custom), ExportQuality::ultra,
         TargetDisplay::custom},
        {options(true, false, HeicCanvasPreset::matchSource), ExportQuality::high,
         TargetDisplay::thisDisplay},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(exportQuality(c.options), c.quality) << rawValue(c.quality);
        EXPECT_EQ(targetDisplay(c.options), c.display) << rawValue(c.display);
    }
}

TEST(ExportSheetChoices, UltraOverwritesACustomCanvasAndHighDoesNotRestoreIt) {
    HeicExportOptions edited = options(false, false, HeicCanvasPreset::custom);
    edited.resizeEnabled = false;
    edited.keepPreprocessedFrames = true;
    edited.upscaleStrategy = HeicUpscaleStrategy::fast;

    applyExportQuality(edited, ExportQuality::ultra);
    EXPECT_EQ(edited.canvasPreset, HeicCanvasPreset::apple8k);
    EXPECT_TRUE(edited.resizeEnabled);
    EXPECT_TRUE(edited.upscaleEnabled);
    EXPECT_TRUE(edited.enableDither);
    EXPECT_EQ(edited.upscaleStrategy, HeicUpscaleStrategy::max);
    EXPECT_EQ(exportQuality(edited), ExportQuality::ultra);

    applyExportQuality(edited, ExportQuality::high);
    EXPECT_EQ(edited.canvasPreset, HeicCanvasPreset::apple8k);
    EXPECT_EQ(edited.upscaleStrategy, HeicUpscaleStrategy::auto_);
    EXPECT_FALSE(edited.enableDither);

    // "Standard" leaves the strategy for a later return to upscaling.
    edited.upscaleStrategy = HeicUpscaleStrategy::fast;
    applyExportQuality(edited, ExportQuality::standard);
    EXPECT_FALSE(edited.upscaleEnabled);
    EXPECT_EQ(edited.upscaleStrategy, HeicUpscaleStrategy::fast);
    EXPECT_TRUE(edited.keepPreprocessedFrames);
}

TEST(ExportSheetChoices, TargetDisplayWritesTheCanvas) {
    struct Case {
        HeicCanvasPreset before;
        TargetDisplay chosen;
        HeicCanvasPreset after;
    };
    const Case cases[] = {
        {HeicCanvasPreset::custom, TargetDisplay::thisDisplay, HeicCanvasPreset::apple8k},
        {HeicCanvasPreset::apple6k, TargetDisplay::thisDisplay, HeicCanvasPreset::apple6k},
        {HeicCanvasPreset::matchSource, TargetDisplay::thisDisplay, HeicCanvasPreset::matchSource},
        {HeicCanvasPreset::apple8k, TargetDisplay::external, HeicCanvasPreset::apple6k},
        {HeicCanvasPreset::apple8k, TargetDisplay::custom, HeicCanvasPreset::custom},
    };
    for (const auto& c : cases) {
        HeicExportOptions edited = options(true, false, c.before);
        edited.resizeEnabled = false;
        edited.keepPreprocessedFrames = true;
        applyTargetDisplay(edited, c.chosen);
        EXPECT_EQ(edited.canvasPreset, c.after) << rawValue(c.chosen);
        EXPECT_TRUE(edited.resizeEnabled);
        EXPECT_TRUE(edited.keepPreprocessedFrames);
    }
}

std::vector<ExportFrameInfo> frames(const std::string& pattern) {
    std::vector<ExportFrameInfo> made;
    for (const char kind : pattern) {
        ExportFrameInfo frame;
        frame.id = std::to_string(made.size());
        frame.isKeyFrame = kind == 'K';
        made.push_back(frame);
    }
    return made;
}

TEST(FrameStrip, GroupsRunsOfTweensBetweenKeyFrames) {
    auto strip = frames("KTTKTKKT");
    strip[1].status = ExportFrameStatus::complete;
    strip[2].status = ExportFrameStatus::blending;
    const auto groups = frameGroups(strip);
    ASSERT_EQ(groups.size(), 7u);
    const std::vector<std::size_t> sizes = {1, 2, 1, 1, 1, 1, 1};
    const std::vector<bool> keys = {true, false, true, false, true, true, false};
    for (std::size_t i = 0; i < groups.size(); ++i) {
        EXPECT_EQ(groups[i].frames.size(), sizes[i]) << i;
        EXPECT_EQ(groups[i].isKeyFrame, keys[i]) << i;
    }
    EXPECT_EQ(groups[3].frames.front().id, "4");
    // A group is done only when all its tweens are.
    EXPECT_EQ(groups[1].status(), ExportFrameStatus::blending);
    EXPECT_TRUE(frameGroups({}).empty());
}

TEST(FrameStrip, TileSizeShrinksWithKeyFramesWithinBounds) {
    struct Case {
        std::string pattern;
        double size;
    };
    const Case cases[] = {
        {"", 80},                                     // no key frames: no division by zero
        {"KK", 80},                                   // two key frames get the largest tiles
        {"KTK", 80},                                  // tweens do not count
        {"KKKKKKKK", 64}, {std::string(20, 'K'), 40}, // twenty get the smallest
    };
    for (const auto& c : cases) {
        const auto metrics = frameStripMetrics(frameGroups(frames(c.pattern)));
        EXPECT_DOUBLE_EQ(metrics.thumbnailSize, c.size) << c.pattern;
        EXPECT_DOUBLE_EQ(metrics.height(), c.size + 24) << c.pattern;
    }
}

TEST(ExportSheetTexts, ProgressAndButtonsAndUpscaler) {
    EXPECT_EQ(progressMessage(""), "Working...");
    EXPECT_EQ(progressMessage("Encoded image 3/12"), "Encoded image 3/12");
    EXPECT_EQ(progressPercent(0.999), "99%");
    EXPECT_EQ(progressPercent(1.0), "100%");
    EXPECT_EQ(progressPercent(0.0), "0%");
    EXPECT_EQ(dismissButtonTitle(""), "Cancel");
    EXPECT_EQ(dismissButtonTitle("Export cancelled"), "Close");

    const auto ready = upscalerReadiness(std::filesystem::path("/m/realesrgan512.onnx"), {});
    EXPECT_TRUE(ready.ready);
    const auto missing = upscalerReadiness(std::nullopt, {"/home/u/.local/share/m.onnx"});
    EXPECT_FALSE(missing.ready);
    EXPECT_NE(missing.text.find("/home/u/.local/share/m.onnx"), std::string::npos);
}

} // namespace
} // namespace lumivesper::shell
