#include "document/app_state.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace lumivesper::document {
namespace {

WallpaperImage keyImage(const std::string& name, std::optional<double> altitude = 0.0,
                        std::optional<double> azimuth = 0.0) {
    WallpaperImage image;
    image.fileName = name;
    image.altitude = altitude;
    image.azimuth = azimuth;
    return image;
}

WallpaperImage tweenOf(const WallpaperImage& parent, const std::string& name) {
    WallpaperImage image = keyImage(name);
    image.isTween = true;
    image.parentId = parent.id;
    return image;
}

std::vector<std::string> names(const AppState& state) {
    std::vector<std::string> result;
    for (const auto& image : state.images())
        result.push_back(image.fileName);
    return result;
}

class AppStateTest : public ::testing::Test {
protected:
    AppStateTest() { state.setUndoManager(&undo); }

    // An appearance-mode document keeps the order it is given, so list positions are exact.
    void fillInOrder(const std::vector<WallpaperImage>& images) {
        state.setMode(WallpaperMode::appearance);
        for (const auto& image : images)
            state.addImage(image);
        undo.removeAllActions();
    }

    UndoManager undo;
    AppState state;
};

// ---- Undo and redo ----

TEST_F(AppStateTest, UndoingTheFirstAddReturnsToACleanDocumentAndRedoDirtiesAgain) {
    state.addImage(keyImage("a.png"));
    ASSERT_TRUE(state.isDirty());
    EXPECT_EQ(undo.undoActionName(), "Add Image");

    undo.undo();
    EXPECT_TRUE(state.images().empty());
    EXPECT_FALSE(state.isDirty());
    ASSERT_TRUE(undo.canRedo());
    EXPECT_EQ(undo.redoActionName(), "Add Image");

    undo.redo();
    EXPECT_EQ(names(state), std::vector<std::string>{"a.png"});
    EXPECT_TRUE(state.isDirty());
    EXPECT_TRUE(undo.canUndo());
    EXPECT_FALSE(undo.canRedo());
}

// Undo steps point at their document: neither object may leave the other dangling.
TEST(UndoManagerInstallation, EitherSideMayGoFirstAndAReplacedManagerForgetsTheSteps) {
    UndoManager application;
    {
        AppState document;
        document.setUndoManager(&application);
        document.addImage(keyImage("a"));
        ASSERT_TRUE(application.canUndo());
    }
    EXPECT_FALSE(application.canUndo()); // undoing would restore into a document that is gone

    AppState document;
    {
        UndoManager shortLived;
        document.setUndoManager(&shortLived);
        document.addImage(keyImage("b"));
        UndoManager replacement;
        document.setUndoManager(&replacement);
        EXPECT_FALSE(shortLived.canUndo());
        document.setUndoManager(&shortLived);
    }
    EXPECT_EQ(document.undoManager(), nullptr);
    document.addImage(keyImage("c")); // registers nowhere, and does not crash
    EXPECT_EQ(document.images().size(), 2u);
}

TEST_F(AppStateTest, StepsOfEqualNameStaySeparateAndANewChangeDropsTheRedoHistory) {
    state.addImage(keyImage("a.png"));
    state.addImage(keyImage("b.png"));
    undo.undo();
    EXPECT_EQ(names(state), std::vector<std::string>{"a.png"});
    undo.undo();
    EXPECT_TRUE(state.images().empty());
    undo.redo();
    state.addImage(keyImage("c.png"));
    EXPECT_FALSE(undo.canRedo());
    undo.undo();
    EXPECT_EQ(names(state), std::vector<std::string>{"a.png"});
}

TEST_F(AppStateTest, UndoOfOpenProjectRestoresPathDirtinessAndMagicSettings) {
    state.addImage(keyImage("draft.png"));
    state.setLastMagicSettings("misty lake", "1536x1024", 5, "start.png");
    state.openProject({keyImage("opened.png")}, WallpaperMode::time, "/p/Opened.lvesper",
                      std::nullopt, std::nullopt, std::nullopt, std::nullopt);
    EXPECT_FALSE(state.isDirty());
    EXPECT_EQ(state.lastMagicSize(), "1024x576");
    EXPECT_EQ(state.lastMagicTweenCount(), 3);
    EXPECT_EQ(state.lastMagicPrompt(), "");

    undo.undo();
    EXPECT_EQ(names(state), std::vector<std::string>{"draft.png"});
    EXPECT_TRUE(state.isDirty());
    EXPECT_FALSE(state.currentProjectPath().has_value());
    EXPECT_EQ(state.lastMagicPrompt(), "misty lake");
    EXPECT_EQ(state.lastMagicTweenCount(), 5);
}

TEST_F(AppStateTest, RestoringKeepsTheStoredAnchorAndOrder) {
    auto a = keyImage("a");
    auto b = keyImage("b");
    auto c = keyImage("c");
    fillInOrder({a, b, c});
    state.selectImage(c.id);
    state.toggleImageSelection(a.id); // anchor becomes a
    state.moveImage(c.id, a.id);
    EXPECT_EQ(names(state), (std::vector<std::string>{"c", "a", "b"}));
    state.selectImage(b.id);
    undo.undo();
    EXPECT_EQ(names(state), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(state.selectedImageIds(), (std::set<Uuid>{a.id, c.id}));
    EXPECT_EQ(state.lastSelectedImageId(), a.id);
}

TEST_F(AppStateTest, NoOpOperationsRegisterNothingAndLeaveTheDirtyFlag) {
    state.setMode(WallpaperMode::time);
    state.deleteAllTweens();
    state.removeImage(Uuid::generate());
    state.updateImage(keyImage("unknown"));
    state.insertImages({}, 0, "Add Tweens");
    EXPECT_FALSE(undo.canUndo());
    EXPECT_FALSE(state.isDirty());
}

// ---- Batches ----

TEST_F(AppStateTest, NestedBatchesMakeOneStepWithTheOutermostName) {
    state.beginUndoBatch("Generate Timeline");
    state.beginUndoBatch("Ignored");
    state.applyGeneratedImages({keyImage("g1"), keyImage("g2")}, WallpaperMode::time, true);
    EXPECT_FALSE(undo.canUndo()); // applyGeneratedImages registers nothing itself
    state.endUndoBatch();
    EXPECT_EQ(undo.undoActionName(), "Generate Timeline");
    state.endUndoBatch(); // nothing open any more
    undo.undo();
    EXPECT_TRUE(state.images().empty());
    EXPECT_FALSE(undo.canUndo());

    state.beginUndoBatch(); // unnamed and empty: still one step, called "Update"
    state.endUndoBatch();
    EXPECT_EQ(undo.undoActionName(), "Update");
}

// ---- Selection ----

TEST_F(AppStateTest, CommandClickTogglesAndMovesTheAnchor) {
    auto a = keyImage("a");
    auto b = keyImage("b");
    fillInOrder({a, b});
    state.toggleImageSelection(a.id);
    state.toggleImageSelection(b.id);
    EXPECT_EQ(state.lastSelectedImageId(), b.id);
    state.toggleImageSelection(b.id);
    EXPECT_EQ(state.selectedImageIds(), std::set<Uuid>{a.id});
    EXPECT_EQ(state.lastSelectedImageId(), a.id);
    state.toggleImageSelection(a.id);
    EXPECT_TRUE(state.selectedImageIds().empty());
    EXPECT_FALSE(state.lastSelectedImageId().has_value());
    EXPECT_FALSE(undo.canUndo()); // selection is not part of the history
}

TEST_F(AppStateTest, ShiftClickSelectsTheRangeFromTheAnchorAndMovesIt) {
    auto a = keyImage("a");
    auto t = tweenOf(a, "t");
    auto b = keyImage("b");
    auto c = keyImage("c");
    fillInOrder({a, t, b, c});

    state.extendImageSelection(b.id); // empty selection: the clicked image alone
    EXPECT_EQ(state.selectedImageIds(), std::set<Uuid>{b.id});

    state.selectImage(t.id);
    state.extendImageSelection(c.id); // from a tween, tweens included
    EXPECT_EQ(state.selectedImageIds(), (std::set<Uuid>{t.id, b.id, c.id}));
    EXPECT_EQ(state.lastSelectedImageId(), c.id);

    state.extendImageSelection(a.id); // ranges from the moved anchor, replacing the selection
    EXPECT_EQ(state.selectedImageIds(), (std::set<Uuid>{a.id, t.id, b.id, c.id}));
    EXPECT_EQ(state.lastSelectedImageId(), a.id);
}

// ---- Removal keeps the selection invariant ----

TEST_F(AppStateTest, RemovingImagesDropsThemFromTheSelection) {
    auto a = keyImage("a");
    auto t1 = tweenOf(a, "t1");
    auto b = keyImage("b");
    auto t2 = tweenOf(b, "t2");
    fillInOrder({a, t1, b, t2});

    state.selectImage(t1.id);
    state.toggleImageSelection(t2.id);
    state.removeImage(a.id); // its tween stays, with its parent link
    EXPECT_EQ(state.image(t1.id)->parentId, a.id);
    undo.undo();
    state.deleteAllTweens();
    EXPECT_EQ(names(state), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(state.selectedImageIds().empty());
    EXPECT_FALSE(state.lastSelectedImageId().has_value());
    EXPECT_EQ(undo.undoActionName(), "Delete All Tweens");

    state.selectImage(a.id);
    state.toggleImageSelection(b.id);
    state.removeImage(b.id);
    EXPECT_EQ(state.selectedImageIds(), std::set<Uuid>{a.id});
    EXPECT_EQ(state.lastSelectedImageId(), a.id);

    state.replaceImages({keyImage("fresh")}, "Auto Tween", true);
    EXPECT_TRUE(state.selectedImageIds().empty());
    EXPECT_FALSE(state.lastSelectedImageId().has_value());
}

// ---- Reordering ----

TEST_F(AppStateTest, MoveCarriesTheKeyImagesDirectlyFollowingTweens) {
    auto a = keyImage("a");
    auto b = keyImage("b");
    auto bt1 = tweenOf(b, "bt1");
    auto bt2 = tweenOf(b, "bt2");
    auto stray = tweenOf(a, "stray"); // names another parent: ends b's run
    auto c = keyImage("c");
    fillInOrder({a, b, bt1, bt2, stray, c});

    state.moveImage(b.id, a.id);
    EXPECT_EQ(names(state), (std::vector<std::string>{"b", "bt1", "bt2", "a", "stray", "c"}));

    state.moveImage(b.id, c.id); // downwards: lands directly before the target
    EXPECT_EQ(names(state), (std::vector<std::string>{"a", "stray", "b", "bt1", "bt2", "c"}));
}

TEST_F(AppStateTest, MoveOntoTheSuccessorKeepsTheOrderButStillCounts) {
    auto a = keyImage("a");
    auto b = keyImage("b");
    fillInOrder({a, b});
    state.moveImage(a.id, b.id);
    EXPECT_EQ(names(state), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(state.isDirty());
    EXPECT_EQ(undo.undoActionName(), "Reorder Images");
}

TEST_F(AppStateTest, MoveRefusesTweensUnknownIdsAndItself) {
    auto a = keyImage("a");
    auto t = tweenOf(a, "t");
    auto b = keyImage("b");
    fillInOrder({a, t, b});
    state.moveImage(t.id, b.id);
    state.moveImage(b.id, t.id);
    state.moveImage(a.id, a.id);
    state.moveImage(a.id, Uuid::generate());
    EXPECT_EQ(names(state), (std::vector<std::string>{"a", "t", "b"}));
    EXPECT_FALSE(undo.canUndo());
}

// ---- Chronological order ----

TEST_F(AppStateTest, TimeModeSortsByHourAndKeepsTiesInFormerOrder) {
    auto noon = keyImage("noon", 60, 180);      // 12.083
    auto evening = keyImage("evening", 5, 270); // 17.750
    auto unplaced1 = keyImage("unplaced1", 10, std::nullopt);
    auto unplaced2 = keyImage("unplaced2", std::nullopt, std::nullopt);
    auto late = keyImage("late");
    late.timeOfDay = 25; // hour 1
    auto lateNight = keyImage("lateNight");
    lateNight.timeOfDay = -1; // hour 23

    for (const auto& image : {evening, noon, unplaced1, lateNight, late, unplaced2})
        state.addImage(image);
    const std::vector<std::string> expected{"unplaced1", "unplaced2", "late",
                                            "noon",      "evening",   "lateNight"};
    EXPECT_EQ(names(state), expected);
    state.sortImagesChronologically();
    EXPECT_EQ(names(state), expected);
}

TEST_F(AppStateTest, AppearanceModeKeepsTheUsersOrderUntilTimeModeReturns) {
    auto noon = keyImage("noon", 60, 180);
    auto night = keyImage("night", -30, 0);
    fillInOrder({night, noon});
    auto edited = *state.image(night.id);
    edited.altitude = -31;
    state.updateImage(edited);
    EXPECT_EQ(names(state), (std::vector<std::string>{"night", "noon"}));
    state.setMode(WallpaperMode::time);
    EXPECT_EQ(names(state), (std::vector<std::string>{"noon", "night"}));
    EXPECT_EQ(undo.undoActionName(), "Change Mode");
}

TEST_F(AppStateTest, InsertClampsTheIndexAndReplaceHonoursMarkDirty) {
    fillInOrder({keyImage("a"), keyImage("b")});
    state.insertImages({keyImage("x")}, 99, "Add Tweens");
    EXPECT_EQ(names(state).back(), "x");
    state.insertImages({keyImage("y")}, -5, "Add Tweens");
    EXPECT_EQ(names(state).front(), "y");
    EXPECT_EQ(undo.undoActionName(), "Add Tweens");

    state.resetProject("New Project");
    EXPECT_FALSE(state.isDirty());
    state.replaceImages({keyImage("z")}, "Quiet", false);
    EXPECT_FALSE(state.isDirty());
    EXPECT_EQ(undo.undoActionName(), "Quiet");
}

TEST_F(AppStateTest, ObserversHearAboutChangesUntilTheyUnsubscribe) {
    int calls = 0;
    bool sawImages = false;
    {
        auto subscription = state.observe([&](AppStateFields fields) {
            ++calls;
            sawImages = sawImages || fields.contains(AppStateField::images);
        });
        state.addImage(keyImage("a"));
        EXPECT_GT(calls, 0);
        EXPECT_TRUE(sawImages);
    }
    const int before = calls;
    state.addImage(keyImage("b"));
    EXPECT_EQ(calls, before);
}

} // namespace
} // namespace lumivesper::document
