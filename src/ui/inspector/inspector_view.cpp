#include "ui/inspector/inspector_view.h"

#include "shell/inspector_model.h"
#include "shell/solar_position_service.h"
#include "ui/inspector/inspector_text.h"
#include "ui/inspector/metadata_editor.h"
#include "ui/inspector/mode_picker.h"
#include "ui/inspector/presets_view.h"
#include "ui/inspector/sun_preview.h"
#include "ui/symbol_icons.h"

#include <QLabel>
#include <QScrollBar>
#include <QVBoxLayout>

namespace lumivesper::ui {

namespace {

constexpr int sectionSpacing = 20;
constexpr int padding = 16;

} // namespace

InspectorView::InspectorView(document::AppState& appState, platform::MainThread& mainThread,
                             std::unique_ptr<shell::LocationManager> locationManager,
                             QWidget* parent)
    : QScrollArea(parent), model_(std::make_unique<shell::InspectorModel>(appState, mainThread)) {
    setObjectName(QStringLiteral("inspector"));
    setAccessibleName(QStringLiteral("Inspector"));
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    // One of the two pages shows at a time; a hidden one takes no room, so the panel scrolls only
    // for the page it shows.
    auto* pages = new QWidget;
    auto* pageLayout = new QVBoxLayout(pages);
    pageLayout->setContentsMargins(0, 0, 0, 0);
    placeholder_ = makePlaceholder(pages);
    pageLayout->addWidget(placeholder_);

    content_ = new QWidget(pages);
    auto* column = new QVBoxLayout(content_);
    column->setContentsMargins(padding, padding, padding, padding);
    column->setSpacing(sectionSpacing);

    auto* modeSection = new QVBoxLayout;
    modeSection->setSpacing(12);
    modeSection->addWidget(inspector_text::heading(QStringLiteral("Mode"), content_));
    modePicker_ = new ModePicker(content_);
    modeSection->addWidget(modePicker_);
    column->addLayout(modeSection);
    column->addWidget(inspector_text::divider(content_));
    presets_ = new PresetsView(*model_, content_);
    column->addWidget(presets_);
    column->addWidget(inspector_text::divider(content_));
    editor_ = new ImageMetadataEditor(*model_, content_);
    column->addWidget(editor_);
    sunDivider_ = inspector_text::divider(content_);
    column->addWidget(sunDivider_);
    sunPreview_ = new SunPreview(appState, std::move(locationManager), content_);
    column->addWidget(sunPreview_);
    column->addStretch();
    pageLayout->addWidget(content_);
    setWidget(pages);

    connect(modePicker_, &ModePicker::modeChosen, this,
            [this](document::WallpaperMode mode) { model_->chooseMode(mode); });
    changes_ = model_->observe([this] { refresh(); });
    refresh();
}

InspectorView::~InspectorView() = default;

QWidget* InspectorView::makePlaceholder(QWidget* parent) {
    auto* page = new QWidget(parent);
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(padding, padding, padding, padding);
    column->setSpacing(8);
    column->addStretch();

    auto* symbol = new QLabel(page);
    symbol->setPixmap(symbolIcon("cursorarrow").pixmap(48, 48));
    symbol->setAlignment(Qt::AlignCenter);
    symbol->setEnabled(false); // quiet, like the text under it
    column->addWidget(symbol);

    auto* title = new QLabel(QStringLiteral("No Selection"), page);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.3);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignCenter);
    title->setAccessibleName(title->text());
    column->addWidget(title);

    QLabel* description =
        inspector_text::secondary(QStringLiteral("Select an image to edit its metadata"), page);
    description->setAlignment(Qt::AlignCenter);
    description->setWordWrap(true);
    column->addWidget(description);
    column->addStretch();
    return page;
}

QSize InspectorView::minimumSizeHint() const {
    const int width = widget()->minimumSizeHint().width() +
                      verticalScrollBar()->sizeHint().width() + 2 * frameWidth();
    return {width, QScrollArea::minimumSizeHint().height()};
}

void InspectorView::refresh() {
    const bool selected = model_->hasSelection();
    placeholder_->setVisible(!selected);
    content_->setVisible(selected);
    if (!selected)
        return;
    modePicker_->setMode(model_->mode());
    presets_->refresh();
    editor_->refresh();
    const bool sun = model_->showsSunPreview();
    sunDivider_->setVisible(sun);
    sunPreview_->setVisible(sun);
    updateGeometry();
}

} // namespace lumivesper::ui
