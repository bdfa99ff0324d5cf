#include "shell/inspector_model.h"
#include "shell_fixture.h"
#include "sun/presets.h"

#include <gtest/gtest.h>

namespace lumivesper::shell {
namespace {

using document::WallpaperImage;
using document::WallpaperMode;

class InspectorModelTest : public ShellTest {
protected:
    // Adds an image with the given angles (none for a missing one) without leaving undo steps.
    WallpaperImage add(const std::string& name, std::optional<double> altitude,
                       std::optional<double> azimuth, std::optional<bool> isLight = {}) {
        WallpaperImage made;
        made.fileName = name;
        made.altitude = altitude;
        made.azimuth = azimuth;
        made.isLight = isLight;
        state.addImage(made);
        settle();
        return made;
    }

    // Lets the editor's deferred write run, then forgets the history so far.
    void settle() {
        drain();
        undo.removeAllActions();
        state.markSaved(folder.path() / "saved.lvesper", state.images());
    }

    const WallpaperImage& stored(const WallpaperImage& image) { return *state.image(image.id); }

    std::size_t undoSteps() {
        std::size_t count = 0;
        while (undo.canUndo()) {
            undo.undo();
            ++count;
        }
        return count;
    }

    const sun::PresetButton& timePreset(std::string_view title) {
        for (const auto& preset : sun::timePresets())
            if (preset.title == title)
                return preset;
        throw std::logic_error("no such preset");
    }

