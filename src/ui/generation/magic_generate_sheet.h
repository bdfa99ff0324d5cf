#pragma once

#include "generation/magic_generate_workflow.h"
#include "platform/observer_list.h"

#include <QDialog>
#include <QHash>
#include <QString>
#include <functional>
#include <memory>
#include <vector>

class QButtonGroup;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QToolButton;

namespace lumivesper::platform {
class Dialogs;
}

namespace lumivesper::ui {

class ImageWell;
class LivePreview;
class PhaseList;
class PictureDecoder;
class SunArcView;

// "Create Dynamic Wallpaper": the sheet over MagicGenerateWorkflow. It sets up a run (mode,
// starting image, prompt and moods, smoothness, size) and then shows it arriving: the sun's path
// with a dot per phase, the newest picture large, and every phase with its picture and status.
// Closing the sheet while a run goes on stops the run first, and closes once nothing of it is
// left in flight.
class MagicGenerateSheet final : public QDialog {
    Q_OBJECT

public:
    MagicGenerateSheet(document::AppState& appState,
                       const generation::ImageGenerationService& service,
                       platform::MainThread& mainThread, settings::Defaults& defaults,
                       platform::Dialogs& dialogs, QWidget* parent = nullptr);
    ~MagicGenerateSheet() override; // stops a run and waits for it

    generation::MagicGenerateWorkflow& workflow() { return *workflow_; }
    bool isRunning() const { return workflow_->isRunning(); }
    // Cancels the run and calls `stopped` once nothing of it runs any more; at once when none
    // runs.
    void stopRun(std::function<void()> stopped);

    // Escape and the window's close button: a run is stopped first.
    void reject() override;

    PictureDecoder& pictureDecoder() { return *decoder_; } // tests wait on it

private:
    QWidget* makeHeader();
    QWidget* makeSetupView();
    QWidget* makeProgressView();
    QWidget* makeAdvanced(QWidget* parent);
    void startGeneration();
    void chooseStartingImage();
    void refresh();
    void refreshPictures();
    void refreshButtons();
    void pictureDecoded(const QString& key, const QImage& image);
    void finishStops();
    void fitToContent();

    std::unique_ptr<generation::MagicGenerateWorkflow> workflow_;
    platform::Dialogs& dialogs_;
    PictureDecoder* decoder_ = nullptr;

    SunArcView* sunArc_ = nullptr;
    QWidget* setupView_ = nullptr;
    QButtonGroup* modes_ = nullptr;
    QWidget* wellColumn_ = nullptr;
    ImageWell* imageWell_ = nullptr;
    QLabel* promptTitle_ = nullptr;
    QPlainTextEdit* prompt_ = nullptr;
    QButtonGroup* smoothness_ = nullptr;
    QLabel* smoothnessSummary_ = nullptr;
    QToolButton* advancedToggle_ = nullptr;
    QWidget* advanced_ = nullptr;
    QComboBox* size_ = nullptr;
    QSpinBox* tweens_ = nullptr;

    QWidget* progressView_ = nullptr;
    QLabel* progressMessage_ = nullptr;
    QLabel* progressPercent_ = nullptr;
    QProgressBar* progressBar_ = nullptr;
    QWidget* failureBanner_ = nullptr;
    QLabel* failureHeading_ = nullptr;
    QLabel* failureText_ = nullptr;
    QLabel* extraLines_ = nullptr;
    LivePreview* livePreview_ = nullptr;
    PhaseList* phaseList_ = nullptr;

    QLabel* notice_ = nullptr;
    QPushButton* dismiss_ = nullptr;
    QPushButton* changeSettings_ = nullptr;
    QPushButton* generate_ = nullptr;

    bool showingProgress_ = false;
    bool syncingPrompt_ = false;
    bool closeWhenStopped_ = false;
    std::vector<std::function<void()>> whenStopped_;
    // The bytes last sent to the decoder, by key, so that each picture is decoded once.
    QHash<QString, generation::Bytes> sentPictures_;
    QString livePhaseLabel_;
    platform::Subscription changes_;
};

} // namespace lumivesper::ui
