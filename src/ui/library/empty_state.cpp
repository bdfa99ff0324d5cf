#include "ui/library/empty_state.h"

#include "ui/symbol_icons.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QVBoxLayout>

namespace lumivesper::ui {

EmptyState::EmptyState(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(12);
    layout->addStretch();

    auto* symbol = new QLabel(this);
    symbol->setPixmap(symbolIcon("photo.on.rectangle.angled").pixmap(64, 64));
    symbol->setAlignment(Qt::AlignCenter);
    symbol->setAccessibleName(QStringLiteral("Images"));
    layout->addWidget(symbol);

    auto* title = new QLabel(QStringLiteral("Drag images here"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setBold(true);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignCenter);
    layout->addWidget(title);

    auto* text = new QLabel(QStringLiteral("Import images to build a dynamic wallpaper."), this);
    text->setAlignment(Qt::AlignCenter);
    text->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(text);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* importButton = new QPushButton(symbolIcon("tray.and.arrow.down"),
                                         QStringLiteral("Import Images"), this);
    importButton->setAccessibleName(importButton->text());
    auto* generateButton =
        new QPushButton(symbolIcon("sparkles"), QStringLiteral("Generate Timeline"), this);
    generateButton->setAccessibleName(generateButton->text());
    buttons->addWidget(importButton);
    buttons->addWidget(generateButton);
    buttons->addStretch();
    layout->addLayout(buttons);
    layout->addStretch();

    connect(importButton, &QPushButton::clicked, this, &EmptyState::importRequested);
    connect(generateButton, &QPushButton::clicked, this, &EmptyState::generateRequested);
}

void EmptyState::setDropTargeted(bool targeted) {
    if (targeted == dropTargeted_)
        return;
    dropTargeted_ = targeted;
    update();
}

void EmptyState::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor colour = palette().color(dropTargeted_ ? QPalette::Highlight : QPalette::Mid);
    QPen pen(colour, dropTargeted_ ? 3 : 1.5, Qt::DashLine);
    painter.setPen(pen);
    if (dropTargeted_) {
        colour.setAlphaF(0.08f);
        painter.setBrush(colour);
    }
    painter.drawRoundedRect(QRectF(rect()).adjusted(24, 24, -24, -24), 16, 16);
}

} // namespace lumivesper::ui
