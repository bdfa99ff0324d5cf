#include "ui/export/export_sheet.h"

#include "export/upscale/model_location.h"
#include "shell/app_ui_state.h"
#include "shell/export_driver.h"
#include "shell/export_sheet_model.h"
#include "ui/disclosure_button.h"
#include "ui/export/frame_progress_grid.h"
#include "ui/qt_text.h"
#include "ui/sheet_labels.h"
#include "ui/symbol_icons.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

namespace lumivesper::ui {

using exporting::HeicCanvasPreset;
using exporting::HeicExportOptions;

namespace {

constexpr HeicCanvasPreset canvasPresets[] = {HeicCanvasPreset::matchSource,
                                              HeicCanvasPreset::apple8k, HeicCanvasPreset::apple6k,
                                              HeicCanvasPreset::custom};

QString text(std::string_view view) {
    return toQString(std::string(view));
}

// An icon and a text on one line, for the upscaler status and the validation text.
QWidget* statusRow(const std::string& symbol, QLabel*& icon, QLabel*& label, QWidget* parent) {
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    icon = new QLabel(row);
    icon->setPixmap(symbolIcon(symbol).pixmap(16, 16));
    label = new QLabel(row);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(icon, 0, Qt::AlignTop);
    layout->addWidget(label, 1);
    return row;
}

QCheckBox* toggle(const QString& title, QWidget* parent) {
    auto* box = new QCheckBox(title, parent);
    box->setAccessibleName(title);
    return box;
}

void setTextKeepingCursor(QLineEdit* field, const QString& value) {
    if (field->text() != value)
        field->setText(value);
}

} // namespace

ExportSheet::ExportSheet(shell::AppUIState& uiState, shell::ExportDriver& driver, QWidget* parent)
    : QDialog(parent), uiState_(uiState), driver_(driver) {
    setObjectName(QStringLiteral("exportSheet"));
    setWindowTitle(QStringLiteral("Export Wallpaper"));
    setModal(true);
    // The frame strip's tile sizes are reckoned for 736 points of width.
    setMinimumWidth(760);

    auto* column = new QVBoxLayout(this);
    auto* title = new QLabel(QStringLiteral("Export Wallpaper"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    title->setFont(titleFont);
    column->addWidget(title);
    column->addWidget(caption(QStringLiteral("Optimized for Linux dynamic lighting"), this));
    column->addSpacing(8);

    choices_ = makeChoices();
    column->addWidget(choices_);
    progressView_ = makeProgressView();
    column->addWidget(progressView_);

    upscalerRow_ = statusRow("checkmark.circle.fill", upscalerIcon_, upscalerText_, this);
    const auto readiness =
        shell::upscalerReadiness(upscale::findUpscaleModel(), upscale::upscaleModelCandidates());
    upscalerText_->setText(toQString(readiness.text));
    upscalerReady_ = readiness.ready;
    if (!readiness.ready)
        upscalerIcon_->setPixmap(symbolIcon("exclamationmark.triangle").pixmap(16, 16));
    upscalerRow_->setObjectName(QStringLiteral("upscalerStatus"));
    column->addWidget(upscalerRow_);
    // Under the status, in line with its text: how long the upscaling will take.
    upscaleEstimate_ = caption(QString(), this);
    upscaleEstimate_->setObjectName(QStringLiteral("upscaleEstimate"));
    upscaleEstimate_->setAccessibleName(QStringLiteral("Upscaling estimate"));
    upscaleEstimate_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    upscaleEstimate_->setContentsMargins(22, 0, 0, 0);
    column->addWidget(upscaleEstimate_);

    QLabel* validationIcon = nullptr;
    validationRow_ = statusRow("exclamationmark.triangle", validationIcon, validationText_, this);
    validationRow_->setObjectName(QStringLiteral("validation"));
    column->addWidget(validationRow_);

    statusMessage_ = new QLabel(this);
    statusMessage_->setObjectName(QStringLiteral("statusMessage"));
    statusMessage_->setWordWrap(true);
    column->addWidget(statusMessage_);
    column->addStretch(1);

    auto* buttons = new QHBoxLayout;
    cancelExport_ = new QPushButton(QStringLiteral("Cancel Export"), this);
    exporting_ = new QPushButton(QStringLiteral("Exporting..."), this);
    exporting_->setEnabled(false);
    dismiss_ = new QPushButton(QStringLiteral("Cancel"), this);
    export_ = new QPushButton(QStringLiteral("Export"), this);
    export_->setDefault(true);
    buttons->addStretch(1);
    for (QPushButton* button : {cancelExport_, exporting_, dismiss_, export_})
        buttons->addWidget(button);
    column->addLayout(buttons);

    connect(cancelExport_, &QPushButton::clicked, this, [this] { driver_.cancelExport(); });
    connect(dismiss_, &QPushButton::clicked, this, &ExportSheet::reject);
    connect(export_, &QPushButton::clicked, this, [this] { driver_.startExport(); });

    driver_.resetProgress();
    optionChanges_ = uiState_.observe([this] { refresh(); });
    exportChanges_ = driver_.observe([this] { refresh(); });
    estimateChanges_ = driver_.upscaleEstimator().observe([this] { refresh(); });

    // The two choices are read from the options once, as the sheet appears; later edits under
    // "Advanced" do not move them.
    const HeicExportOptions& options = uiState_.exportOptions();
    quality_->setCurrentIndex(static_cast<int>(shell::exportQuality(options)));
    targetDisplay_->setCurrentIndex(static_cast<int>(shell::targetDisplay(options)));
    connect(quality_, &QComboBox::activated, this, [this](int index) {
        edit([index](HeicExportOptions& o) {
            shell::applyExportQuality(o, shell::allExportQualities[index]);
        });
    });
    connect(targetDisplay_, &QComboBox::activated, this, [this](int index) {
        edit([index](HeicExportOptions& o) {
            shell::applyTargetDisplay(o, shell::allTargetDisplays[index]);
        });
    });
    refresh();
}

ExportSheet::~ExportSheet() = default;

QWidget* ExportSheet::makeChoices() {
    auto* box = new QWidget(this);
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    auto* form = new QFormLayout;
    quality_ = new QComboBox(box);
    quality_->setObjectName(QStringLiteral("exportQuality"));
    quality_->setAccessibleName(QStringLiteral("Export Quality"));
    for (const auto quality : shell::allExportQualities)
        quality_->addItem(text(shell::label(quality)));
    targetDisplay_ = new QComboBox(box);
    targetDisplay_->setObjectName(QStringLiteral("targetDisplay"));
    targetDisplay_->setAccessibleName(QStringLiteral("Target Display"));
    for (const auto display : shell::allTargetDisplays)
        targetDisplay_->addItem(text(shell::label(display)));
    form->addRow(QStringLiteral("Export Quality"), quality_);
    form->addRow(QStringLiteral("Target Display"), targetDisplay_);
    column->addLayout(form);

    advancedToggle_ = new DisclosureButton(QStringLiteral("Advanced"), box);
    advancedToggle_->setObjectName(QStringLiteral("advancedToggle"));
    column->addWidget(advancedToggle_);
    advanced_ = makeAdvanced();
    column->addWidget(advanced_);
    connect(advancedToggle_, &QToolButton::toggled, this, [this] { refresh(); });
    return box;
}

QWidget* ExportSheet::makeAdvanced() {
    auto* box = new QWidget(this);
    box->setObjectName(QStringLiteral("advanced"));
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(20, 0, 0, 0);

    resize_ = toggle(QStringLiteral("Resize/crop to canvas"), box);
    column->addWidget(resize_);
    canvasRow_ = new QWidget(box);
    auto* canvasLine = new QHBoxLayout(canvasRow_);
    canvasLine->setContentsMargins(20, 0, 0, 0);
    canvas_ = new QComboBox(canvasRow_);
    canvas_->setAccessibleName(QStringLiteral("Canvas size"));
    for (const auto preset : canvasPresets)
        canvas_->addItem(text(exporting::label(preset)));
    canvasLine->addWidget(new QLabel(QStringLiteral("Canvas size"), canvasRow_));
    canvasLine->addWidget(canvas_);
    customSizeRow_ = new QWidget(canvasRow_);
    auto* sizeLine = new QHBoxLayout(customSizeRow_);
    sizeLine->setContentsMargins(0, 0, 0, 0);
    customWidth_ = new QLineEdit(customSizeRow_);
    customHeight_ = new QLineEdit(customSizeRow_);
    for (auto [field, name] : {std::pair{customWidth_, QStringLiteral("Width")},
                               std::pair{customHeight_, QStringLiteral("Height")}}) {
        field->setPlaceholderText(name);
        field->setAccessibleName(name);
        field->setFixedWidth(90);
        sizeLine->addWidget(field);
    }
    canvasLine->addWidget(customSizeRow_);
    canvasLine->addStretch(1);
    column->addWidget(canvasRow_);

    upscale_ = toggle(QStringLiteral("AI upscaling (ONNX)"), box);
    column->addWidget(upscale_);
    strategyRow_ = new QWidget(box);
    auto* strategyColumn = new QVBoxLayout(strategyRow_);
    strategyColumn->setContentsMargins(20, 0, 0, 0);
    auto* strategyLine = new QHBoxLayout;
    strategy_ = new QComboBox(strategyRow_);
    strategy_->setAccessibleName(QStringLiteral("Upscale strategy"));
    for (const auto strategy : shell::sheetUpscaleStrategies)
        strategy_->addItem(text(shell::strategyLabel(strategy)));
    strategyLine->addWidget(new QLabel(QStringLiteral("Upscale strategy"), strategyRow_));
    strategyLine->addWidget(strategy_);
    strategyLine->addStretch(1);
    strategyColumn->addLayout(strategyLine);
    strategyColumn->addWidget(
        caption(QStringLiteral("Model: realesrgan512 (512×512 tiles, 4×)"), strategyRow_));
    column->addWidget(strategyRow_);

    dither_ = toggle(QStringLiteral("Dither gradients (reduces banding)"), box);
    column->addWidget(dither_);
    keepFrames_ = toggle(QStringLiteral("Keep preprocessed frames on disk"), box);
    column->addWidget(keepFrames_);
    keepFramesNote_ =
        caption(QStringLiteral("Preprocessed frames will be kept after export."), box);
    keepFramesNote_->setContentsMargins(20, 0, 0, 0);
    column->addWidget(keepFramesNote_);

    auto* qualityLine = new QHBoxLayout;
    encoderQuality_ = new QLineEdit(box);
    encoderQuality_->setObjectName(QStringLiteral("encoderQuality"));
    encoderQuality_->setAccessibleName(QStringLiteral("Quality"));
    encoderQuality_->setPlaceholderText(QStringLiteral("0–100"));
    encoderQuality_->setFixedWidth(90);
    encoderQuality_->setText(QString::number(uiState_.exportOptions().quality));
    qualityLine->addWidget(new QLabel(QStringLiteral("Quality"), box));
    qualityLine->addWidget(encoderQuality_);
    qualityLine->addWidget(
        caption(QStringLiteral("0 makes the smallest file, 100 the best picture; 50 is the "
                               "usual balance."),
                box),
        1);
    column->addLayout(qualityLine);

    connect(resize_, &QCheckBox::toggled, this,
            [this](bool on) { edit([on](HeicExportOptions& o) { o.resizeEnabled = on; }); });
    connect(canvas_, &QComboBox::activated, this, [this](int index) {
        edit([index](HeicExportOptions& o) { o.canvasPreset = canvasPresets[index]; });
    });
    connect(customWidth_, &QLineEdit::textEdited, this, [this](const QString& value) {
        edit([value](HeicExportOptions& o) { o.customWidth = toStdString(value); });
    });
    connect(customHeight_, &QLineEdit::textEdited, this, [this](const QString& value) {
        edit([value](HeicExportOptions& o) { o.customHeight = toStdString(value); });
    });
    connect(upscale_, &QCheckBox::toggled, this,
            [this](bool on) { edit([on](HeicExportOptions& o) { o.upscaleEnabled = on; }); });
    connect(strategy_, &QComboBox::activated, this, [this](int index) {
        edit([index](HeicExportOptions& o) {
            o.upscaleStrategy = shell::sheetUpscaleStrategies[index];
        });
    });
    connect(dither_, &QCheckBox::toggled, this,
            [this](bool on) { edit([on](HeicExportOptions& o) { o.enableDither = on; }); });
    connect(keepFrames_, &QCheckBox::toggled, this, [this](bool on) {
        edit([on](HeicExportOptions& o) { o.keepPreprocessedFrames = on; });
    });
    // A quality being typed may be invalid for a while: the options keep the last valid one, and
    // the validation line and the disabled "Export" say what is wrong meanwhile.
    connect(encoderQuality_, &QLineEdit::textEdited, this, [this](const QString& value) {
        if (const auto quality = exporting::parseQuality(toStdString(value)))
            edit([quality](HeicExportOptions& o) { o.quality = *quality; });
        else
            refresh();
    });
    return box;
}

QWidget* ExportSheet::makeProgressView() {
    auto* box = new QWidget(this);
    box->setObjectName(QStringLiteral("exportProgressView"));
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    auto* title = new QLabel(QStringLiteral("Exporting HEIC..."), box);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    column->addWidget(title);
    auto* line = new QHBoxLayout;
    progressMessage_ = new QLabel(box);
    progressMessage_->setObjectName(QStringLiteral("progressMessage"));
    progressPercent_ = new QLabel(box);
    progressPercent_->setObjectName(QStringLiteral("progressPercent"));
    line->addWidget(progressMessage_, 1);
    line->addWidget(progressPercent_);
    column->addLayout(line);
    progressBar_ = new QProgressBar(box);
    progressBar_->setRange(0, 1000);
    progressBar_->setTextVisible(false);
    progressBar_->setAccessibleName(QStringLiteral("Export progress"));
    column->addWidget(progressBar_);
    frameGrid_ = new FrameProgressGrid(box);
    auto* scroller = new QScrollArea(box);
    scroller->setWidget(frameGrid_);
    scroller->setFrameShape(QFrame::NoFrame);
    scroller->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroller->setAlignment(Qt::AlignCenter);
    scroller->setWidgetResizable(false);
    scroller->setMinimumHeight(80 + 24); // the largest tiles; more than 14 key frames scroll
    column->addWidget(scroller);
    return box;
}

void ExportSheet::edit(const std::function<void(HeicExportOptions&)>& change) {
    HeicExportOptions options = uiState_.exportOptions();
    change(options);
    uiState_.setExportOptions(std::move(options));
}

void ExportSheet::refresh() {
    const HeicExportOptions& options = uiState_.exportOptions();
    const shell::ExportProgressState& state = driver_.state();
    const bool running = state.isExportingHeic;

    choices_->setVisible(!running);
    progressView_->setVisible(running);
    advanced_->setVisible(advancedToggle_->isChecked());
    {
        const QSignalBlocker blockResize(resize_), blockUpscale(upscale_), blockDither(dither_),
            blockKeep(keepFrames_);
        resize_->setChecked(options.resizeEnabled);
        upscale_->setChecked(options.upscaleEnabled);
        dither_->setChecked(options.enableDither);
        keepFrames_->setChecked(options.keepPreprocessedFrames);
    }
    canvasRow_->setVisible(options.resizeEnabled);
    canvas_->setCurrentIndex(static_cast<int>(
        std::find(std::begin(canvasPresets), std::end(canvasPresets), options.canvasPreset) -
        std::begin(canvasPresets)));
    customSizeRow_->setVisible(options.canvasPreset == HeicCanvasPreset::custom);
    setTextKeepingCursor(customWidth_, toQString(options.customWidth));
    setTextKeepingCursor(customHeight_, toQString(options.customHeight));
    strategyRow_->setVisible(options.upscaleEnabled);
    const auto* strategy =
        std::find(std::begin(shell::sheetUpscaleStrategies),
                  std::end(shell::sheetUpscaleStrategies), options.upscaleStrategy);
    // Strategies the sheet does not offer (set by the command line's store) show no entry.
    strategy_->setCurrentIndex(strategy == std::end(shell::sheetUpscaleStrategies)
                                   ? -1
                                   : static_cast<int>(strategy - shell::sheetUpscaleStrategies));
    keepFramesNote_->setVisible(options.keepPreprocessedFrames);

    upscalerRow_->setVisible(!running && options.upscaleEnabled);
    if (options.upscaleEnabled && upscalerReady_ && estimatedOptions_ != options) {
        estimatedOptions_ = options;
        driver_.requestUpscaleEstimate(options);
    }
    const QString estimate = toQString(driver_.upscaleEstimator().text());
    upscaleEstimate_->setText(estimate);
    upscaleEstimate_->setVisible(!running && options.upscaleEnabled && upscalerReady_ &&
                                 !estimate.isEmpty());

    // The field's own text counts while it holds one the options could not take.
    const bool qualityValid =
        exporting::parseQuality(toStdString(encoderQuality_->text())).has_value();
    if (qualityValid && !encoderQuality_->hasFocus())
        setTextKeepingCursor(encoderQuality_, QString::number(options.quality));
    auto validation = options.validationError();
    if (!validation && !qualityValid)
        validation = std::string(exporting::invalidQualityText);
    validationRow_->setVisible(!running && validation.has_value());
    validationText_->setText(validation ? toQString(*validation) : QString());
    statusMessage_->setVisible(!running && !state.exportMessage.empty());
    statusMessage_->setText(toQString(state.exportMessage));

    progressMessage_->setText(toQString(shell::progressMessage(state.exportMessage)));
    progressPercent_->setText(toQString(shell::progressPercent(state.exportProgress)));
    progressBar_->setValue(static_cast<int>(std::clamp(state.exportProgress, 0.0, 1.0) * 1000));
    frameGrid_->setFrames(state.exportFrames);

    cancelExport_->setVisible(running);
    exporting_->setVisible(running);
    dismiss_->setVisible(!running);
    dismiss_->setText(text(shell::dismissButtonTitle(state.exportMessage)));
    export_->setVisible(!running);
    export_->setEnabled(!validation);
    // The sheet fits what it shows: rows come and go with the options, and the progress view and
    // the choices differ in height.
    unsigned shown = 0;
    const QWidget* const rows[] = {choices_,         progressView_,  advanced_,       canvasRow_,
                                   customSizeRow_,   strategyRow_,   keepFramesNote_, upscalerRow_,
                                   upscaleEstimate_, validationRow_, statusMessage_};
    for (const QWidget* row : rows)
        shown = shown << 1 | (row->isVisibleTo(this) ? 1u : 0u);
    if (shown != shownRows_) {
        shownRows_ = shown;
        // Once the layout has taken the change in: its size hint is stale until then.
        QMetaObject::invokeMethod(this, &QWidget::adjustSize, Qt::QueuedConnection);
    }
}

void ExportSheet::reject() {
    if (driver_.state().isExportingHeic)
        return; // "Cancel Export" is the way out of a running export
    QDialog::reject();
}

} // namespace lumivesper::ui
