#include "shell/app_command_center.h"

#include "document/app_state.h"
#include "document/project_io.h"
#include "platform/console.h"
#include "platform/dialogs.h"
#include "shell/app_ui_state.h"
#include "shell/save_flow_coordinator.h"

#include <algorithm>

namespace lumivesper::shell {

AppCommandCenter::AppCommandCenter(document::AppState& appState, AppUIState& uiState,
                                   document::ProjectIO& projectIO, SaveFlowCoordinator& saveFlow,
                                   platform::Dialogs& dialogs)
    : appState_(appState), uiState_(uiState), projectIO_(projectIO), saveFlow_(saveFlow),
      dialogs_(dialogs) {}

bool AppCommandCenter::canCloseProject() const {
    return !appState_.images().empty() || appState_.currentProjectPath().has_value();
}

bool AppCommandCenter::hasTweens() const {
    return std::any_of(appState_.images().begin(), appState_.images().end(),
                       [](const auto& image) { return image.isTween; });
}

bool AppCommandCenter::canPlayTimeline() const {
    return appState_.mode() == document::WallpaperMode::time && !appState_.images().empty();
}

bool AppCommandCenter::canSetDesktopBackground() const {
    return desktopBackgroundSetter_ && !appState_.images().empty();
}

std::size_t AppCommandCenter::keyImageCount() const {
    return static_cast<std::size_t>(
        std::count_if(appState_.images().begin(), appState_.images().end(),
                      [](const auto& image) { return !image.isTween; }));
}

std::vector<ToolbarItem> AppCommandCenter::toolbarItems() const {
    const bool hasImages = !appState_.images().empty();
    return {
        {ToolbarAction::importImages, "Import Images...", "plus", true},
        {ToolbarAction::generateTimeline, "Generate Timeline...", "sparkles", true},
        {ToolbarAction::autoTween, "Auto Tween...", "wand.and.stars", keyImageCount() >= 2},
        {ToolbarAction::open, "Open", uiState_.isHoveringOpenButton() ? "folder.fill" : "folder",
         true},
        {ToolbarAction::save, "Save", "internaldrive", appState_.isDirty()},
        {ToolbarAction::exportWallpaper, "Export", "arrow.up.doc", hasImages},
        {ToolbarAction::viewMode, "View", "square.grid.2x2", hasImages},
        {ToolbarAction::inspector, "Inspector", "sidebar.right", true},
    };
}

void AppCommandCenter::performToolbarAction(ToolbarAction action) {
    switch (action) {
    case ToolbarAction::importImages:
        importImages();
        return;
    case ToolbarAction::generateTimeline:
        uiState_.setActiveSheet(ActiveSheet::magicGenerate);
        return;
    case ToolbarAction::autoTween:
        if (keyImageCount() > 1)
            uiState_.setShouldTriggerAutoTween(true);
        return;
    case ToolbarAction::open:
        requestOpen();
        return;
    case ToolbarAction::save:
        saveProject();
        return;
    case ToolbarAction::exportWallpaper:
        uiState_.setActiveSheet(ActiveSheet::exportOptions);
        return;
    case ToolbarAction::viewMode:
        return; // a picker: the view sets viewMode itself
    case ToolbarAction::inspector:
        uiState_.setShowsInspector(!uiState_.showsInspector());
        return;
    }
}

void AppCommandCenter::importImages() {
    projectIO_.showImportPanel(
        uiState_.lastImportDirectory(),
        [this, alive = lifetime_.weak()](std::vector<std::filesystem::path> files) {
            if (alive.expired() || files.empty())
                return;
            uiState_.setLastImportDirectory(files.front().parent_path());
            // One undo step per file; a file that fails leaves only its console line.
            if (fileImporter_) {
                fileImporter_(files);
                return;
            }
            for (const auto& file : files)
                appState_.importImage(file);
        });
}

void AppCommandCenter::resetTo(const std::string& actionName) {
    appState_.resetProject(actionName);
    uiState_.setViewMode(LibraryViewMode::grid);
}

void AppCommandCenter::newProject() {
    resetTo("New Project");
}

void AppCommandCenter::closeProject() {
    resetTo("Close Project");
}

void AppCommandCenter::showOpenPanel() {
    projectIO_.showOpenPanel(uiState_.lastOpenDirectory(),
                             [this, alive = lifetime_.weak()](std::filesystem::path url) {
                                 if (alive.expired())
                                     return;
                                 uiState_.setLastOpenDirectory(url.parent_path());
                                 projectIO_.load(url, appState_);
                             });
}

void AppCommandCenter::openProject(const std::filesystem::path& url) {
    projectIO_.load(url, appState_);
}

void AppCommandCenter::saveProject() {
    if (const auto& path = appState_.currentProjectPath()) {
        projectIO_.save(*path, appState_);
        return;
    }
    saveProjectAs();
}

void AppCommandCenter::saveProjectAs() {
    std::string defaultName = SaveFlowCoordinator::untitledProjectName;
    if (const auto& path = appState_.currentProjectPath(); path && !path->filename().empty())
        defaultName = path->filename().string();
    projectIO_.showSavePanel(defaultName, uiState_.lastSaveDirectory(),
                             [this, alive = lifetime_.weak()](std::filesystem::path url) {
                                 if (!alive.expired())
                                     saveFlow_.saveChosen(url, appState_);
                             });
}

void AppCommandCenter::confirmDeleteAllTweens() {
    const auto count = std::count_if(appState_.images().begin(), appState_.images().end(),
                                     [](const auto& image) { return image.isTween; });
    if (count == 0)
        return;
    const std::string informative = "This will delete " + std::to_string(count) + " tween image" +
                                    (count == 1 ? "" : "s") + ". This action can be undone.";
    const auto answer = dialogs_.runAlert(
        {"Delete All Tweens?", informative, platform::AlertStyle::warning, {"Cancel", "Delete"}});
    if (answer == 1)
        appState_.deleteAllTweens();
}

void AppCommandCenter::checkForUpdates() {
    if (!updateCheck_) {
        platform::consoleLine("⚠️  App delegate not available");
        return;
    }
    updateCheck_();
}

void AppCommandCenter::importDynamicWallpaper() {
    if (!wallpaperImporter_) {
        platform::consoleLine("⚠️ Importing dynamic wallpapers is not available here");
        return;
    }
    wallpaperImporter_();
}

void AppCommandCenter::setAsDesktopBackground() {
    if (!canSetDesktopBackground()) {
        platform::consoleLine("⚠️ Nothing to set as the desktop background");
        return;
    }
    desktopBackgroundSetter_();
}

void AppCommandCenter::requestNewProject() {
    saveFlow_.confirmUnsaved("Create New Project", appState_, [this, alive = lifetime_.weak()] {
        if (!alive.expired())
            newProject();
    });
}

void AppCommandCenter::requestOpen() {
    saveFlow_.confirmUnsaved("Open Project", appState_, [this, alive = lifetime_.weak()] {
        if (!alive.expired())
            showOpenPanel();
    });
}

void AppCommandCenter::requestOpenProject(const std::filesystem::path& url) {
    saveFlow_.confirmUnsaved("Open Project", appState_, [this, alive = lifetime_.weak(), url] {
        if (!alive.expired())
            openProject(url);
    });
}

void AppCommandCenter::requestCloseProject() {
    saveFlow_.confirmUnsaved("Close Project", appState_, [this, alive = lifetime_.weak()] {
        if (!alive.expired())
            closeProject();
    });
}

void AppCommandCenter::togglePlayback() {
    if (!canPlayTimeline())
        return;
    uiState_.setTimelinePlaying(!uiState_.isTimelinePlaying());
}

} // namespace lumivesper::shell
