#include "ui/generation/magic_generate_sheet.h"

#include "generation/magic_generate_progress.h"
#include "platform/dialogs.h"
#include "ui/disclosure_button.h"
#include "ui/generation/flow_layout.h"
#include "ui/generation/image_well.h"
#include "ui/generation/live_preview.h"
#include "ui/generation/phase_list.h"
#include "ui/generation/picture_decoder.h"
#include "ui/generation/sun_arc_view.h"
#include "ui/qt_text.h"
#include "ui/sheet_labels.h"
#include "ui/symbol_icons.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStandardPaths>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace lumivesper::ui {

using generation::GenerationMode;
using generation::GenerationOutcome;
using generation::PhaseIndicator;
using generation::SmoothnessPreset;
using generation::timeOfDayPhases;

namespace {

constexpr int livePreviewSide = 1024;
constexpr int thumbnailSide = 240;
const QString liveKey = QStringLiteral("live");
const QString startKey = QStringLiteral("start");
const QString phaseKeyPrefix = QStringLiteral("phase:");

constexpr GenerationMode allModes[] = {GenerationMode::relight, GenerationMode::generate};
constexpr SmoothnessPreset allPresets[] = {SmoothnessPreset::subtle, SmoothnessPreset::natural,
                                           SmoothnessPreset::cinematic};

QString text(std::string_view view) {
    return toQString(std::string(view));
}

// Checkable buttons side by side that behave as one choice.
QButtonGroup* segmented(const QStringList& titles, const QString& objectPrefix, QWidget* parent,
                        QHBoxLayout* line) {
    auto* group = new QButtonGroup(parent);
    group->setExclusive(true);
    line->setSpacing(0);
    for (int i = 0; i < titles.size(); ++i) {
        auto* button = new QPushButton(titles[i], parent);
        button->setObjectName(objectPrefix + QString::number(i));
        button->setAccessibleName(titles[i]);
        button->setCheckable(true);
        button->setMinimumWidth(110);
        group->addButton(button, i);
        line->addWidget(button);
    }
    return group;
}

// The phase a preview key names, or the count of phases for another key.
std::size_t phaseIndexOf(const QString& key) {
    if (!key.startsWith(phaseKeyPrefix))
        return timeOfDayPhases.size();
    const std::string id = toStdString(key.mid(phaseKeyPrefix.size()));
    for (std::size_t i = 0; i < timeOfDayPhases.size(); ++i)
        if (timeOfDayPhases[i].id == id)
            return i;
    return timeOfDayPhases.size();
}

} // namespace

MagicGenerateSheet::MagicGenerateSheet(document::AppState& appState,
                                       const generation::ImageGenerationService& service,
                                       platform::MainThread& mainThread,
                                       settings::Defaults& defaults, platform::Dialogs& dialogs,
                                       QWidget* parent)
    : QDialog(parent), dialogs_(dialogs) {
    setObjectName(QStringLiteral("magicGenerateSheet"));
    setWindowTitle(QStringLiteral("Create Dynamic Wallpaper"));
    setModal(true);
    setMinimumWidth(840);

    // The workflow closes the sheet after a run that went through; queued, so that it does not
    // happen inside the workflow's own report.
    workflow_ = std::make_unique<generation::MagicGenerateWorkflow>(
        appState, service, mainThread, defaults, [self = QPointer<MagicGenerateSheet>(this)] {
            QTimer::singleShot(0, self, [self] {
                if (self)
                    self->accept();
            });
        });
    decoder_ = new PictureDecoder(this);
    connect(decoder_, &PictureDecoder::decoded, this, &MagicGenerateSheet::pictureDecoded);

    auto* column = new QVBoxLayout(this);
    column->setSpacing(10);
    column->addWidget(makeHeader());
    sunArc_ = new SunArcView(this);
    column->addWidget(sunArc_);
    setupView_ = makeSetupView();
    column->addWidget(setupView_);
    progressView_ = makeProgressView();
    column->addWidget(progressView_);

    auto* footer = new QHBoxLayout;
    notice_ = new QLabel(this);
    notice_->setObjectName(QStringLiteral("notice"));
    notice_->setWordWrap(true);
    notice_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    footer->addWidget(notice_, 1);
    dismiss_ = new QPushButton(QStringLiteral("Cancel"), this);
    dismiss_->setObjectName(QStringLiteral("dismiss"));
    changeSettings_ = new QPushButton(QStringLiteral("Change Settings"), this);
    changeSettings_->setObjectName(QStringLiteral("changeSettings"));
    changeSettings_->setAccessibleName(QStringLiteral("Change Settings"));
    generate_ = new QPushButton(symbolIcon("sparkles"), QStringLiteral("Create Wallpaper"), this);
    generate_->setObjectName(QStringLiteral("generate"));
    generate_->setDefault(true);
    for (QPushButton* button : {dismiss_, changeSettings_, generate_})
        footer->addWidget(button);
    column->addLayout(footer);

    connect(dismiss_, &QPushButton::clicked, this, [this] {
        // While a run goes on the button stops it and the sheet stays, to show how it ended.
        if (workflow_->isRunning())
            workflow_->cancelGeneration();
        else
            reject();
    });
    connect(changeSettings_, &QPushButton::clicked, this, [this] {
        showingProgress_ = false;
        refresh();
    });
    connect(generate_, &QPushButton::clicked, this, &MagicGenerateSheet::startGeneration);

    changes_ = workflow_->observe([this] { refresh(); });
    refresh();
    prompt_->setFocus();
}

