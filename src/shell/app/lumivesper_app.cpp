#include "shell/app/lumivesper_app.h"

#include "platform/console.h"
#include "platform/main_thread.h"
#include "settings/server_config.h"
#include "ui/export/export_sheet.h"
#include "ui/library/library_view.h"
#include "ui/qt_text.h"
#include "ui/settings/settings_dialog.h"
#include "ui/timeline/timeline_strip.h"

namespace lumivesper::shell {

LumivesperApp::LumivesperApp(platform::Dialogs& dialogs, platform::MainThread& mainThread,
                             Options options)
    : mainThread_(mainThread), defaults_(options.defaultsFile), channels_(defaults_),
      appSettings_(defaults_, channels_), appState_(defaults_), uiState_(defaults_),
      projectIO_(dialogs), saveFlow_(projectIO_, uiState_, dialogs),
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
                                                   options_.tileSeconds)) {
    appState_.setUndoManager(&undoManager_);
    // The library makes display previews on its worker pool; opening a project must not.
    projectIO_.setLoadsPreviews(false);
}

LumivesperApp::~LumivesperApp() {
    delegate_.unbindCommandCenter();
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

void LumivesperApp::finishQuit() {
    if (options_.exit)
        options_.exit();
}

} // namespace lumivesper::shell
