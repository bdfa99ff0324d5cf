#include "shell/app/lumivesper_app.h"

#include "generation/multi_provider_image_service.h"
#include "platform/console.h"
#include "platform/main_thread.h"
#include "platform/uuid.h"
#include "settings/server_config.h"
#include "shell/sun_preview_model.h"
#include "ui/export/export_sheet.h"
#include "ui/generation/magic_generate_sheet.h"
#include "ui/image_edit/image_edit_sheet.h"
#include "ui/inspector/inspector_view.h"
#include "ui/inspector/sun_preview.h"
#include "ui/library/library_view.h"
#include "ui/qt_text.h"
#include "ui/settings/settings_dialog.h"
#include "ui/settings/update_dialog.h"
#include "ui/settings/update_notice.h"
#include "ui/timeline/timeline_strip.h"

#include <QCoreApplication>
#include <QPointer>
#include <cmath>

namespace lumivesper::shell {

LumivesperApp::LumivesperApp(platform::Dialogs& dialogs, platform::MainThread& mainThread,
                             Options options)
    : dialogs_(dialogs), mainThread_(mainThread), defaults_(options.defaultsFile),
      channels_(defaults_), appSettings_(defaults_, channels_), appState_(defaults_),
      uiState_(defaults_), projectIO_(dialogs), saveFlow_(projectIO_, uiState_, dialogs),
      commandCenter_(appState_, uiState_, projectIO_, saveFlow_, dialogs),
      delegate_(channels_, settings::feedBaseURL,
                [this](bool shouldTerminate) {
                    quitPending_ = false;
                    if (shouldTerminate)
                        finishQuit();
                }),
      options_(std::move(options)),
      exportDriver_(std::make_unique<ExportDriver>(appState_, uiState_, dialogs, mainThread_,
                                                   options_.makeUpscaler, options_.generateHeic,
                                                   options_.tileSeconds)),
      editedImages_(appState_, mainThread_),
      imageService_(std::make_unique<generation::MultiProviderImageService>(
          generation::MultiProviderImageService::standard())),
      jobProgress_([this] { return static_cast<QWidget*>(window_.get()); }),
      setupPrompt_([this] { return static_cast<QWidget*>(window_.get()); }) {
    wallpaperImport_ = std::make_unique<WallpaperImportFlow>(commandCenter_, projectIO_, dialogs,
                                                             mainThread_, jobProgress_);
    if (options_.backgroundRefreshCommand.empty())
        options_.backgroundRefreshCommand = {
            companionCliProgram(ui::toPath(QCoreApplication::applicationDirPath())).string(),
            "apply", "--refresh"};
    desktopBackground_ = std::make_unique<DesktopBackgroundFlow>(
        commandCenter_, projectIO_, defaults_, dialogs, mainThread_, jobProgress_, setupPrompt_,
        options_.backgroundRefreshCommand, options_.applyBackground, options_.detectDesktop);
    commandCenter_.setWallpaperImporter([this] { wallpaperImport_->chooseAndImport(); });
    commandCenter_.setDesktopBackgroundSetter(
        [this] { desktopBackground_->setAsDesktopBackground(); });
    appState_.setUndoManager(&undoManager_);
    // The library makes display previews on its worker pool; opening a project must not.
    projectIO_.setLoadsPreviews(false);
}

LumivesperApp::~LumivesperApp() {
    delegate_.unbindCommandCenter();
    commandCenter_.setWallpaperImporter({});
    commandCenter_.setDesktopBackgroundSetter({});
    window_.reset();
    appState_.setUndoManager(nullptr);
}

QStringList LumivesperApp::launch(const QStringList& files) {
    delegate_.applicationDidFinishLaunching(options_.makeUpdater);
    QStringList refused = openFromOutside(files);
    fillMissingContent();
    ui::WindowContent content = options_.content;
    content.presentSheet = [this](ActiveSheet sheet) { presentSheet(sheet); };
    window_ = std::make_unique<ui::MainWindow>(commandCenter_, delegate_, undoManager_,
                                               std::move(content), [this] { requestQuit(); });
    window_->addBanner(new ui::UpdateNotice(delegate_.updates()));
    updateChanges_ = delegate_.updates().observe([this] { presentUpdateDialog(); });
    window_->show();
    delegate_.bindCommandCenter(
        commandCenter_, [this](std::function<void()> work) { mainThread_.post(std::move(work)); });
    return refused;
}

QStringList LumivesperApp::openFromOutside(const QStringList& files) {
    QStringList refused;
    for (const QString& file : files) {
        const auto path = ui::toPath(file);
        // A package with the long extension comes as a file to open, one with the short as a URL.
        if (path.extension() == ".lvesper")
            delegate_.openURL(path);
        else if (!delegate_.openFile(path))
            refused << file;
    }
    if (window_) { // a later launch, even without files, brings the window forward
        window_->raise();
        window_->activateWindow();
    }
    return refused;
}

void LumivesperApp::fillMissingContent() {
    // The window makes the library first, so the timeline can share its playback and previews.
    ui::WindowContent& content = options_.content;
    if (!content.makeLibrary) {
        content.makeLibrary = [this](QWidget* parent) {
            library_ = new ui::LibraryView(commandCenter_, mainThread_, parent);
            QObject::connect(library_, &ui::LibraryView::editWithAIRequested, library_,
                             [this](const QString& id) {
                                 if (const auto uuid = platform::Uuid::parse(ui::toStdString(id)))
                                     openImageEditSheet(*uuid);
                             });
            library_->setDropOffer([this](std::vector<std::filesystem::path> files,
                                          ui::LibraryView::AddImages addImages) {
                wallpaperImport_->offerDroppedFiles(std::move(files), std::move(addImages));
            });
            return library_;
        };
    }
    if (!content.makeTimeline) {
        content.makeTimeline = [this](QWidget* parent) -> QWidget* {
            if (!library_)
                return nullptr;
            return new ui::TimelineStrip(*library_, parent);
        };
    }
    if (!content.makeInspector) {
        content.makeInspector = [this](QWidget* parent) {
            auto* inspector = new ui::InspectorView(appState_, mainThread_, {}, parent);
            // Setting the desktop background uses the place the sun preview shows, if any.
            const QPointer<ui::InspectorView> guarded(inspector);
            desktopBackground_->setLocationSource([guarded]() -> std::optional<desktop::Location> {
                if (!guarded)
                    return std::nullopt;
                const auto place = guarded->sunPreview()->model().resolvedCoordinate();
                if (!place || !(std::abs(place->latitude) <= 90) ||
                    !(std::abs(place->longitude) <= 180))
                    return std::nullopt; // none yet, or a number no place has
                return desktop::Location{place->latitude, place->longitude};
            });
            return inspector;
        };
    }
}

void LumivesperApp::requestQuit() {
    if (quitPending_)
        return; // the question is already on screen
    quitPending_ = true;
    const TerminateReply reply = delegate_.applicationShouldTerminate();
    if (reply == TerminateReply::later)
        return; // the save flow replies
    quitPending_ = false;
    if (reply == TerminateReply::now)
        finishQuit();
}

void LumivesperApp::presentSheet(ActiveSheet sheet) {
    QDialog* dialog = nullptr;
    if (sheet == ActiveSheet::exportOptions)
        dialog = new ui::ExportSheet(uiState_, *exportDriver_, window_.get());
    else if (sheet == ActiveSheet::settings)
        dialog = new ui::SettingsDialog(appSettings_, window_.get());
    else if (sheet == ActiveSheet::magicGenerate)
        dialog = makeGenerateSheet();
    if (!dialog) {
        if (options_.content.presentSheet) {
            options_.content.presentSheet(sheet);
            return;
        }
        // No such sheet yet: dismiss at once, so that the next request is seen as a change.
        platform::consoleLine("⚠️ This window cannot show that sheet yet");
        uiState_.setActiveSheet(std::nullopt);
        return;
    }
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QDialog::finished, dialog,
                     [this] { uiState_.setActiveSheet(std::nullopt); });
    dialog->open();
}