MagicGenerateSheet::~MagicGenerateSheet() {
    changes_ = {};
    workflow_.reset(); // stops a run and waits for its thread
}

QWidget* MagicGenerateSheet::makeHeader() {
    auto* box = new QWidget(this);
    auto* line = new QHBoxLayout(box);
    line->setContentsMargins(0, 0, 0, 0);
    auto* icon = new QLabel(box);
    icon->setPixmap(symbolIcon("sparkles").pixmap(32, 32));
    line->addWidget(icon, 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    auto* title = new QLabel(QStringLiteral("Create Dynamic Wallpaper"), box);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    title->setFont(titleFont);
    texts->addWidget(title);
    texts->addWidget(caption(QStringLiteral("One scene, relit for eleven moments of the day from "
                                            "night to dusk, with smooth frames in between."),
                             box));
    line->addLayout(texts, 1);
    return box;
}

QWidget* MagicGenerateSheet::makeSetupView() {
    auto* box = new QWidget(this);
    box->setObjectName(QStringLiteral("setupView"));
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(10);

    auto* modeLine = new QHBoxLayout;
    modeLine->addStretch(1);
    modes_ = segmented({text(generation::rawValue(GenerationMode::relight)),
                        text(generation::rawValue(GenerationMode::generate))},
                       QStringLiteral("mode"), box, modeLine);
    modeLine->addStretch(1);
    column->addLayout(modeLine);
    connect(modes_, &QButtonGroup::idClicked, this,
            [this](int id) { workflow_->setMode(allModes[id]); });

    auto* body = new QHBoxLayout;
    body->setSpacing(16);
    wellColumn_ = new QWidget(box);
    auto* wellLayout = new QVBoxLayout(wellColumn_);
    wellLayout->setContentsMargins(0, 0, 0, 0);
    wellLayout->addWidget(headline(QStringLiteral("Starting image"), wellColumn_));
    imageWell_ = new ImageWell(wellColumn_);
    imageWell_->setFixedSize(320, 180);
    wellLayout->addWidget(imageWell_);
    wellLayout->addWidget(caption(QStringLiteral("Every phase is relit from this photo; framing "
                                                 "and objects stay as they are."),
                                  wellColumn_));
    wellLayout->addStretch(1);
    wellColumn_->setFixedWidth(320);
    body->addWidget(wellColumn_, 0);
    connect(imageWell_, &ImageWell::fileDropped, this,
            [this](const std::filesystem::path& file) { workflow_->setStartingImage(file); });
    connect(imageWell_, &ImageWell::chooseRequested, this,
            &MagicGenerateSheet::chooseStartingImage);
    connect(imageWell_, &ImageWell::removeRequested, this,
            [this] { workflow_->clearStartingImage(); });

    auto* promptColumn = new QVBoxLayout;
    promptTitle_ = headline(QString(), box);
    promptColumn->addWidget(promptTitle_);
    prompt_ = new QPlainTextEdit(box);
    prompt_->setObjectName(QStringLiteral("prompt"));
    prompt_->setAccessibleName(QStringLiteral("Prompt"));
    prompt_->setTabChangesFocus(true);
    prompt_->setFixedHeight(84);
    promptColumn->addWidget(prompt_);
    connect(prompt_, &QPlainTextEdit::textChanged, this, [this] {
        if (!syncingPrompt_)
            workflow_->setPrompt(toStdString(prompt_->toPlainText()));
    });

    promptColumn->addWidget(caption(QStringLiteral("Add a mood"), box));
    auto* chips = new QWidget(box);
    chips->setObjectName(QStringLiteral("moodChips"));
    auto* flow = new FlowLayout(chips, 6);
    for (const std::string_view mood : generation::moodSuggestions) {
        auto* chip = new QPushButton(QStringLiteral("+ ") + text(mood), chips);
        chip->setObjectName(QStringLiteral("mood"));
        chip->setAccessibleName(text(mood));
        chip->setToolTip(QStringLiteral("Add “%1” to the prompt").arg(text(mood)));
        chip->setCursor(Qt::PointingHandCursor);
        chip->setFocusPolicy(Qt::TabFocus);
        chip->setStyleSheet(QStringLiteral(
            "QPushButton { border: 1px solid palette(mid); border-radius: 11px;"
            " padding: 2px 12px; min-height: 18px; background: palette(base); }"
            "QPushButton:hover { border-color: palette(highlight); color: palette(highlight); }"
            "QPushButton:pressed { background: palette(highlight);"
            " color: palette(highlighted-text); }"));
        flow->addWidget(chip);
        connect(chip, &QPushButton::clicked, this,
                [this, mood = std::string(mood)] { workflow_->appendMood(mood); });
    }
    promptColumn->addWidget(chips);
    promptColumn->addStretch(1);
    body->addLayout(promptColumn, 1);
    column->addLayout(body);

    auto* smoothLine = new QHBoxLayout;
    smoothLine->addWidget(headline(QStringLiteral("Smoothness"), box));
    smoothLine->addSpacing(12);
    auto* presets = new QHBoxLayout;
    smoothness_ = segmented({text(generation::label(SmoothnessPreset::subtle)),
                             text(generation::label(SmoothnessPreset::natural)),
                             text(generation::label(SmoothnessPreset::cinematic))},
                            QStringLiteral("smoothness"), box, presets);
    smoothLine->addLayout(presets);
    smoothLine->addSpacing(12);
    smoothnessSummary_ = caption(QString(), box);
    smoothnessSummary_->setObjectName(QStringLiteral("smoothnessSummary"));
    smoothLine->addWidget(smoothnessSummary_, 1);
    column->addLayout(smoothLine);
    connect(smoothness_, &QButtonGroup::idClicked, this,
            [this](int id) { workflow_->setSmoothness(allPresets[id]); });

    advancedToggle_ = new DisclosureButton(QStringLiteral("Advanced"), box);
    advancedToggle_->setObjectName(QStringLiteral("advancedToggle"));
    column->addWidget(advancedToggle_);
    connect(advancedToggle_, &QToolButton::toggled, this,
            [this](bool show) { workflow_->setShowAdvanced(show); });
    advanced_ = makeAdvanced(box);
    column->addWidget(advanced_);
    return box;
}

QWidget* MagicGenerateSheet::makeAdvanced(QWidget* parent) {
    auto* box = new QWidget(parent);
    box->setObjectName(QStringLiteral("advanced"));
    auto* form = new QFormLayout(box);
    form->setContentsMargins(20, 0, 0, 0);
    size_ = new QComboBox(box);
    size_->setObjectName(QStringLiteral("size"));
    size_->setAccessibleName(QStringLiteral("Size"));
    for (const auto& option : generation::generationSizes())
        size_->addItem(toQString(option.label), toQString(option.value));
    form->addRow(QStringLiteral("Size"), size_);
    tweens_ = new QSpinBox(box);
    tweens_->setObjectName(QStringLiteral("tweenCount"));
    tweens_->setAccessibleName(QStringLiteral("In-between frames per transition"));
    tweens_->setRange(0, 20);
    form->addRow(QStringLiteral("In-between frames per transition"), tweens_);
    auto* model = caption(toQString(std::string(generation::magicGenerateModel)), box);
    model->setTextInteractionFlags(Qt::TextSelectableByMouse);
    form->addRow(QStringLiteral("Model"), model);
    connect(size_, &QComboBox::activated, this, [this](int index) {
        workflow_->setSize(toStdString(size_->itemData(index).toString()));
    });
    connect(tweens_, &QSpinBox::valueChanged, this,
            [this](int count) { workflow_->setTweenCount(count); });
    return box;
}

QWidget* MagicGenerateSheet::makeProgressView() {
    auto* box = new QWidget(this);
    box->setObjectName(QStringLiteral("progressView"));
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);

    failureBanner_ = new QWidget(box);
    failureBanner_->setObjectName(QStringLiteral("failureBanner"));
    failureBanner_->setAttribute(Qt::WA_StyledBackground);
    failureBanner_->setStyleSheet(QStringLiteral(
        "#failureBanner { background: rgba(214, 69, 65, 28); border: 1px solid rgba(214, 69, 65, "
        "140); border-radius: 8px; }"));
    auto* bannerLine = new QHBoxLayout(failureBanner_);
    auto* bannerIcon = new QLabel(failureBanner_);
    bannerIcon->setPixmap(symbolIcon("exclamationmark.triangle").pixmap(24, 24));
    bannerLine->addWidget(bannerIcon, 0, Qt::AlignTop);
    auto* bannerTexts = new QVBoxLayout;
    failureHeading_ = headline(QString(), failureBanner_);
    failureHeading_->setObjectName(QStringLiteral("failureHeading"));
    failureText_ = new QLabel(failureBanner_);
    failureText_->setObjectName(QStringLiteral("failureText"));
    failureText_->setWordWrap(true);
    failureText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    bannerTexts->addWidget(failureHeading_);
    bannerTexts->addWidget(failureText_);
    bannerLine->addLayout(bannerTexts, 1);
    column->addWidget(failureBanner_);

    auto* body = new QHBoxLayout;
    body->setSpacing(16);
    livePreview_ = new LivePreview(box);
    livePreview_->setFixedSize(512, 288);
    body->addWidget(livePreview_, 0, Qt::AlignTop);
    phaseList_ = new PhaseList(box);
    body->addWidget(phaseList_, 1);
    column->addLayout(body);

    auto* line = new QHBoxLayout;
    progressMessage_ = new QLabel(box);
    progressMessage_->setObjectName(QStringLiteral("progressMessage"));
    QFont bold = progressMessage_->font();
    bold.setBold(true);
    progressMessage_->setFont(bold);
    progressPercent_ = new QLabel(box);
    progressPercent_->setObjectName(QStringLiteral("progressPercent"));
    line->addWidget(progressMessage_, 1);
    line->addWidget(progressPercent_);
    column->addLayout(line);
    progressBar_ = new QProgressBar(box);
    progressBar_->setRange(0, 1000);
    progressBar_->setTextVisible(false);
    progressBar_->setMaximumHeight(8);
    progressBar_->setAccessibleName(QStringLiteral("Generation progress"));
    column->addWidget(progressBar_);
    extraLines_ = caption(QString(), box);
    extraLines_->setObjectName(QStringLiteral("connectionLines"));
    column->addWidget(extraLines_);
    return box;
}

