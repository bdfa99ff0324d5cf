#include "ui/inspector/mode_picker.h"

#include <QButtonGroup>
#include <QEvent>
#include <QHBoxLayout>
#include <QPushButton>

namespace lumivesper::ui {

namespace {

QPushButton* segment(const QString& text, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setCheckable(true);
    button->setAccessibleName(text);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    return button;
}

} // namespace

ModePicker::ModePicker(QWidget* parent) : QWidget(parent) {
    setAccessibleName(QStringLiteral("Mode"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0); // the two halves touch, as one control
    time_ = segment(QStringLiteral("Time"), this);
    appearance_ = segment(QStringLiteral("Appearance"), this);
    row->addWidget(time_);
    row->addWidget(appearance_);

    group_ = new QButtonGroup(this);
    group_->setExclusive(true);
    group_->addButton(time_);
    group_->addButton(appearance_);
    connect(group_, &QButtonGroup::buttonClicked, this, [this](QAbstractButton* pressed) {
        markChosen();
        emit modeChosen(pressed == time_ ? document::WallpaperMode::time
                                         : document::WallpaperMode::appearance);
    });
}

void ModePicker::setMode(document::WallpaperMode mode) {
    button(mode)->setChecked(true);
    markChosen();
}

void ModePicker::markChosen() {
    // A pressed button alone is hard to tell from a raised one in some palettes: the chosen half
    // takes the selection colour.
    for (QPushButton* half : {time_, appearance_}) {
        QPalette colours = palette();
        if (half->isChecked()) {
            colours.setColor(QPalette::Button, colours.color(QPalette::Highlight));
            colours.setColor(QPalette::ButtonText, colours.color(QPalette::HighlightedText));
        }
        half->setPalette(colours);
    }
}

void ModePicker::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        markChosen();
}

QPushButton* ModePicker::button(document::WallpaperMode mode) const {
    return mode == document::WallpaperMode::time ? time_ : appearance_;
}

} // namespace lumivesper::ui
