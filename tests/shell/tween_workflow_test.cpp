#include "../support/temporary_folder.h"
#include "document/app_state.h"
#include "platform/image_io.h"
#include "platform/main_thread.h"
#include "shell/app_ui_state.h"
#include "shell/tween_workflow.h"

#include <gtest/gtest.h>

namespace lumivesper::shell {
namespace {

using document::WallpaperImage;

class TweenWorkflowTest : public ::testing::Test {
protected:
    TweenWorkflowTest() { state.setUndoManager(&undo); }

    // A key image backed by a small real file, at the given hour.
    WallpaperImage key(const std::string& name, double hour, std::uint8_t shade) {
        platform::PixelImage pixels(16, 8);
        std::fill(pixels.rgba.begin(), pixels.rgba.end(), shade);
        const auto path = folder.path() / (name + ".png");
        platform::writePng(pixels, path);
        WallpaperImage image;
        image.fileName = name + ".png";
        image.sourcePath = path;
        image.altitude = 0.0;
        image.azimuth = 0.0;
        image.timeOfDay = hour;
        state.addImage(image);
        return image;
    }

    bool runToEnd() {
        return mainThread.runUntil([this] { return !workflow.isGenerating(); });
    }

    std::vector<const WallpaperImage*> tweensOf(const WallpaperImage& parent) const {
        std::vector<const WallpaperImage*> found;
        for (const auto& image : state.images())
            if (image.isTween && image.parentId == parent.id)
                found.push_back(&image);
        return found;
    }

    testing::TemporaryFolder folder;
    document::UndoManager undo;
    document::AppState state;
    AppUIState ui;
    platform::QueuedMainThread mainThread;
    TweenWorkflow workflow{state, ui, mainThread, folder.path() / "tweens"};
};

TEST_F(TweenWorkflowTest, TweensGoBetweenAKeyImageAndTheNextOneOrWrapToTheFirst) {
    const auto morning = key("morning", 8, 0);
    const auto evening = key("evening", 18, 200);
    WallpaperImage tween;
    tween.isTween = true;
    tween.parentId = morning.id;
    tween.timeOfDay = 9;
    state.addImage(tween); // morning, tween, evening

    EXPECT_FALSE(canGenerateTweens(state.images(), morning.id)); // followed by its run already
    EXPECT_FALSE(canGenerateTweens(state.images(), tween.id));
    const auto wrap = nextKeyImage(state.images(), evening.id);
    ASSERT_TRUE(wrap);
    EXPECT_EQ(wrap->image.id, morning.id);
    EXPECT_EQ(wrap->insertionIndex, 3u);

    state.removeImage(evening.id);
    EXPECT_FALSE(canGenerateTweens(state.images(), morning.id)); // the only key image
    EXPECT_FALSE(workflow.openFor(morning.id));
    EXPECT_FALSE(workflow.isSheetShown());
}

TEST_F(TweenWorkflowTest, ASingleRunAddsItsFramesInOneStepWithHoursBetweenTheKeys) {
    const auto morning = key("morning", 8, 0);
    key("evening", 18, 200);
    ASSERT_TRUE(workflow.openFor(morning.id));
    workflow.setTweenCount(4);
    EXPECT_EQ(workflow.explanation(),
              "Creates 4 interpolated frames between the selected image and the next one.");
    workflow.generate();
    EXPECT_TRUE(workflow.isGenerating());
    ASSERT_TRUE(runToEnd());

    const auto tweens = tweensOf(morning);
    ASSERT_EQ(tweens.size(), 4u);
    EXPECT_EQ(state.images().size(), 6u);
    EXPECT_DOUBLE_EQ(*tweens[0]->timeOfDay, 10.0); // 8 + 10 × 1/5
    EXPECT_DOUBLE_EQ(*tweens[3]->timeOfDay, 16.0);
    EXPECT_EQ(tweens[0]->fileName, "morning_png_to_evening_png_tween_1.png");
    EXPECT_TRUE(tweens[0]->thumbnail);
    EXPECT_EQ(undo.undoActionName(), "Add Tweens");
    EXPECT_FALSE(workflow.isSheetShown());
    EXPECT_DOUBLE_EQ(workflow.progress(), 1.0);

    undo.undo(); // the whole run is one step
    EXPECT_EQ(state.images().size(), 2u);
}

TEST_F(TweenWorkflowTest, CancellingClosesTheSheetButTheRunStillDeliversItsFrames) {
    const auto morning = key("morning", 8, 0);
    key("evening", 18, 200);
    ASSERT_TRUE(workflow.openFor(morning.id));
    workflow.generate();
    workflow.cancel();
    EXPECT_FALSE(workflow.isSheetShown());
    EXPECT_TRUE(workflow.isGenerating());
    ASSERT_TRUE(runToEnd());
    EXPECT_EQ(tweensOf(morning).size(), 3u);
}

TEST_F(TweenWorkflowTest, AutoTweenRegeneratesEveryRunAcrossTheDay) {
    const auto morning = key("morning", 8, 0);
    const auto evening = key("evening", 18, 200);
    ui.setShouldTriggerAutoTween(true); // the toolbar's button
    EXPECT_TRUE(workflow.isSheetShown());
    EXPECT_TRUE(workflow.isAutoMode());
    EXPECT_FALSE(ui.shouldTriggerAutoTween()); // consumed
    workflow.setTweenCount(2);
    EXPECT_EQ(workflow.explanation(), "Creates 2 interpolated frames between each key image and "
                                      "the next one (wraps end to start).");

    for (int run = 0; run < 2; ++run) { // a second run replaces the first one's frames
        if (run == 1) {
            ASSERT_TRUE(workflow.openAuto());
        }
        workflow.generate();
        ASSERT_TRUE(runToEnd());
        EXPECT_EQ(state.images().size(), 6u) << "run " << run;
        EXPECT_EQ(tweensOf(morning).size(), 2u);
        EXPECT_EQ(tweensOf(evening).size(), 2u);
        EXPECT_EQ(undo.undoActionName(), "Auto Tween");
    }
    // The evening's run crosses midnight: 18 + 14 × 2/3 is 3:20 the next morning, so it sorts
    // first.
    EXPECT_TRUE(state.images().front().isTween);
    EXPECT_NEAR(*state.images().front().timeOfDay, 3.0 + 1.0 / 3.0, 1e-9);
}

TEST_F(TweenWorkflowTest, AFailedRunLeavesTheDocumentAloneAndTheSheetUp) {
    const auto morning = key("morning", 8, 0);
    const auto evening = key("evening", 18, 200);
    ASSERT_TRUE(workflow.openAuto());
    std::filesystem::remove(*evening.sourcePath); // gone between opening and generating
    workflow.generate();
    ASSERT_TRUE(runToEnd());
    EXPECT_EQ(state.images().size(), 2u);
    EXPECT_TRUE(workflow.isSheetShown());
    EXPECT_FALSE(workflow.failure().empty());

    // A single run checks its files before it starts.
    ASSERT_TRUE(workflow.openFor(morning.id));
    workflow.generate();
    EXPECT_FALSE(workflow.isGenerating());
    EXPECT_EQ(state.images().size(), 2u);
}

} // namespace
} // namespace lumivesper::shell
