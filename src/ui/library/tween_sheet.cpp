#include "ui/library/tween_sheet.h"

#include "shell/tween_workflow.h"
#include "ui/library/preview_cache.h"
#include "ui/qt_text.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <cmath>

namespace lumivesper::ui {

namespace {

QLabel* previewLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setFixedSize(200, 113);
    label->setAlignment(Qt::AlignCenter);
    label->setFrameShape(QFrame::StyledPanel);
    return label;
}

void showPreview(QLabel* label, const QImage& image) {
    if (image.isNull()) {
        label->setPixmap({});
        return;
    }
    label->setPixmap(QPixmap::fromImage(
        image.scaled(label->size(), Qt::KeepAspectRatio, Qt::SmoothTransformation)));
}

} // namespace

TweenSheet::TweenSheet(shell::TweenWorkflow& workflow, PreviewCache& previews, QWidget* parent)
    : QDialog(parent), workflow_(workflow), previews_(previews) {
    setWindowTitle(QStringLiteral("Generate Tween Frames"));
    setModal(true);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(14);

    auto* title = new QLabel(QStringLiteral("Generate Tween Frames"), this);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.3);
    title->setFont(titleFont);
    layout->addWidget(title);

    pages_ = new QStackedWidget(this);
    layout->addWidget(pages_);

    // The settings, while nothing runs.
    auto* settings = new QWidget(pages_);
    auto* settingsLayout = new QVBoxLayout(settings);
    settingsLayout->setContentsMargins(0, 0, 0, 0);
    pair_ = new QWidget(settings);
    auto* pairLayout = new QHBoxLayout(pair_);
    pairLayout->setContentsMargins(0, 0, 0, 0);
    sourcePreview_ = previewLabel(pair_);
    targetPreview_ = previewLabel(pair_);
    sourcePreview_->setAccessibleName(QStringLiteral("Source image"));
    targetPreview_->setAccessibleName(QStringLiteral("Target image"));
    pairLayout->addWidget(sourcePreview_);
    auto* arrow = new QLabel(QStringLiteral("→"), pair_);
    pairLayout->addWidget(arrow);
    pairLayout->addWidget(targetPreview_);
    settingsLayout->addWidget(pair_);

    auto* countRow = new QHBoxLayout;
    auto* countLabel = new QLabel(QStringLiteral("Number of frames:"), settings);
    slider_ = new QSlider(Qt::Horizontal, settings);
    slider_->setRange(1, shell::TweenWorkflow::sliderMaximum);
    slider_->setSingleStep(1);
    slider_->setAccessibleName(QStringLiteral("Number of frames:"));
    field_ = new QSpinBox(settings);
    field_->setRange(1, 999); // the field takes more than the slider shows
    field_->setFixedWidth(80);
    field_->setAccessibleName(QStringLiteral("Count"));
    field_->setToolTip(QStringLiteral("Count"));
    countLabel->setBuddy(slider_);
    countRow->addWidget(countLabel);
    countRow->addWidget(slider_, 1);
    countRow->addWidget(field_);
    settingsLayout->addLayout(countRow);
    explanation_ = new QLabel(settings);
    explanation_->setWordWrap(true);
    explanation_->setForegroundRole(QPalette::PlaceholderText);
    settingsLayout->addWidget(explanation_);
    failure_ = new QLabel(settings);
    failure_->setWordWrap(true);
    failure_->setStyleSheet(QStringLiteral("color: #c0392b"));
    settingsLayout->addWidget(failure_);
    pages_->addWidget(settings);

    // The progress, while a run goes on.
    auto* running = new QWidget(pages_);
    // In the middle of the room the settings leave, where the eye already is.
    auto* runningLayout = new QVBoxLayout(running);
    runningLayout->addStretch();
    auto* runningTitle = new QLabel(QStringLiteral("Generating tweens..."), running);
    runningTitle->setAlignment(Qt::AlignCenter);
    runningLayout->addWidget(runningTitle);
    auto* progressRow = new QHBoxLayout;
    progressRow->addStretch();
    progressBar_ = new QProgressBar(running);
    progressBar_->setRange(0, 1000);
    progressBar_->setTextVisible(false);
    progressBar_->setFixedWidth(300);
    progressBar_->setAccessibleName(QStringLiteral("Generating tweens..."));
    percent_ = new QLabel(running);
    progressRow->addWidget(progressBar_);
    progressRow->addWidget(percent_);
    progressRow->addStretch();
    runningLayout->addLayout(progressRow);
    runningLayout->addStretch();
    pages_->addWidget(running);

    auto* buttons = new QDialogButtonBox(this);
    cancel_ = buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    generate_ = buttons->addButton(QStringLiteral("Generate"), QDialogButtonBox::AcceptRole);
    cancel_->setAccessibleName(cancel_->text());
    generate_->setAccessibleName(generate_->text());
    generate_->setDefault(true);
    layout->addWidget(buttons);

    connect(slider_, &QSlider::valueChanged, this,
            [this](int value) { workflow_.setTweenCount(value); });
    connect(field_, &QSpinBox::valueChanged, this,
            [this](int value) { workflow_.setTweenCount(value); });
    connect(cancel_, &QPushButton::clicked, this, &TweenSheet::reject);
    connect(generate_, &QPushButton::clicked, this, [this] { workflow_.generate(); });
    connect(&previews_, &PreviewCache::previewReady, this, &TweenSheet::refresh);
    subscription_ = workflow_.observe([this] { refresh(); });
    refresh();
}

void TweenSheet::reject() {
    workflow_.cancel(); // the workflow closes the sheet; a started run goes on
}

void TweenSheet::refresh() {
    const QSignalBlocker sliderBlocker(slider_);
    const QSignalBlocker fieldBlocker(field_);
    slider_->setValue(std::min(workflow_.tweenCount(), shell::TweenWorkflow::sliderMaximum));
    field_->setValue(workflow_.tweenCount());
    explanation_->setText(toQString(workflow_.explanation()));
    failure_->setText(toQString(workflow_.failure()));
    failure_->setVisible(!workflow_.failure().empty());

    const auto source = workflow_.sourceImage();
    const auto target = workflow_.targetImage();
    pair_->setVisible(!workflow_.isAutoMode() && source && target);
    if (source && target) {
        showPreview(sourcePreview_, previews_.icon(*source));
        showPreview(targetPreview_, previews_.icon(*target));
    }

    pages_->setCurrentIndex(workflow_.isGenerating() ? 1 : 0);
    const int permille = static_cast<int>(std::lround(workflow_.progress() * 1000));
    progressBar_->setValue(permille);
    percent_->setText(QString::number(static_cast<int>(workflow_.progress() * 100)) +
                      QStringLiteral("%"));
    generate_->setEnabled(!workflow_.isGenerating());

    if (workflow_.isSheetShown() && !isVisible())
        open();
    else if (!workflow_.isSheetShown() && isVisible())
        hide();
}

} // namespace lumivesper::ui
