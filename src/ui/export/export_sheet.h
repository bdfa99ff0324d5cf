#pragma once

#include "export/export_options.h"
#include "platform/observer_list.h"

#include <QDialog>
#include <optional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QToolButton;

namespace lumivesper::shell {
class AppUIState;
class ExportDriver;
} // namespace lumivesper::shell

namespace lumivesper::ui {

class FrameProgressGrid;

// The sheet that sets up an export and then shows it running. It edits the window state's export
// options through two simple choices (quality, target display) and the single options under
// "Advanced"; the export itself is the driver's.
class ExportSheet final : public QDialog {
    Q_OBJECT

public:
    ExportSheet(shell::AppUIState& uiState, shell::ExportDriver& driver, QWidget* parent = nullptr);
    ~ExportSheet() override;

    // Escape and the window's close button dismiss the sheet only while no export runs.
    void reject() override;

private:
    QWidget* makeChoices();
    QWidget* makeAdvanced();
    QWidget* makeProgressView();
    // Writes one change into the window state's options.
    void edit(const std::function<void(exporting::HeicExportOptions&)>& change);
    void refresh();

    shell::AppUIState& uiState_;
    shell::ExportDriver& driver_;

    QWidget* choices_ = nullptr;
    QComboBox* quality_ = nullptr;
    QComboBox* targetDisplay_ = nullptr;
    QToolButton* advancedToggle_ = nullptr;
    QWidget* advanced_ = nullptr;
    QCheckBox* resize_ = nullptr;
    QWidget* canvasRow_ = nullptr;
    QComboBox* canvas_ = nullptr;
    QWidget* customSizeRow_ = nullptr;
    QLineEdit* customWidth_ = nullptr;
    QLineEdit* customHeight_ = nullptr;
    QCheckBox* upscale_ = nullptr;
    QWidget* strategyRow_ = nullptr;
    QComboBox* strategy_ = nullptr;
    QCheckBox* dither_ = nullptr;
    QCheckBox* keepFrames_ = nullptr;
    QLabel* keepFramesNote_ = nullptr;
    QLineEdit* encoderQuality_ = nullptr;
    QWidget* upscalerRow_ = nullptr;
    QLabel* upscalerIcon_ = nullptr;
    QLabel* upscalerText_ = nullptr;
    QLabel* upscaleEstimate_ = nullptr;
    bool upscalerReady_ = false;
    QWidget* validationRow_ = nullptr;
    QLabel* validationText_ = nullptr;
    QLabel* statusMessage_ = nullptr;

    QWidget* progressView_ = nullptr;
    QLabel* progressMessage_ = nullptr;
    QLabel* progressPercent_ = nullptr;
    QProgressBar* progressBar_ = nullptr;
    FrameProgressGrid* frameGrid_ = nullptr;

    QPushButton* cancelExport_ = nullptr;
    QPushButton* exporting_ = nullptr;
    QPushButton* dismiss_ = nullptr;
    QPushButton* export_ = nullptr;

    platform::Subscription optionChanges_;
    platform::Subscription exportChanges_;
    platform::Subscription estimateChanges_;
    // The options the shown estimate was asked for; a new one is asked when they change.
    std::optional<exporting::HeicExportOptions> estimatedOptions_;
    unsigned shownRows_ = 0; // which rows were visible when the sheet last fitted itself
};

} // namespace lumivesper::ui