void MagicGenerateSheet::startGeneration() {
    if (!workflow_->canGenerate())
        return;
    showingProgress_ = true;
    workflow_->startGeneration();
}

void MagicGenerateSheet::fitToContent() {
    // After the layout has taken in the parts just shown or hidden.
    QTimer::singleShot(0, this, [this] { adjustSize(); });
}

void MagicGenerateSheet::chooseStartingImage() {
    platform::OpenPanelSettings settings;
    const QString pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    if (!pictures.isEmpty() && QFileInfo(pictures).isDir())
        settings.directory = toPath(pictures);
    settings.filter = platform::FileFilter{
        "Images", {"png", "jpg", "jpeg", "heic", "heif", "webp", "tif", "tiff", "bmp"}};
    dialogs_.showOpenPanel(settings, [self = QPointer<MagicGenerateSheet>(this)](
                                         std::vector<std::filesystem::path> chosen) {
        if (self && !chosen.empty())
            self->workflow_->setStartingImage(chosen.front());
    });
}

void MagicGenerateSheet::stopRun(std::function<void()> stopped) {
    if (!workflow_->isRunning()) {
        workflow_->waitForRunToEnd();
        if (stopped)
            stopped();
        return;
    }
    whenStopped_.push_back(std::move(stopped));
    workflow_->cancelGeneration();
}

