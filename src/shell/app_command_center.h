#pragma once

#include "shell/lifetime_token.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace lumivesper::document {
class AppState;
class ProjectIO;
} // namespace lumivesper::document

namespace lumivesper::platform {
class Dialogs;
}

namespace lumivesper::shell {

class AppUIState;
class SaveFlowCoordinator;

enum class ToolbarAction {
    importImages,
    generateTimeline,
    autoTween,
    open,
    save,
    exportWallpaper,
    viewMode,
    inspector,
};

// One toolbar item as the window shows it; `symbol` is a themed icon name.
struct ToolbarItem {
    ToolbarAction action;
    std::string label;
    std::string symbol;
    bool enabled = true;
};

// The one façade through which menus, toolbar and the application start whole-document commands.
// Owns no document data. Main thread only.
class AppCommandCenter {
public:
    AppCommandCenter(document::AppState& appState, AppUIState& uiState,
                     document::ProjectIO& projectIO, SaveFlowCoordinator& saveFlow,
                     platform::Dialogs& dialogs);

    // ---- Queries (menu and toolbar enabled states) ----
    bool canCloseProject() const;
    bool hasTweens() const;
    bool canPlayTimeline() const;
    bool canImportDynamicWallpaper() const { return static_cast<bool>(wallpaperImporter_); }
    bool canSetDesktopBackground() const;
    std::size_t keyImageCount() const;
    std::vector<ToolbarItem> toolbarItems() const;

    // ---- Commands ----
    void importImages();
    void newProject();
    void closeProject();
    void showOpenPanel();
    void openProject(const std::filesystem::path& url);
    void saveProject();
    void saveProjectAs();
    void confirmDeleteAllTweens();
    void checkForUpdates();
    // The window's flows for these; without them, each says so on the console.
    void importDynamicWallpaper();
    void setAsDesktopBackground();
    void performToolbarAction(ToolbarAction action);

    // ---- Entry points that would discard unsaved work: the prompt first, then the command ----
    void requestNewProject();
    void requestOpen();
    void requestOpenProject(const std::filesystem::path& url); // recent entry, file from outside
    void requestCloseProject();
    void togglePlayback();

    // Where files chosen for import go; the window hands them to a queue that decodes them off
    // its main thread. Without one, each is imported here and now.
    void setFileImporter(std::function<void(const std::vector<std::filesystem::path>&)> importer) {
        fileImporter_ = std::move(importer);
    }

    // "Import Dynamic Wallpaper..." and "Set as Desktop Background": long work with dialogs of
    // their own, which the application provides.
    void setWallpaperImporter(std::function<void()> importer) {
        wallpaperImporter_ = std::move(importer);
    }
    void setDesktopBackgroundSetter(std::function<void()> setter) {
        desktopBackgroundSetter_ = std::move(setter);
    }

    // The application's update check; without one, checkForUpdates only says so on the console.
    void setUpdateCheckHandler(std::function<void()> handler) { updateCheck_ = std::move(handler); }

    document::AppState& appState() { return appState_; }
    const document::AppState& appState() const { return appState_; }
    AppUIState& uiState() { return uiState_; }
    const AppUIState& uiState() const { return uiState_; }
    SaveFlowCoordinator& saveFlow() { return saveFlow_; }

private:
    void resetTo(const std::string& actionName);

    document::AppState& appState_;
    AppUIState& uiState_;
    document::ProjectIO& projectIO_;
    SaveFlowCoordinator& saveFlow_;
    platform::Dialogs& dialogs_;
    std::function<void()> updateCheck_;
    std::function<void()> wallpaperImporter_;
    std::function<void()> desktopBackgroundSetter_;
    std::function<void(const std::vector<std::filesystem::path>&)> fileImporter_;
    LifetimeToken lifetime_;
};

} // namespace lumivesper::shell
