#pragma once

#include "platform/observer_list.h"

#include <functional>
#include <string>

namespace lumivesper::document {
class AppState;
}

namespace lumivesper::shell {

class AppUIState;

// The timeline's logic under the library: the hour at the playhead and the image it selects,
// playback steps, and the strip's height. The playing flag itself is AppUIState's, so that the
// menu and the transport share it. Main thread only.
class TimelinePlayback {
public:
    static constexpr double tickSeconds = 0.1;
    static constexpr double hoursPerTick = 0.1; // a whole day plays in 24 s
    static constexpr double initialHour = 12.0;
    static constexpr double initialHeight = 192;
    static constexpr double minimumHeight = 80;
    static constexpr double maximumHeight = 400;

    TimelinePlayback(document::AppState& appState, AppUIState& uiState);

    // Whether the timeline is shown at all: time mode with images.
    bool isAvailable() const;

    double previewHour() const { return previewHour_; }
    // Moves the playhead and selects the image under it (by position in the list).
    void setPreviewHour(double hour);
    // A press or drag at `x` on a strip `width` wide.
    void scrub(double x, double width);
    void goToStart(); // 00:00, and playback stops
    void goToEnd();   // 24:00, and playback stops
    void togglePlaying();
    void tick(); // one step of playback: 0.1 h on, wrapping to 00:00 at the day's end

    double height() const { return height_; }
    // A drag on the resize bar: `translation` is the vertical distance from the drag's start
    // (down is positive), applied to the present height each time, clamped to 80 … 400.
    void dragHeight(double translation);
    bool isDraggingHeight() const { return isDraggingHeight_; }
    void endHeightDrag();

    // "06:30" for 6.5: whole hours and whole minutes, cut off.
    static std::string hourLabel(double hour);
    // Where the playhead stands on a strip `width` wide, kept 5 from either edge.
    static double playheadX(double hour, double width);

    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    void stop();

    document::AppState& appState_;
    AppUIState& uiState_;
    double previewHour_ = initialHour;
    double height_ = initialHeight;
    bool isDraggingHeight_ = false;
    platform::ObserverList<> changed_;
};

} // namespace lumivesper::shell
