#include "ui/image_edit/image_edit_sheet.h"

#include "document/app_state.h"
#include "generation/image_edit_workflow.h"
#include "ui/library/preview_cache.h"
#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QAbstractTextDocumentLayout>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QSignalBlocker>
#include <QTextBlock>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

namespace lumivesper::ui {

namespace {

constexpr int minimumPromptLines = 3;
constexpr int maximumPromptLines = 6;

QLabel* frameLabel(const QString& accessibleName, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setFixedSize(ImageEditSheet::frameWidth, ImageEditSheet::frameHeight);
    label->setAlignment(Qt::AlignCenter);
    label->setAccessibleName(accessibleName);
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setAutoFillBackground(true);
    label->setBackgroundRole(QPalette::AlternateBase);
    return label;
}

// `image` fitted into the label's box with its aspect kept, corners rounded; or `note` while
// there is nothing to show.
void showInFrame(QLabel* label, const QImage& image, const QString& note) {
    if (image.isNull()) {
        label->setPixmap({});
        label->setText(note);
        return;
    }
    const qreal ratio = label->devicePixelRatioF();
    const QSize fitted = image.size().scaled(label->size(), Qt::KeepAspectRatio);
    const QSize pixels(std::max(1, static_cast<int>(std::lround(fitted.width() * ratio))),
                       std::max(1, static_cast<int>(std::lround(fitted.height() * ratio))));
    QPixmap rounded(pixels);
    rounded.fill(Qt::transparent);
    {
        QPainter painter(&rounded);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        QPainterPath clip;
        clip.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(pixels)), 6 * ratio, 6 * ratio);
        painter.setClipPath(clip);
        painter.drawImage(QRect(QPoint(0, 0), pixels),
                          image.scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    }
    rounded.setDevicePixelRatio(ratio);
    label->setText({});
    label->setPixmap(rounded);
}

QLabel* caption(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

} // namespace

ImageEditSheet::ImageEditSheet(document::AppState& appState, document::WallpaperImage imageToEdit,
                               platform::MainThread& mainThread, settings::Defaults& defaults,
                               PreviewCache& previews,
                               std::function<void(const generation::Bytes&)> onImageEdited,
                               QWidget* parent)
    : QDialog(parent), appState_(appState), previews_(previews),
      original_(generation::originalImage(appState)) {
    workflow_ = std::make_unique<generation::ImageEditWorkflow>(
        appState, std::move(imageToEdit), mainThread, defaults, std::move(onImageEdited),
        [this] { accept(); });
    setObjectName(QStringLiteral("imageEditSheet"));
    setWindowTitle(QStringLiteral("Edit Image with AI"));
    setModal(true);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 16);
    layout->setSpacing(14);
    layout->setSizeConstraint(QLayout::SetFixedSize); // the sheet fits what it shows

