#include "ui/timeline/transport.h"

#include "shell/timeline_playback.h"
#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace lumivesper::ui {

namespace {

QToolButton* transportButton(const QString& label, const std::string& symbol, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(symbolIcon(symbol));
    button->setIconSize(QSize(13, 13));
    button->setToolTip(label);
    button->setAccessibleName(label);
    button->setAutoRaise(true);
    return button;
}

} // namespace

Transport::Transport(QWidget* parent) : QWidget(parent) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 2, 8, 2);
    start_ = transportButton(QStringLiteral("Go to start"), "backward.end.fill", this);
    play_ = transportButton(QStringLiteral("Play"), "play.fill", this);
    end_ = transportButton(QStringLiteral("Go to end"), "forward.end.fill", this);
    hour_ = new QLabel(this);
    hour_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    // Read out as its text, the time at the playhead; the description says what the time is.
    hour_->setAccessibleDescription(QStringLiteral("Hour at the playhead"));
    layout->addWidget(start_);
    layout->addWidget(play_);
    layout->addWidget(end_);
    layout->addStretch();
    layout->addWidget(hour_);
    connect(start_, &QToolButton::clicked, this, &Transport::goToStart);
    connect(play_, &QToolButton::clicked, this, &Transport::togglePlaying);
    connect(end_, &QToolButton::clicked, this, &Transport::goToEnd);
}

void Transport::setState(bool playing, double hour) {
    const QString label = playing ? QStringLiteral("Pause") : QStringLiteral("Play");
    play_->setIcon(symbolIcon(playing ? "pause.fill" : "play.fill"));
    play_->setToolTip(label);
    play_->setAccessibleName(label);
    hour_->setText(toQString(shell::TimelinePlayback::hourLabel(hour)));
}

} // namespace lumivesper::ui
