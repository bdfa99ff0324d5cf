#include "document/app_state.h"
#include "shell/app_ui_state.h"
#include "shell/timeline_playback.h"

#include <gtest/gtest.h>

namespace lumivesper::shell {
namespace {

class TimelinePlaybackTest : public ::testing::Test {
protected:
    void addImages(int count) {
        for (int i = 0; i < count; ++i) {
            document::WallpaperImage image;
            image.fileName = std::to_string(i);
            image.timeOfDay = i;
            state.addImage(image);
        }
    }
    std::string selectedName() const {
        const auto image = state.selectedImage();
        return image ? image->fileName : "none";
    }

    document::AppState state;
    AppUIState ui;
    TimelinePlayback playback{state, ui};
};

TEST_F(TimelinePlaybackTest, ScrubbingSetsTheHourAndSelectsTheImageByPosition) {
    addImages(5);
    struct Row {
        double x;
        double hour;
        const char* selected;
    };
    // A strip 240 wide: 10 per hour; five images share the day by position, not by sun.
    for (const auto& row : std::vector<Row>{{0, 0, "0"},
                                            {-30, 0, "0"},
                                            {120, 12, "2"},
                                            {170, 17, "3"},
                                            {240, 24, "4"},
                                            {400, 24, "4"}}) {
        playback.scrub(row.x, 240);
        EXPECT_DOUBLE_EQ(playback.previewHour(), row.hour) << row.x;
        EXPECT_EQ(selectedName(), row.selected) << row.x;
    }
}

TEST_F(TimelinePlaybackTest, PlaybackStepsWrapsAndStopsAtEitherEnd) {
    addImages(3);
    playback.togglePlaying();
    EXPECT_TRUE(ui.isTimelinePlaying());
    playback.setPreviewHour(23.85);
    playback.tick();
    EXPECT_NEAR(playback.previewHour(), 23.95, 1e-9);
    playback.tick(); // 24.05 wraps to midnight, so 24:00 never shows during play
    EXPECT_DOUBLE_EQ(playback.previewHour(), 0.0);
    EXPECT_EQ(selectedName(), "0");

    playback.goToEnd();
    EXPECT_FALSE(ui.isTimelinePlaying());
    EXPECT_EQ(TimelinePlayback::hourLabel(playback.previewHour()), "24:00");
    EXPECT_EQ(selectedName(), "2");
}

TEST_F(TimelinePlaybackTest, HourLabelsAndPlayheadPositions) {
    EXPECT_EQ(TimelinePlayback::hourLabel(6.5), "06:30");
    EXPECT_EQ(TimelinePlayback::hourLabel(0.0), "00:00");
    EXPECT_EQ(TimelinePlayback::hourLabel(13.999), "13:59"); // cut off, never rounded up
    EXPECT_DOUBLE_EQ(TimelinePlayback::playheadX(12, 240), 120);
    EXPECT_DOUBLE_EQ(TimelinePlayback::playheadX(0, 240), 5);   // kept clear of the edges
    EXPECT_DOUBLE_EQ(TimelinePlayback::playheadX(24, 240), 235);
}

TEST_F(TimelinePlaybackTest, DraggingTheBarKeepsTheHeightBetween80And400) {
    playback.dragHeight(-50); // up makes it taller
    EXPECT_DOUBLE_EQ(playback.height(), 242);
    EXPECT_TRUE(playback.isDraggingHeight());
    playback.dragHeight(-500);
    EXPECT_DOUBLE_EQ(playback.height(), 400);
    playback.dragHeight(1000);
    EXPECT_DOUBLE_EQ(playback.height(), 80);
    playback.endHeightDrag();
    EXPECT_FALSE(playback.isDraggingHeight());
}

TEST_F(TimelinePlaybackTest, TheWindowStateTellsItsObserversOfRealChangesOnly) {
    int notices = 0;
    auto subscription = ui.observe([&] { ++notices; });
    ui.setTimelinePlaying(true);
    ui.setTimelinePlaying(true);
    ui.setViewMode(LibraryViewMode::grid); // the initial mode
    EXPECT_EQ(notices, 1);
    ui.setViewMode(LibraryViewMode::single);
    EXPECT_EQ(notices, 2);
}

} // namespace
} // namespace lumivesper::shell
