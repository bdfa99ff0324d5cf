#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::document {
class UndoManager;
}

namespace lumivesper::shell {

class AppCommandCenter;

enum class MenuCommand {
    undo,
    redo,
    deleteAllTweens,
    newProject,
    open,
    openRecent, // with MenuEntry::recentPath
    clearRecentProjects,
    closeProject,
    save,
    saveAs,
    importDynamicWallpaper,
    exportWallpaper,
    setDesktopBackground,
    togglePlayback,
    checkForUpdates,
    settings,
    none, // a label or a submenu holder
};

// "Ctrl" stands where the original keyboard has Command.
struct KeyShortcut {
    std::string key; // "Z", "S", "Space", ...
    bool primaryModifier = true;
    bool shift = false;
    bool operator==(const KeyShortcut&) const = default;
};

struct MenuEntry {
    std::string title;
    MenuCommand command = MenuCommand::none;
    std::optional<KeyShortcut> shortcut;
    bool enabled = true;
    bool isSeparator = false;
    std::optional<std::filesystem::path> recentPath;
    std::vector<MenuEntry> submenu;

    static MenuEntry separator() {
        MenuEntry entry;
        entry.isSeparator = true;
        return entry;
    }
};

enum class MenuPlacement { edit, tweens, file, window, application };

struct Menu {
    MenuPlacement placement;
    std::string title;
    std::vector<MenuEntry> entries;
};

// The application's menus as data: titles, shortcuts and enabled states for the present state.
// The toolkit layer renders them and calls performMenuCommand for the chosen entry.
std::vector<Menu> buildMenus(const AppCommandCenter& center, const document::UndoManager* undo);

void performMenuCommand(const MenuEntry& entry, AppCommandCenter& center,
                        document::UndoManager* undo);

} // namespace lumivesper::shell
