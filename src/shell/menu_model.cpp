#include "shell/menu_model.h"

#include "document/app_state.h"
#include "document/undo_manager.h"
#include "shell/app_command_center.h"
#include "shell/app_ui_state.h"

namespace lumivesper::shell {

namespace {

MenuEntry entry(std::string title, MenuCommand command, std::optional<KeyShortcut> shortcut = {},
                bool enabled = true) {
    MenuEntry item;
    item.title = std::move(title);
    item.command = command;
    item.shortcut = std::move(shortcut);
    item.enabled = enabled;
    return item;
}

MenuEntry openRecentSubmenu(const document::AppState& state) {
    MenuEntry holder = entry("Open Recent", MenuCommand::none);
    const auto& recents = state.recentProjects();
    if (recents.empty()) {
        holder.submenu.push_back(entry("No Recent Projects", MenuCommand::none, {}, false));
        return holder;
    }
    for (const auto& recent : recents) {
        MenuEntry item = entry(recent.displayName, MenuCommand::openRecent);
        item.recentPath = recent.path;
        holder.submenu.push_back(std::move(item));
    }
    holder.submenu.push_back(MenuEntry::separator());
    holder.submenu.push_back(entry("Clear Menu", MenuCommand::clearRecentProjects));
    return holder;
}

} // namespace

std::vector<Menu> buildMenus(const AppCommandCenter& center, const document::UndoManager* undo) {
    const document::AppState& state = center.appState();
    const AppUIState& ui = center.uiState();
    std::vector<Menu> menus;

    menus.push_back({MenuPlacement::edit,
                     "Edit",
                     {entry("Undo", MenuCommand::undo, KeyShortcut{"Z"}, undo && undo->canUndo()),
                      entry("Redo", MenuCommand::redo, KeyShortcut{"Z", true, true},
                            undo && undo->canRedo())}});

    menus.push_back({MenuPlacement::tweens,
                     "Tweens",
                     {entry("Delete All", MenuCommand::deleteAllTweens, {}, center.hasTweens())}});

    menus.push_back(
        {MenuPlacement::file,
         "File",
         {entry("New Project", MenuCommand::newProject, KeyShortcut{"N"}),
          entry("Open...", MenuCommand::open, KeyShortcut{"O"}), openRecentSubmenu(state),
          entry("Close Project", MenuCommand::closeProject, KeyShortcut{"W", true, true},
                center.canCloseProject()),
          MenuEntry::separator(),
          entry("Save", MenuCommand::save, KeyShortcut{"S"}, state.isDirty()),
          entry("Save As...", MenuCommand::saveAs, KeyShortcut{"S", true, true}),
          MenuEntry::separator(),
          entry("Import Dynamic Wallpaper...", MenuCommand::importDynamicWallpaper, {},
                center.canImportDynamicWallpaper()),
          entry("Export Dynamic Wallpaper...", MenuCommand::exportWallpaper, {},
                !state.images().empty()),
          entry("Set as Desktop Background", MenuCommand::setDesktopBackground, {},
                center.canSetDesktopBackground())}});

    menus.push_back({MenuPlacement::window,
                     "Window",
                     {entry(ui.isTimelinePlaying() ? "Pause Playback" : "Play Playback",
                            MenuCommand::togglePlayback, KeyShortcut{"Space", false, false},
                            center.canPlayTimeline())}});

    menus.push_back({MenuPlacement::application,
                     "Lumivesper AI",
                     {entry("Check for Updates...", MenuCommand::checkForUpdates, KeyShortcut{"U"}),
                      entry("Settings...", MenuCommand::settings, KeyShortcut{","})}});
    return menus;
}

void performMenuCommand(const MenuEntry& item, AppCommandCenter& center,
                        document::UndoManager* undo) {
    if (!item.enabled || item.isSeparator)
        return;
    switch (item.command) {
    case MenuCommand::undo:
        if (undo)
            undo->undo();
        break;
    case MenuCommand::redo:
        if (undo)
            undo->redo();
        break;
    case MenuCommand::deleteAllTweens:
        center.confirmDeleteAllTweens();
        break;
    case MenuCommand::newProject:
        center.requestNewProject();
        break;
    case MenuCommand::open:
        center.requestOpen();
        break;
    case MenuCommand::openRecent:
        if (item.recentPath)
            center.requestOpenProject(*item.recentPath);
        break;
    case MenuCommand::clearRecentProjects:
        center.appState().clearRecentProjects();
        break;
    case MenuCommand::closeProject:
        center.requestCloseProject();
        break;
    case MenuCommand::save:
        center.saveProject();
        break;
    case MenuCommand::saveAs:
        center.saveProjectAs();
        break;
    case MenuCommand::importDynamicWallpaper:
        center.importDynamicWallpaper();
        break;
    case MenuCommand::exportWallpaper:
        center.uiState().setActiveSheet(ActiveSheet::exportOptions);
        break;
    case MenuCommand::setDesktopBackground:
        center.setAsDesktopBackground();
        break;
    case MenuCommand::togglePlayback:
        center.togglePlayback();
        break;
    case MenuCommand::checkForUpdates:
        center.checkForUpdates();
        break;
    case MenuCommand::settings:
        center.uiState().setActiveSheet(ActiveSheet::settings);
        break;
    case MenuCommand::none:
        break;
    }
}

} // namespace lumivesper::shell
