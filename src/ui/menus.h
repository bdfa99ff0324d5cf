#pragma once

#include "shell/menu_model.h"

#include <QObject>
#include <QPointer>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <vector>

class QAction;
class QMenu;
class QMenuBar;

namespace lumivesper::document {
class UndoManager;
}

namespace lumivesper::ui {

// Renders the application's menu model into a menu bar and keeps titles and enabled states in
// step with it. A chosen entry is looked up again in a fresh model before it runs, so that a
// shortcut never acts on a stale enabled state.
class MainMenus final : public QObject {
    Q_OBJECT

public:
    MainMenus(QMenuBar& bar, shell::AppCommandCenter& center, document::UndoManager* undo,
              std::function<void()> quit);

    void refresh();

    // The entry that runs `command` (the first one, for the recent projects), or null.
    QAction* action(shell::MenuCommand command) const;
    QMenu* menu(shell::MenuPlacement placement) const;
    QAction* quitAction() const { return quit_; }

private:
    QMenu* menuFor(const shell::Menu& menu);
    void fill(QMenu& menu, const std::vector<shell::MenuEntry>& entries);
    void perform(shell::MenuCommand command, const std::optional<std::filesystem::path>& recent);

    QMenuBar& bar_;
    shell::AppCommandCenter& center_;
    document::UndoManager* undo_;
    QAction* quit_ = nullptr;
    std::map<shell::MenuPlacement, QMenu*> menus_;
    std::vector<QPointer<QObject>> entries_; // made by the last refresh
};

} // namespace lumivesper::ui
