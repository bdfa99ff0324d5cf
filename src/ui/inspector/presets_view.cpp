#include "ui/inspector/presets_view.h"

#include "shell/inspector_model.h"
#include "ui/inspector/adaptive_grid_layout.h"
#include "ui/inspector/inspector_text.h"
#include "ui/inspector/preset_icons.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

namespace lumivesper::ui {

namespace {

constexpr int minimumColumnWidth = 100;
constexpr int buttonSpacing = 8;

QString text(std::string_view view) {
    return QString::fromUtf8(view.data(), static_cast<qsizetype>(view.size()));
}

} // namespace

PresetsView::PresetsView(shell::InspectorModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);
    column->addWidget(inspector_text::heading(QStringLiteral("Presets"), this));
    buttonArea_ = new QWidget(this);
    column->addWidget(buttonArea_);
    refresh();
}

QList<QToolButton*> PresetsView::buttons() const {
    return buttonArea_->findChildren<QToolButton*>(Qt::FindDirectChildrenOnly);
}

void PresetsView::refresh() {
    if (shownMode_ != model_.mode())
        rebuild();
}

void PresetsView::rebuild() {
    shownMode_ = model_.mode();
    qDeleteAll(buttons());
    delete buttonArea_->layout();

    const bool grid = *shownMode_ == document::WallpaperMode::time;
    QLayout* layout = nullptr;
    if (grid) {
        layout = new AdaptiveGridLayout(minimumColumnWidth, buttonSpacing, buttonArea_);
    } else {
        auto* row = new QHBoxLayout(buttonArea_);
        row->setContentsMargins(0, 0, 0, 0);
        row->setSpacing(buttonSpacing);
        layout = row;
    }

    for (const sun::PresetButton& preset : model_.presets()) {
        auto* button = new QToolButton(buttonArea_);
        button->setText(text(preset.title));
        button->setIcon(presetIcon(preset, palette()));
        button->setIconSize(grid ? QSize(28, 28) : QSize(20, 20));
        button->setToolButtonStyle(grid ? Qt::ToolButtonTextUnderIcon
                                        : Qt::ToolButtonTextBesideIcon);
        button->setAutoRaise(false); // bordered
        button->setToolTip(preset.helpText ? text(*preset.helpText) : QString());
        button->setAccessibleName(button->text());
        button->setAccessibleDescription(button->toolTip());
        button->setProperty("iconName", preset.iconName ? text(*preset.iconName) : QString());
        if (grid)
            button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        connect(button, &QToolButton::clicked, this,
                [this, &preset] { model_.applyPreset(preset); });
        layout->addWidget(button);
    }
    if (!grid)
        static_cast<QHBoxLayout*>(layout)->addStretch();
}

void PresetsView::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    // The drawings take their line colour from the palette: draw them anew for a new one.
    if (event->type() == QEvent::PaletteChange) {
        shownMode_.reset();
        refresh();
    }
}

} // namespace lumivesper::ui
