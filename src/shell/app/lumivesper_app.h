#pragma once

#include "document/app_state.h"
#include "document/project_io.h"
#include "document/undo_manager.h"
#include "generation/edited_image_applier.h"
#include "settings/app_settings.h"
#include "settings/defaults.h"
#include "settings/update_channel.h"
#include "shell/app_command_center.h"
#include "shell/app_lifecycle_delegate.h"
#include "shell/app_ui_state.h"
#include "shell/desktop_background_flow.h"
#include "shell/export_driver.h"
#include "shell/save_flow_coordinator.h"
#include "shell/wallpaper_import_flow.h"
#include "ui/main_window.h"
#include "ui/wallpaper/background_setup_dialog.h"
#include "ui/wallpaper/job_progress_dialog.h"

#include <QPointer>
#include <QStringList>
#include <functional>
#include <memory>

namespace lumivesper::generation {
class ImageGenerationService;
}
namespace lumivesper::platform {
class Dialogs;
class MainThread;
class Uuid;
} // namespace lumivesper::platform
namespace lumivesper::ui {
class LibraryView;
class UpdateDialog;
} // namespace lumivesper::ui

namespace lumivesper::shell {

// The running application: owns the document, the window state, the undo manager and the window,
// made in the order of launch and destroyed in reverse, so that the undo manager outlives the
// document installed in it.
class LumivesperApp {
public:
    struct Options {
        std::filesystem::path defaultsFile = settings::Defaults::standardLocation();
        ui::WindowContent content;
        // The software-update component; none for a run without one.
        std::function<std::unique_ptr<UpdateController>(settings::UpdaterDelegate&)> makeUpdater;
        // The export's upscaler and encoder; tests replace them.
        ExportDriver::UpscalerFactory makeUpscaler = ExportDriver::standardUpscalerFactory();
        ExportDriver::Generator generateHeic = ExportDriver::standardGenerator();
        // The measured time of an upscaled tile, for the export sheet's estimate.
        UpscaleEstimator::TileSeconds tileSeconds = UpscaleEstimator::standardTileSeconds();
        // Leaves the event loop once quitting has been decided.
        std::function<void()> exit;
        // "Set as Desktop Background": what puts the project on the desktop, which desktop this
        // is, and what the desktop's timer runs later (none: the command line beside this
        // program, "apply --refresh"). Tests keep the real desktop out of reach.
        DesktopBackgroundFlow::Applier applyBackground;
        DesktopBackgroundFlow::DesktopDetector detectDesktop;
        std::vector<std::string> backgroundRefreshCommand;
    };

    LumivesperApp(platform::Dialogs& dialogs, platform::MainThread& mainThread, Options options);
    ~LumivesperApp();

    LumivesperApp(const LumivesperApp&) = delete;
    LumivesperApp& operator=(const LumivesperApp&) = delete;

    // Finishes launching: the update component, files given at launch (parked until the window is
    // bound), then the window.
    // Returns the files refused.
    QStringList launch(const QStringList& files);

    // Files from the command line or from a later launch. Returns the ones refused.
    QStringList openFromOutside(const QStringList& files);

    // Quit as the menu, Ctrl-C and the session do: through the unsaved-changes flow.
    void requestQuit();

    // "Edit with AI..." on an image of the library: the edit sheet over the window. Nothing for
    // an id that is not in the document.
    void openImageEditSheet(const platform::Uuid& imageId);

    ui::MainWindow& window() { return *window_; }
    document::AppState& appState() { return appState_; }
    document::UndoManager& undoManager() { return undoManager_; }
    AppLifecycleDelegate& lifecycle() { return delegate_; }
    AppCommandCenter& commandCenter() { return commandCenter_; }
    ExportDriver& exportDriver() { return *exportDriver_; }
    WallpaperImportFlow& wallpaperImport() { return *wallpaperImport_; }
    DesktopBackgroundFlow& desktopBackground() { return *desktopBackground_; }
    ui::WindowJobProgress& jobProgress() { return jobProgress_; }
    settings::AppSettings& appSettings() { return appSettings_; }

private:
    void fillMissingContent();
    void finishQuit();
    void presentSheet(ActiveSheet sheet);
    void presentUpdateDialog();
    QDialog* makeGenerateSheet();

    platform::Dialogs& dialogs_;
    platform::MainThread& mainThread_;
    settings::Defaults defaults_;
    settings::UpdateChannelManager channels_;
    settings::AppSettings appSettings_;
    document::UndoManager undoManager_;
    document::AppState appState_;
    AppUIState uiState_;
    document::ProjectIO projectIO_;
    SaveFlowCoordinator saveFlow_;
    AppCommandCenter commandCenter_;
    AppLifecycleDelegate delegate_;
    Options options_;
    std::unique_ptr<ExportDriver> exportDriver_;  // outlives the window and its sheets
    generation::EditedImageApplier editedImages_; // likewise
    std::unique_ptr<generation::ImageGenerationService> imageService_; // the same
    ui::WindowJobProgress jobProgress_;
    ui::DialogBackgroundSetupPrompt setupPrompt_;
    std::unique_ptr<WallpaperImportFlow> wallpaperImport_;
    std::unique_ptr<DesktopBackgroundFlow> desktopBackground_;
    std::unique_ptr<ui::MainWindow> window_;
    ui::LibraryView* library_ = nullptr; // owned by the window
    QPointer<ui::UpdateDialog> updateDialog_;
    UpdateDialogPhase presentedUpdatePhase_ = UpdateDialogPhase::hidden;
    platform::Subscription updateChanges_;
    bool quitPending_ = false;
};

} // namespace lumivesper::shell