    InspectorModel model{state, dialogs.mainThread};
};

TEST_F(InspectorModelTest, SelectingAnImageWithOtherValuesWritesThemBackAsAnEdit) {
    const auto a = add("a.jpg", 20.0, 120.0);
    const auto b = add("b.jpg", 60.0, 180.0);

    state.selectImage(a.id);
    EXPECT_EQ(model.editorValues().altitude, 20.0);
    EXPECT_EQ(model.editorValues().azimuth, 120.0);
    EXPECT_FALSE(state.isDirty()) << "the write waits until the selection has reached everyone";
    drain();
    EXPECT_TRUE(state.isDirty());
    EXPECT_EQ(undo.undoActionName(), "Edit Image");
    EXPECT_EQ(stored(a).altitude, 20.0);
    EXPECT_EQ(undoSteps(), 1u);

    settle();
    state.selectImage(b.id); // 20/120 → 60/180: written back again
    drain();
    EXPECT_TRUE(state.isDirty());
    EXPECT_EQ(undoSteps(), 1u);
}

TEST_F(InspectorModelTest, SelectingAnImageWithTheEditorsValuesWritesNothing) {
    const auto a = add("a.jpg", 20.0, 120.0);
    const auto same = add("same.jpg", 20.0, 120.0);
    const auto bare = add("bare.jpg", std::nullopt, std::nullopt);

    // A first image without angles leaves a fresh editor at 0 and 0: nothing to write.
    state.selectImage(bare.id);
    drain();
    EXPECT_FALSE(state.isDirty());
    EXPECT_FALSE(stored(bare).altitude.has_value());

    state.selectImage(a.id);
    settle();
    state.selectImage(same.id);
    drain();
    EXPECT_FALSE(state.isDirty());
    EXPECT_FALSE(undo.canUndo());
}

TEST_F(InspectorModelTest, TheEchoFollowsTheValuesTheModeShows) {
    state.setMode(WallpaperMode::appearance);
    const auto dark = add("dark.jpg", 30.0, 90.0, false);
    const auto light = add("light.jpg", 5.0, 270.0, true);

    state.selectImage(light.id); // the switch starts on, as the image is: no write
    drain();
    EXPECT_FALSE(state.isDirty());

    state.selectImage(dark.id); // light → dark alters the switch; the angles do not count here
    drain();
    EXPECT_TRUE(state.isDirty());
    EXPECT_EQ(stored(dark).isLight, false);
    EXPECT_EQ(stored(dark).altitude, 30.0);
    EXPECT_EQ(undoSteps(), 1u);
}

TEST_F(InspectorModelTest, AnImageWithoutLightFlagShowsTheSwitchOn) {
    state.setMode(WallpaperMode::appearance);
    const auto dark = add("dark.jpg", std::nullopt, std::nullopt, false);
    const auto plain = add("plain.jpg", std::nullopt, std::nullopt);
    state.selectImage(dark.id);
    settle();

    state.selectImage(plain.id);
    EXPECT_TRUE(model.editorValues().isLight);
    drain();
    EXPECT_EQ(stored(plain).isLight, true) << "false → true is an echo like any other";
}

TEST_F(InspectorModelTest, ChangingTheSelectionReloadsAllThreeValues) {
    const auto a = add("a.jpg", 12.5, 200.0, false);
    const auto b = add("b.jpg", -4.0, std::nullopt);

    state.selectImage(a.id);
    EXPECT_EQ(model.editorValues().altitude, 12.5);
    EXPECT_EQ(model.editorValues().azimuth, 200.0);
    EXPECT_FALSE(model.editorValues().isLight);

    state.selectImage(b.id);
    EXPECT_EQ(model.editorValues().altitude, -4.0);
    EXPECT_EQ(model.editorValues().azimuth, 0.0);
    EXPECT_TRUE(model.editorValues().isLight);
}

TEST_F(InspectorModelTest, TheEditorStartsAfreshAfterTheSelectionWasEmpty) {
    const auto a = add("a.jpg", 20.0, 120.0);
    state.selectImage(a.id);
    settle();
    EXPECT_TRUE(model.hasSelection());

    state.selectImage(std::nullopt);
    EXPECT_FALSE(model.hasSelection());
    EXPECT_FALSE(model.showsSunPreview());
    EXPECT_EQ(model.editorValues().altitude, 0.0);

    state.selectImage(a.id); // 0/0 → 20/120: the reappearing editor writes again
    drain();
    EXPECT_TRUE(state.isDirty());
}

TEST_F(InspectorModelTest, AStaleWriteIsDroppedWhenAnotherImageWasSelectedMeanwhile) {
    const auto a = add("a.jpg", 20.0, 120.0);
    const auto b = add("b.jpg", 0.0, 0.0);
    state.selectImage(a.id);
    state.selectImage(b.id); // back to 0/0 before a's write ran
    drain();
    EXPECT_EQ(undoSteps(), 1u) << "b's own echo only";
}

TEST_F(InspectorModelTest, SliderEditsWriteBothAnglesOfTheSelectedImage) {
    const auto a = add("a.jpg", std::nullopt, std::nullopt);
    state.selectImage(a.id);
    settle();

    model.setAltitude(12.3);
    EXPECT_EQ(stored(a).altitude, 12.3);
    EXPECT_EQ(stored(a).azimuth, 0.0) << "the untouched angle is written as present";
    model.setAltitude(12.3); // no change, no step
    model.setAzimuth(90.0);
    EXPECT_EQ(stored(a).azimuth, 90.0);
    EXPECT_EQ(undo.undoActionName(), "Edit Image");
    EXPECT_EQ(undoSteps(), 2u);
}

TEST_F(InspectorModelTest, TheEditorShowsWhatAPresetOrUndoDidToTheSameImage) {
    const auto a = add("a.jpg", 0.0, 0.0);
    state.selectImage(a.id);
    settle();

    model.applyPreset(timePreset("Midday"));
    EXPECT_EQ(model.editorValues().altitude, 60.0);
    EXPECT_EQ(model.editorValues().azimuth, 180.0);
    undo.undo();
    EXPECT_EQ(model.editorValues().altitude, 0.0);
    drain();
    EXPECT_TRUE(undo.canRedo()) << "following an undo writes nothing, so redo stays possible";
}

TEST_F(InspectorModelTest, APresetWithoutSelectionChangesNothing) {
    const auto a = add("a.jpg", 0.0, 0.0);
    model.applyPreset(timePreset("Golden PM"));
    model.applyPreset(sun::appearancePresets()[1]);
    model.setAltitude(40);
    EXPECT_FALSE(undo.canUndo());
    EXPECT_FALSE(state.isDirty());
    EXPECT_EQ(stored(a).altitude, 0.0);
}

TEST_F(InspectorModelTest, APresetActsOnTheSelectedImageOnlyAndKeepsItsHour) {
    auto a = add("a.jpg", 0.0, 0.0);
    auto b = add("b.jpg", 0.0, 0.0);
    a.timeOfDay = 7.0;
    state.updateImage(a);
    state.selectImage(a.id);
    state.extendImageSelection(b.id);
    settle();
    const auto anchor = *state.selectedImage();

    model.applyPreset(timePreset("Sunset"));
    const auto& other = anchor.id == a.id ? b : a;
    EXPECT_EQ(stored(anchor).altitude, -0.8);
    EXPECT_EQ(stored(anchor).azimuth, 270.0);
    EXPECT_EQ(stored(anchor).timeOfDay, anchor.timeOfDay);
    EXPECT_EQ(stored(other).altitude, 0.0);
    EXPECT_EQ(undoSteps(), 1u);
}

TEST_F(InspectorModelTest, AppearancePresetsSetTheLightFlag) {
    state.setMode(WallpaperMode::appearance);
    const auto a = add("a.jpg", std::nullopt, std::nullopt, true);
    state.selectImage(a.id);
    settle();
    ASSERT_EQ(model.presets().size(), 2u);
    model.applyPreset(model.presets()[1]); // "Dark"
    EXPECT_EQ(stored(a).isLight, false);
    EXPECT_FALSE(stored(a).altitude.has_value());
    EXPECT_FALSE(model.editorValues().isLight);
}

TEST_F(InspectorModelTest, TheModeDecidesPresetsAndSunPreview) {
    const auto a = add("a.jpg", 0.0, 0.0);
    state.selectImage(a.id);
    EXPECT_EQ(model.presets().size(), 11u);
    EXPECT_TRUE(model.showsSunPreview());
    model.chooseMode(WallpaperMode::appearance);
    EXPECT_EQ(state.mode(), WallpaperMode::appearance);
    EXPECT_EQ(undo.undoActionName(), "Change Mode");
    EXPECT_EQ(model.presets().size(), 2u);
    EXPECT_FALSE(model.showsSunPreview());
}

TEST(MetadataSliderTest, SnapsToTheStepWithHalvesAwayFromZero) {
    EXPECT_NEAR(steppedSliderValue(12.34, 0.1), 12.3, 1e-12);
    EXPECT_DOUBLE_EQ(steppedSliderValue(12.34, 0.1), 0.1 * 123);
    EXPECT_NEAR(steppedSliderValue(12.36, 0.1), 12.4, 1e-12);
    EXPECT_NEAR(steppedSliderValue(0.25, 0.5), 0.5, 1e-12);
    EXPECT_NEAR(steppedSliderValue(-0.25, 0.5), -0.5, 1e-12);
    EXPECT_NEAR(steppedSliderValue(-89.96, 0.1), -90.0, 1e-12);
    EXPECT_EQ(steppedSliderValue(12.34, 0), 12.34) << "no step, no snapping";
    EXPECT_EQ(steppedSliderValue(12.34, -1), 12.34);
}

TEST(MetadataSliderTest, LabelsShowOneDecimalAndTheDegreeSign) {
    EXPECT_EQ(degreesLabel(steppedSliderValue(12.34, 0.1)), "12.3°");
    EXPECT_EQ(degreesLabel(-0.8), "-0.8°");
    EXPECT_EQ(degreesLabel(120), "120.0°");
    EXPECT_EQ(degreesLabel(135.5), "135.5°") << "a stored value outside the slider shows as is";
}

} // namespace
} // namespace lumivesper::shell
