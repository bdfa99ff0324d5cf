#include "ui/library/single_image_view.h"

#include "document/app_state.h"
#include "shell/tween_workflow.h"
#include "ui/library/app_state_bridge.h"
#include "ui/library/image_cell_delegate.h"
#include "ui/library/image_list_model.h"
#include "ui/library/preview_cache.h"
#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace lumivesper::ui {

namespace {
constexpr int margin = 24;
constexpr int footerHeight = 72;
} // namespace

SingleImageView::SingleImageView(AppStateBridge& bridge, PreviewCache& previews,
                                 shell::TweenWorkflow& tweens, QWidget* parent)
    : QWidget(parent), bridge_(bridge), previews_(previews), tweens_(tweens) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(margin, margin, margin, 12);

    unavailable_ = new QWidget(this);
    auto* unavailableLayout = new QVBoxLayout(unavailable_);
    auto* symbol = new QLabel(unavailable_);
    symbol->setPixmap(symbolIcon("photo").pixmap(48, 48));
    symbol->setAlignment(Qt::AlignCenter);
    auto* title = new QLabel(QStringLiteral("No Selection"), unavailable_);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignCenter);
    auto* text = new QLabel(QStringLiteral("Select an image to preview it here"), unavailable_);
    text->setAlignment(Qt::AlignCenter);
    text->setForegroundRole(QPalette::PlaceholderText);
    unavailableLayout->addStretch();
    unavailableLayout->addWidget(symbol);
    unavailableLayout->addWidget(title);
    unavailableLayout->addWidget(text);
    unavailableLayout->addStretch();
    layout->addWidget(unavailable_, 1);

    layout->addStretch();
    caption_ = new QLabel(this);
    caption_->setAlignment(Qt::AlignCenter);
    QFont captionFont = caption_->font();
    captionFont.setPointSizeF(captionFont.pointSizeF() * 1.2);
    caption_->setFont(captionFont);
    layout->addWidget(caption_);

    tweenButton_ = new QPushButton(symbolIcon("plus.circle"),
                                   QStringLiteral("Generate Tweens..."), this);
    tweenButton_->setAccessibleName(tweenButton_->text());
    layout->addWidget(tweenButton_, 0, Qt::AlignHCenter);
    connect(tweenButton_, &QPushButton::clicked, this, [this] {
        if (const auto image = bridge_.appState().selectedImage())
            tweens_.openFor(image->id);
    });

    connect(&bridge_, &AppStateBridge::documentChanged, this, &SingleImageView::refresh);
    connect(&previews_, &PreviewCache::previewReady, this, [this] { update(); });
    refresh();
}

void SingleImageView::refresh() {
    const auto& state = bridge_.appState();
    const auto image = state.selectedImage();
    unavailable_->setVisible(!image);
    caption_->setVisible(image.has_value());
    tweenButton_->setVisible(image && shell::canGenerateTweens(state.images(), image->id));
    if (image)
        caption_->setText(toQString(image->fileName) + QStringLiteral("  ·  ") +
                          imageCaption(*image, state.mode() == document::WallpaperMode::time));
    update();
}

void SingleImageView::paintEvent(QPaintEvent*) {
    const auto image = bridge_.appState().selectedImage();
    if (!image)
        return;
    QPainter painter(this);
    const QRectF area = QRectF(rect()).adjusted(margin, margin, -margin, -footerHeight - margin);
    paintPreview(painter, area, previews_.full(*image), palette());
}

} // namespace lumivesper::ui
