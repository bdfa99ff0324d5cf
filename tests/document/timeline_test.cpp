#include "document/timeline.h"

#include <gtest/gtest.h>

namespace lumivesper::document {
namespace {

WallpaperImage at(const std::string& name, std::optional<double> altitude,
                  std::optional<double> azimuth, std::optional<double> timeOfDay = std::nullopt) {
    WallpaperImage image;
    image.fileName = name;
    image.altitude = altitude;
    image.azimuth = azimuth;
    image.timeOfDay = timeOfDay;
    return image;
}

TEST(TimelineImageTest, MapsHoursByPositionRoundingHalvesAway) {
    std::vector<WallpaperImage> images;
    for (const char* name : {"0", "1", "2", "3", "4"})
        images.push_back(at(name, 0, 0));
    const std::pair<double, const char*> cases[] = {{0, "0"},  {3, "1"},  {12, "2"}, {24, "4"},
                                                    {-5, "0"}, {30, "4"}, {2.9, "0"}};
    for (const auto& [hour, expected] : cases)
        EXPECT_EQ(timelineImage(hour, images)->fileName, expected) << hour;

    EXPECT_FALSE(timelineImage(6, {}).has_value());
    const std::vector<WallpaperImage> one{at("only", 0, 0)};
    for (double hour : {-1.0, 0.0, 13.0, 40.0})
        EXPECT_EQ(timelineImage(hour, one)->fileName, "only");
}

TEST(ClosestFrameTest, UsesPlainDegreesTheShortWayRoundAndFirstOfEquals) {
    const std::vector<WallpaperImage> images{at("unplaced", 10, std::nullopt), at("east", 0, 1),
                                             at("tie", 0, 3), at("west", 0, 357)};
    auto found = closestFrame(images, 0, 359);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->image.fileName, "east"); // 2° across north, as "west": the first of equals
    EXPECT_DOUBLE_EQ(found->azimuthDifference, 2.0);

    found = closestFrame({at("far", 0, 90), at("near", 5, 357)}, 0, 359);
    EXPECT_EQ(found->image.fileName, "near");
    EXPECT_DOUBLE_EQ(found->altitudeDifference, 5.0);
    EXPECT_FALSE(closestFrame({at("none", std::nullopt, 5)}, 0, 0).has_value());
}

TEST(InterpolationTest, AzimuthTakesTheShorterWayAndTimeRunsForward) {
    auto from = at("from", 10, 350, 23);
    auto to = at("to", 30, 10, 1);
    const auto middle = interpolatedSunValues(from, to, 1, 1);
    EXPECT_DOUBLE_EQ(middle.altitude, 20);
    EXPECT_NEAR(middle.azimuth, 0, 1e-9);
    EXPECT_NEAR(middle.timeOfDay, 0, 1e-9);

    const auto quarter = interpolatedSunValues(at("a", 0, 90, 6), at("b", 40, 180, 12), 1, 3);
    EXPECT_DOUBLE_EQ(quarter.altitude, 10);
    EXPECT_DOUBLE_EQ(quarter.azimuth, 112.5);
    EXPECT_DOUBLE_EQ(quarter.timeOfDay, 7.5);

    // Missing angles count as 0; the hours come from the sun then.
    const auto missing =
        interpolatedSunValues(at("a", std::nullopt, std::nullopt), at("b", 20, 40), 1, 1);
    EXPECT_DOUBLE_EQ(missing.altitude, 10);
    EXPECT_DOUBLE_EQ(missing.azimuth, 20);
}

class PresetActionTest : public ::testing::Test {
protected:
    PresetActionTest() { state.setUndoManager(&undo); }
    UndoManager undo;
    AppState state;
};

TEST_F(PresetActionTest, WithoutSelectionNothingHappens) {
    state.addImage(at("a", 0, 0));
    undo.removeAllActions();
    applyPreset(state, 60, 180);
    EXPECT_FALSE(undo.canUndo());
    EXPECT_EQ(state.images()[0].altitude, 0.0);
}

TEST_F(PresetActionTest, ActsOnTheSelectedImageOnlyAndKeepsItsHour) {
    auto a = at("a", 0, 0, 9.0);
    auto b = at("b", 0, 0);
    state.addImage(a);
    state.addImage(b);
    state.selectImage(b.id);
    state.toggleImageSelection(a.id); // anchor a
    applyPreset(state, 60, 180);
    EXPECT_EQ(undo.undoActionName(), "Edit Image");
    const auto* edited = state.image(a.id);
    EXPECT_EQ(edited->altitude, 60.0);
    EXPECT_EQ(edited->timeOfDay, 9.0);
    EXPECT_EQ(state.image(b.id)->altitude, 0.0);

    applyAppearance(state, false);
    EXPECT_EQ(state.image(a.id)->isLight, false);
}

} // namespace
} // namespace lumivesper::document