void MagicGenerateSheet::reject() {
    if (!workflow_->isRunning()) {
        QDialog::reject();
        return;
    }
    // Closes once the run has let go of its requests and files.
    closeWhenStopped_ = true;
    stopRun({});
}

void MagicGenerateSheet::finishStops() {
    if (workflow_->isRunning())
        return;
    if (whenStopped_.empty() && !closeWhenStopped_)
        return;
    workflow_->waitForRunToEnd();
    auto callbacks = std::move(whenStopped_);
    whenStopped_.clear();
    for (auto& callback : callbacks)
        if (callback)
            callback();
    if (std::exchange(closeWhenStopped_, false))
        QDialog::reject();
}

void MagicGenerateSheet::refresh() {
    const generation::MagicGenerateState& state = workflow_->state();
    const bool running = workflow_->isRunning();
    const bool progress = showingProgress_ || running;
    const auto heading = generation::failureHeading(state);
    const bool reshaped = progressView_->isVisibleTo(this) != progress ||
                          failureBanner_->isVisibleTo(this) != heading.has_value() ||
                          advanced_->isVisibleTo(this) != state.showAdvanced ||
                          wellColumn_->isVisibleTo(this) != (state.mode == GenerationMode::relight);

    setupView_->setVisible(!progress);
    progressView_->setVisible(progress);

    // ---- Set-up ----
    const bool relight = state.mode == GenerationMode::relight;
    modes_->button(relight ? 0 : 1)->setChecked(true);
    wellColumn_->setVisible(relight);
    promptTitle_->setText(relight ? QStringLiteral("Describe the scene (optional)")
                                  : QStringLiteral("Describe the scene"));
    prompt_->setPlaceholderText(
        relight ? QStringLiteral("What the photo shows helps the relighting, e.g. a cabin by a "
                                 "mountain lake")
                : QStringLiteral("A quiet harbour town on a hillside, pastel houses, sailboats "
                                 "in the bay"));
    const QString promptText = toQString(state.prompt);
    if (prompt_->toPlainText() != promptText) {
        syncingPrompt_ = true;
        prompt_->setPlainText(promptText);
        prompt_->moveCursor(QTextCursor::End);
        syncingPrompt_ = false;
    }
    for (std::size_t i = 0; i < std::size(allPresets); ++i)
        if (allPresets[i] == state.smoothness)
            smoothness_->button(static_cast<int>(i))->setChecked(true);
    smoothnessSummary_->setText(toQString(generation::smoothnessSummary(state.tweenCount)));
    {
        const QSignalBlocker blockToggle(advancedToggle_), blockTweens(tweens_);
        advancedToggle_->setChecked(state.showAdvanced);
        tweens_->setValue(state.tweenCount);
    }
    advanced_->setVisible(state.showAdvanced);
    size_->setCurrentIndex(size_->findData(toQString(state.size)));

    // ---- Progress ----
    progressMessage_->setText(toQString(state.progressMessage));
    progressPercent_->setText(
        QStringLiteral("%1%").arg(static_cast<int>(std::clamp(state.progress, 0.0, 1.0) * 100)));
    progressBar_->setValue(static_cast<int>(std::clamp(state.progress, 0.0, 1.0) * 1000));
    failureBanner_->setVisible(heading.has_value());
    failureHeading_->setText(heading ? toQString(*heading) : QString());
    failureText_->setText(heading && state.errorMessage ? toQString(*state.errorMessage)
                                                        : QString());
    QStringList lines;
    for (const auto& line : {workflow_->reconnectingLine(), workflow_->evolutionLine()})
        if (line)
            lines << toQString(*line);
    extraLines_->setText(lines.join(QLatin1Char('\n')));
    extraLines_->setVisible(!lines.isEmpty());

    std::array<PhaseIndicator, SunArcView::phaseCount> indicators{};
    for (std::size_t i = 0; i < timeOfDayPhases.size(); ++i) {
        indicators[i] = generation::phaseIndicator(state, timeOfDayPhases[i].id);
        phaseList_->setIndicator(i, indicators[i]);
    }
    sunArc_->setIndicators(indicators);

    // ---- Notice ----
    QString notice;
    if (const auto configuration = workflow_->configurationNotice())
        notice = toQString(*configuration);
    else if (!progress && state.errorMessage)
        notice = toQString(*state.errorMessage); // "Failed to load starting image."
    notice_->setText(notice); // stays in the layout, empty, to keep the buttons at the right

    refreshPictures();
    refreshButtons();
    if (reshaped)
        fitToContent();
    finishStops();
}