    auto* header = new QHBoxLayout;
    auto* heading = new QLabel(QStringLiteral("Edit Image with AI"), this);
    QFont headingFont = heading->font();
    headingFont.setWeight(QFont::DemiBold);
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.3);
    heading->setFont(headingFont);
    cancel_ = new QPushButton(QStringLiteral("Cancel"), this);
    cancel_->setAccessibleName(cancel_->text());
    cancel_->setAutoDefault(false);
    header->addWidget(heading);
    header->addStretch();
    header->addWidget(cancel_);
    layout->addLayout(header);

    auto* frames = new QHBoxLayout;
    frames->setSpacing(16);
    auto* originalColumn = new QVBoxLayout;
    originalColumn->setSpacing(6);
    originalColumn->addWidget(caption(QStringLiteral("Original"), this));
    originalFrame_ = frameLabel(QStringLiteral("Original"), this);
    originalColumn->addWidget(originalFrame_);
    auto* currentColumn = new QVBoxLayout;
    currentColumn->setSpacing(6);
    currentTitle_ = caption(QStringLiteral("Current"), this);
    currentColumn->addWidget(currentTitle_);
    currentFrame_ = frameLabel(QStringLiteral("Current"), this);
    currentColumn->addWidget(currentFrame_);
    frames->addLayout(originalColumn);
    frames->addLayout(currentColumn);
    layout->addLayout(frames);

    auto* promptLabel = new QLabel(QStringLiteral("What would you like to fix?"), this);
    prompt_ = new QPlainTextEdit(this);
    prompt_->setObjectName(QStringLiteral("editPrompt"));
    prompt_->setAccessibleName(promptLabel->text());
    prompt_->setPlaceholderText(QStringLiteral("e.g., Fix camera angle to match the original"));
    prompt_->setTabChangesFocus(true);
    prompt_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    prompt_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    prompt_->setStyleSheet(QStringLiteral(
        "QPlainTextEdit { border: 1px solid palette(mid); border-radius: 6px; padding: 4px; }"
        "QPlainTextEdit:focus { border-color: palette(highlight); }"));
    promptLabel->setBuddy(prompt_);
    auto* hint =
        new QLabel(QStringLiteral("Examples: \"Fix the camera angle\", \"Make the lighting "
                                  "warmer\", \"Remove the extra building\""),
                   this);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    QFont hintFont = hint->font();
    hintFont.setPointSizeF(hintFont.pointSizeF() * 0.9);
    hint->setFont(hintFont);
    auto* promptColumn = new QVBoxLayout;
    promptColumn->setSpacing(6);
    promptColumn->addWidget(promptLabel);
    promptColumn->addWidget(prompt_);
    promptColumn->addWidget(hint);
    layout->addLayout(promptColumn);

    // The status: progress while the model works, the failure when it did not. Its line is
    // kept when empty, so that the sheet does not jump as a request starts and ends.
    auto* status = new QWidget(this);
    auto* statusLayout = new QVBoxLayout(status);
    statusLayout->setContentsMargins(0, 0, 0, 0);
    progressRow_ = new QWidget(status);
    auto* progressLayout = new QHBoxLayout(progressRow_);
    progressLayout->setContentsMargins(0, 0, 0, 0);
    progressBar_ = new QProgressBar(progressRow_);
    progressBar_->setRange(0, 100);
    progressBar_->setTextVisible(false);
    progressBar_->setFixedWidth(200);
    progressMessage_ = new QLabel(progressRow_);
    progressBar_->setAccessibleName(QStringLiteral("Progress"));
    progressLayout->addWidget(progressBar_);
    progressLayout->addWidget(progressMessage_, 1);
    statusLayout->addWidget(progressRow_);

    errorRow_ = new QWidget(status);
    auto* errorLayout = new QHBoxLayout(errorRow_);
    errorLayout->setContentsMargins(0, 0, 0, 0);
    auto* errorIcon = new QLabel(errorRow_);
    const int iconSide = errorIcon->fontMetrics().height();
    errorIcon->setPixmap(symbolIcon("exclamationmark.triangle.fill").pixmap(iconSide, iconSide));
    errorIcon->setAlignment(Qt::AlignTop);
    errorText_ = new QLabel(errorRow_);
    errorText_->setWordWrap(true);
    errorText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    errorText_->setStyleSheet(QStringLiteral("color: #c0392b"));
    errorLayout->addWidget(errorIcon, 0, Qt::AlignTop);
    errorLayout->addWidget(errorText_, 1);
    statusLayout->addWidget(errorRow_);
    status->setMinimumHeight(progressRow_->sizeHint().height());
    layout->addWidget(status);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    discard_ = new QPushButton(QStringLiteral("Discard Changes"), this);
    discard_->setAccessibleName(discard_->text());
    discard_->setAutoDefault(false);
    primary_ = new QPushButton(QStringLiteral("Generate Fix"), this);
    primary_->setDefault(true);
    primary_->setToolTip(QStringLiteral("Ctrl+Return"));
    buttons->addWidget(discard_);
    buttons->addWidget(primary_);
    layout->addLayout(buttons);

    // Return writes a line in the prompt; Ctrl+Return presses the primary button from anywhere.
    for (const auto& keys :
         {QKeySequence(Qt::CTRL | Qt::Key_Return), QKeySequence(Qt::CTRL | Qt::Key_Enter)}) {
        auto* shortcut = new QShortcut(keys, this);
        connect(shortcut, &QShortcut::activated, primary_, [this] {
            if (primary_->isEnabled())
                primary_->click();
        });
    }
    connect(cancel_, &QPushButton::clicked, this, &QDialog::reject);
    connect(discard_, &QPushButton::clicked, this, [this] { workflow_->discardChanges(); });
    connect(primary_, &QPushButton::clicked, this, [this] { workflow_->pressPrimary(); });
    connect(prompt_, &QPlainTextEdit::textChanged, this, [this] {
        workflow_->setEditPrompt(toStdString(prompt_->toPlainText()));
        fitPromptHeight();
    });
    connect(&previews_, &PreviewCache::previewReady, this, &ImageEditSheet::refreshImages);
    subscription_ = workflow_->observe([this] { refresh(); });

    fitPromptHeight();
    refresh();
    refreshImages();
    prompt_->setFocus();
}