void LumivesperApp::presentUpdateDialog() {
    // Only a new phase brings the dialog forward: a change of the notice must not steal focus.
    const UpdateDialogPhase phase = delegate_.updates().dialogPhase();
    if (phase == std::exchange(presentedUpdatePhase_, phase) && updateDialog_)
        return;
    if (phase == UpdateDialogPhase::hidden)
        return; // the dialog closes itself
    if (!updateDialog_) {
        updateDialog_ = new ui::UpdateDialog(delegate_.updates(), window_.get());
        updateDialog_->setAttribute(Qt::WA_DeleteOnClose);
    }
    updateDialog_->show();
    updateDialog_->raise();
    updateDialog_->activateWindow();
}

void LumivesperApp::openImageEditSheet(const platform::Uuid& imageId) {
    const document::WallpaperImage* image = appState_.image(imageId);
    if (!image || !library_)
        return;
    // The sheet works on a copy taken now; applying finds the record again by its id.
    auto* sheet = new ui::ImageEditSheet(
        appState_, *image, mainThread_, defaults_, library_->previews(),
        [this, edited = *image](const generation::Bytes& data) {
            editedImages_.apply(edited, data);
        },
        window_.get());
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->open();
}

QDialog* LumivesperApp::makeGenerateSheet() {
    auto* sheet = new ui::MagicGenerateSheet(appState_, *imageService_, mainThread_, defaults_,
                                             dialogs_, window_.get());
    // Closing the window or quitting waits until the sheet's run has stopped.
    const QPointer<ui::MagicGenerateSheet> guarded(sheet);
    delegate_.setRunningWork({[guarded] { return guarded && guarded->isRunning(); },
                              [guarded](std::function<void()> stopped) {
                                  if (guarded)
                                      guarded->stopRun(std::move(stopped));
                                  else if (stopped)
                                      stopped();
                              }});
    QObject::connect(sheet, &QObject::destroyed, window_.get(),
                     [this] { delegate_.clearRunningWork(); });
    return sheet;
}

void LumivesperApp::finishQuit() {
    if (options_.exit)
        options_.exit();
}

} // namespace lumivesper::shell
