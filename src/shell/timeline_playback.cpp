#include "shell/timeline_playback.h"

#include "document/app_state.h"
#include "document/timeline.h"
#include "shell/app_ui_state.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace lumivesper::shell {

TimelinePlayback::TimelinePlayback(document::AppState& appState, AppUIState& uiState)
    : appState_(appState), uiState_(uiState) {}

bool TimelinePlayback::isAvailable() const {
    return appState_.mode() == document::WallpaperMode::time && !appState_.images().empty();
}

void TimelinePlayback::setPreviewHour(double hour) {
    previewHour_ = hour;
    if (auto image = document::timelineImage(hour, appState_.images()))
        appState_.selectImage(image->id);
    changed_.notify();
}

void TimelinePlayback::scrub(double x, double width) {
    if (width <= 0)
        return;
    setPreviewHour(std::clamp(x, 0.0, width) / width * 24.0);
}

void TimelinePlayback::stop() {
    uiState_.setTimelinePlaying(false);
}

void TimelinePlayback::goToStart() {
    setPreviewHour(0.0);
    stop();
}

void TimelinePlayback::goToEnd() {
    setPreviewHour(24.0);
    stop();
}

void TimelinePlayback::togglePlaying() {
    uiState_.setTimelinePlaying(!uiState_.isTimelinePlaying());
}

void TimelinePlayback::tick() {
    const double next = previewHour_ + hoursPerTick;
    setPreviewHour(next >= 24.0 ? 0.0 : next);
}

void TimelinePlayback::dragHeight(double translation) {
    isDraggingHeight_ = true;
    // From the present height, not the height at the drag's start: the strip runs ahead of the
    // pointer, as the original does.
    height_ = std::clamp(height_ - translation, minimumHeight, maximumHeight);
    changed_.notify();
}

void TimelinePlayback::endHeightDrag() {
    isDraggingHeight_ = false;
    changed_.notify();
}

std::string TimelinePlayback::hourLabel(double hour) {
    const int hours = static_cast<int>(hour);
    const int minutes = static_cast<int>((hour - hours) * 60.0);
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d", hours, minutes);
    return text;
}

double TimelinePlayback::playheadX(double hour, double width) {
    const double x = width * hour / 24.0;
    return std::clamp(x, 5.0, std::max(width - 5.0, 5.0));
}

} // namespace lumivesper::shell