ImageEditSheet::~ImageEditSheet() {
    subscription_ = {};
    workflow_.reset(); // stops a request still running before the widgets go
}

void ImageEditSheet::fitPromptHeight() {
    // The field grows with its text from three lines to six, then scrolls.
    int lines = 0;
    for (QTextBlock block = prompt_->document()->begin(); block.isValid(); block = block.next())
        lines += std::max(1, block.layout() ? block.layout()->lineCount() : 1);
    lines = std::clamp(lines, minimumPromptLines, maximumPromptLines);
    const QMargins margins = prompt_->contentsMargins();
    const int frame = 2 * static_cast<int>(prompt_->document()->documentMargin()) + margins.top() +
                      margins.bottom() + 2 * prompt_->frameWidth() + 8;
    prompt_->setFixedHeight(lines * prompt_->fontMetrics().lineSpacing() + frame);
}

void ImageEditSheet::refresh() {
    const auto& state = workflow_->state();
    primary_->setText(toQString(workflow_->primaryButtonTitle()));
    primary_->setAccessibleName(primary_->text());
    primary_->setEnabled(workflow_->isPrimaryEnabled());
    discard_->setVisible(workflow_->showsDiscard());
    prompt_->setReadOnly(state.isGenerating);

    progressRow_->setVisible(state.isGenerating);
    progressBar_->setValue(static_cast<int>(std::lround(state.progress * 100)));
    progressMessage_->setText(toQString(state.progressMessage));
    errorRow_->setVisible(state.errorMessage.has_value());
    errorText_->setText(toQString(state.errorMessage.value_or(std::string())));
    // Typing changes the state too; the frames are redrawn only when the answer comes or goes.
    const bool answered = state.generatedPreview.has_value();
    if (answered != showsAnswer_ || state.generatedPreviewImage.get() != shownAnswerImage_) {
        showsAnswer_ = answered;
        shownAnswerImage_ = state.generatedPreviewImage.get();
        refreshImages();
    }
}

const document::WallpaperImage& ImageEditSheet::shown(const document::WallpaperImage& copy) const {
    // The library keeps the previews it makes in the record; asking with an older copy would
    // make them again.
    const document::WallpaperImage* live = appState_.image(copy.id);
    return live ? *live : copy;
}

void ImageEditSheet::refreshImages() {
    const auto& state = workflow_->state();
    if (original_)
        showInFrame(originalFrame_, previews_.full(shown(*original_)),
                    QStringLiteral("Loading..."));
    else
        showInFrame(originalFrame_, {}, QStringLiteral("No reference image"));

    const QString title = toQString(workflow_->currentImageTitle());
    currentTitle_->setText(title);
    currentFrame_->setAccessibleName(title);
    if (state.generatedPreviewImage) {
        showInFrame(currentFrame_, PreviewCache::paintable(*state.generatedPreviewImage), {});
    } else if (state.generatedPreview) {
        showInFrame(currentFrame_, {}, QStringLiteral("The edited image cannot be shown"));
    } else {
        showInFrame(currentFrame_, previews_.full(shown(workflow_->imageToEdit())),
                    QStringLiteral("Loading..."));
    }
}

} // namespace lumivesper::ui
