#include "ui/timeline/timeline_strip.h"

#include "document/app_state.h"
#include "shell/app_ui_state.h"
#include "shell/timeline_playback.h"
#include "ui/library/app_state_bridge.h"
#include "ui/library/image_cell_delegate.h"
#include "ui/library/library_view.h"
#include "ui/library/preview_cache.h"
#include "ui/symbol_icons.h"
#include "ui/timeline/playhead.h"
#include "ui/timeline/transport.h"

#include <QMouseEvent>
#include <QPainter>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>

namespace lumivesper::ui {

namespace {

constexpr int minimumDragDistance = 10;

// The bar on top of the strip: drag it up to make the timeline taller.
class ResizeBar final : public QWidget {
public:
    explicit ResizeBar(shell::TimelinePlayback& playback, QWidget* parent)
        : QWidget(parent), playback_(playback) {
        setFixedHeight(4);
        setCursor(Qt::SizeVerCursor);
        setAccessibleName(QStringLiteral("Resize timeline"));
        setToolTip(accessibleName());
    }

protected:
    void mousePressEvent(QMouseEvent* event) override {
        start_ = event->globalPosition().y();
    }
    void mouseMoveEvent(QMouseEvent* event) override {
        if (!start_)
            return;
        const double translation = event->globalPosition().y() - *start_;
        if (!dragging_ && std::abs(translation) < minimumDragDistance)
            return;
        dragging_ = true;
        playback_.dragHeight(translation);
    }
    void mouseReleaseEvent(QMouseEvent*) override {
        start_.reset();
        if (std::exchange(dragging_, false))
            playback_.endHeightDrag();
    }
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        QColor colour = palette().color(QPalette::Highlight);
        if (!playback_.isDraggingHeight()) {
            colour = palette().color(QPalette::WindowText);
            colour.setAlphaF(0.3f);
        }
        painter.fillRect(rect(), colour);
    }

private:
    shell::TimelinePlayback& playback_;
    std::optional<double> start_;
    bool dragging_ = false;
};

// One cell per image, evenly over the day; a press or drag scrubs.
class FrameRow final : public QWidget {
public:
    FrameRow(shell::TimelinePlayback& playback, AppStateBridge& bridge, PreviewCache& previews,
             QWidget* parent)
        : QWidget(parent), playback_(playback), bridge_(bridge), previews_(previews) {
        setAccessibleName(QStringLiteral("Timeline"));
        setMinimumHeight(24);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    }

protected:
    void mousePressEvent(QMouseEvent* event) override { scrub(event); }
    void mouseMoveEvent(QMouseEvent* event) override {
        if (event->buttons() & Qt::LeftButton)
            scrub(event);
    }
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        const auto& images = bridge_.appState().images();
        const double cellWidth =
            static_cast<double>(width()) / static_cast<double>(std::max<std::size_t>(images.size(), 1));
        for (std::size_t i = 0; i < images.size(); ++i) {
            const QRectF cell(cellWidth * static_cast<double>(i), 0, cellWidth, height());
            const QImage preview = previews_.icon(images[i]);
            if (preview.isNull()) {
                QColor faint = palette().color(QPalette::WindowText);
                faint.setAlphaF(0.2f);
                painter.fillRect(cell, faint);
                symbolIcon("photo").paint(&painter, cell.toRect().adjusted(4, 4, -4, -4));
                continue;
            }
            // Fills its cell, cropped to it.
            painter.save();
            painter.setClipRect(cell);
            QSize size = preview.size();
            size.scale(cell.size().toSize() + QSize(1, 1), Qt::KeepAspectRatioByExpanding);
            painter.drawPixmap(QPointF(cell.center().x() - size.width() / 2.0,
                                       cell.center().y() - size.height() / 2.0),
                               PreviewCache::scaled(preview, size));
            painter.restore();
        }
    }

private:
    void scrub(QMouseEvent* event) { playback_.scrub(event->position().x(), width()); }

    shell::TimelinePlayback& playback_;
    AppStateBridge& bridge_;
    PreviewCache& previews_;
};

} // namespace

TimelineStrip::TimelineStrip(shell::TimelinePlayback& playback, AppStateBridge& bridge,
                             PreviewCache& previews, QWidget* parent)
    : QWidget(parent), playback_(playback), bridge_(bridge) {
    setAccessibleName(QStringLiteral("Timeline"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    resizeBar_ = new ResizeBar(playback_, this);
    frames_ = new FrameRow(playback_, bridge_, previews, this);
    playhead_ = new Playhead(frames_);
    transport_ = new Transport(this);
    layout->addWidget(resizeBar_);
    layout->addWidget(frames_, 1);
    layout->addWidget(transport_);

    timer_.setInterval(static_cast<int>(shell::TimelinePlayback::tickSeconds * 1000));
    connect(&timer_, &QTimer::timeout, this, [this] { playback_.tick(); });
    connect(transport_, &Transport::goToStart, this, [this] { playback_.goToStart(); });
    connect(transport_, &Transport::goToEnd, this, [this] { playback_.goToEnd(); });
    connect(transport_, &Transport::togglePlaying, this, [this] { playback_.togglePlaying(); });
    connect(&bridge_, &AppStateBridge::documentChanged, this, &TimelineStrip::refresh);
    connect(&bridge_, &AppStateBridge::windowStateChanged, this, &TimelineStrip::refresh);
    connect(&previews, &PreviewCache::previewReady, frames_, qOverload<>(&QWidget::update));
    subscription_ = playback_.observe([this] { refresh(); });
    refresh();
}

TimelineStrip::TimelineStrip(LibraryView& library, QWidget* parent)
    : TimelineStrip(library.playback(), library.bridge(), library.previews(), parent) {}

void TimelineStrip::refresh() {
    const bool available = playback_.isAvailable();
    if (!available && bridge_.uiState().isTimelinePlaying())
        bridge_.uiState().setTimelinePlaying(false);
    setVisible(available);
    setFixedHeight(static_cast<int>(playback_.height()));

    const bool playing = bridge_.uiState().isTimelinePlaying();
    // The timer runs exactly while playing.
    if (playing && !timer_.isActive())
        timer_.start();
    else if (!playing && timer_.isActive())
        timer_.stop();

    transport_->setState(playing, playback_.previewHour());
    placePlayhead();
    frames_->update();
    resizeBar_->update();
}

void TimelineStrip::placePlayhead() {
    playhead_->placeAt(
        shell::TimelinePlayback::playheadX(playback_.previewHour(), frames_->width()));
}

void TimelineStrip::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    placePlayhead();
}

void TimelineStrip::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    if (!event->spontaneous())
        bridge_.uiState().setTimelinePlaying(false);
}

} // namespace lumivesper::ui