void MagicGenerateSheet::refreshPictures() {
    const generation::MagicGenerateState& state = workflow_->state();
    // Sends changed bytes to the decoder; true when the key's picture changed or went.
    const auto send = [this](const QString& key, const generation::Bytes* bytes, int side) {
        const auto sent = sentPictures_.find(key);
        if (!bytes) {
            if (sent == sentPictures_.end())
                return false;
            sentPictures_.erase(sent);
            decoder_->forget(key);
            return true;
        }
        if (sent != sentPictures_.end() && sent.value() == *bytes)
            return false;
        sentPictures_[key] = *bytes;
        decoder_->decode(key, *bytes, side);
        return true;
    };

    const auto pointer = [](const std::optional<generation::Bytes>& bytes) {
        return bytes ? &*bytes : nullptr;
    };
    if (send(startKey, pointer(state.startingImageData), 640)) {
        if (state.startingImageData && state.startingImageURL)
            imageWell_->setPicture({}, toQString(state.startingImageURL->filename()));
        else
            imageWell_->clear();
    }

    for (std::size_t i = 0; i < timeOfDayPhases.size(); ++i) {
        const std::string id(timeOfDayPhases[i].id);
        const auto found = state.phasePreviews.find(id);
        const generation::Bytes* bytes =
            found == state.phasePreviews.end() ? nullptr : &found->second;
        const QString key = phaseKeyPrefix + toQString(id);
        if (send(key, bytes, thumbnailSide) && !bytes) {
            phaseList_->setPicture(i, {});
            sunArc_->setPicture(i, {});
        }
    }
    if (!send(liveKey, pointer(state.livePreviewData), livePreviewSide))
        return;
    if (!state.livePreviewData) {
        livePreview_->clear();
        return;
    }
    // The newest picture is named by the phase that holds it.
    livePhaseLabel_.clear();
    for (const auto& phase : timeOfDayPhases) {
        const auto found = state.phasePreviews.find(std::string(phase.id));
        if (found != state.phasePreviews.end() && found->second == *state.livePreviewData)
            livePhaseLabel_ = text(phase.label);
    }
}

