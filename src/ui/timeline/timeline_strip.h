#pragma once

#include "platform/observer_list.h"

#include <QTimer>
#include <QWidget>

namespace lumivesper::shell {
class TimelinePlayback;
}

namespace lumivesper::ui {

class AppStateBridge;
class LibraryView;
class Playhead;
class PreviewCache;
class Transport;

// The day under the library, in time mode with images: a row of frames from 00:00 to 24:00 with
// the playhead, the transport and the hour, and a bar on top that resizes it. Pressing or
// dragging on the frames moves the playhead and selects the image under it; while playing, a
// 0.1 s timer moves it on.
class TimelineStrip final : public QWidget {
    Q_OBJECT

public:
    TimelineStrip(shell::TimelinePlayback& playback, AppStateBridge& bridge,
                  PreviewCache& previews, QWidget* parent = nullptr);
    // The strip of the window's library.
    explicit TimelineStrip(LibraryView& library, QWidget* parent = nullptr);

    QWidget* frameRow() const { return frames_; }
    QWidget* resizeBar() const { return resizeBar_; }
    Transport* transport() const { return transport_; }
    const QTimer& playbackTimer() const { return timer_; }

protected:
    void hideEvent(QHideEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void refresh();
    void placePlayhead();

    shell::TimelinePlayback& playback_;
    AppStateBridge& bridge_;
    QWidget* resizeBar_;
    QWidget* frames_;
    Playhead* playhead_;
    Transport* transport_;
    QTimer timer_;
    platform::Subscription subscription_;
};

} // namespace lumivesper::ui