void MagicGenerateSheet::pictureDecoded(const QString& key, const QImage& image) {
    const generation::MagicGenerateState& state = workflow_->state();
    if (key == startKey) {
        if (image.isNull()) {
            sentPictures_.remove(startKey);
            workflow_->rejectStartingImage();
            return;
        }
        imageWell_->setPicture(image, state.startingImageURL
                                          ? toQString(state.startingImageURL->filename())
                                          : QString());
        return;
    }
    if (key == liveKey) {
        livePreview_->setPicture(image, livePhaseLabel_);
        return;
    }
    const std::size_t phase = phaseIndexOf(key);
    if (phase < timeOfDayPhases.size()) {
        phaseList_->setPicture(phase, image);
        sunArc_->setPicture(phase, image);
    }
}

void MagicGenerateSheet::refreshButtons() {
    const generation::MagicGenerateState& state = workflow_->state();
    const bool running = workflow_->isRunning();
    const bool ended =
        state.outcome == GenerationOutcome::cancelled || state.outcome == GenerationOutcome::failed;

    if (running) {
        dismiss_->setText(QStringLiteral("Cancel"));
        dismiss_->setToolTip(QStringLiteral("Stop the generation"));
    } else {
        dismiss_->setText(showingProgress_ && ended ? QStringLiteral("Close")
                                                    : QStringLiteral("Cancel"));
        dismiss_->setToolTip(QString());
    }
    dismiss_->setAccessibleName(dismiss_->text());
    dismiss_->setEnabled(!state.isCancelling);
    changeSettings_->setVisible(showingProgress_ && !running);
    generate_->setText(toQString(workflow_->generateButtonTitle()));
    generate_->setAccessibleName(generate_->text());
    generate_->setEnabled(workflow_->canGenerate() && !running);
}

} // namespace lumivesper::ui
