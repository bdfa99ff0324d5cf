#pragma once

#include "platform/observer_list.h"
#include "shell/app_ui_state.h"

#include <QMainWindow>
#include <functional>

class QDockWidget;
class QVBoxLayout;

namespace lumivesper::document {
class UndoManager;
}

namespace lumivesper::shell {
class AppCommandCenter;
class AppLifecycleDelegate;
} // namespace lumivesper::shell

namespace lumivesper::ui {

class MainMenus;
class MainToolbar;

// What fills the window. The application makes the library, the timeline below it, the inspector
// beside it, and shows the sheets; each may be left empty for a quiet placeholder.
struct WindowContent {
    std::function<QWidget*(QWidget* parent)> makeLibrary;
    std::function<QWidget*(QWidget* parent)> makeTimeline;
    std::function<QWidget*(QWidget* parent)> makeInspector;
    // Shows the sheet that the command center asked for; it clears activeSheet when dismissed.
    std::function<void(shell::ActiveSheet)> presentSheet;
};

// The one window: toolbar and menus from the command center's models, the content areas, and
// the title naming the project. Closing it passes the lifecycle delegate's unsaved-changes check.
class MainWindow final : public QMainWindow {
    Q_OBJECT

public:
    MainWindow(shell::AppCommandCenter& center, shell::AppLifecycleDelegate& lifecycle,
               document::UndoManager& undo, WindowContent content = {},
               std::function<void()> quit = {}, QWidget* parent = nullptr);
    ~MainWindow() override;

    MainToolbar& toolbar() const { return *toolbar_; }
    MainMenus& menus() const { return *menus_; }
    // A strip above the library for notices; the window takes ownership.
    void addBanner(QWidget* banner);

protected:
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void refresh();
    void refreshTitle();
    void presentActiveSheet();

    shell::AppCommandCenter& center_;
    shell::AppLifecycleDelegate& lifecycle_;
    WindowContent content_;
    MainToolbar* toolbar_ = nullptr;
    MainMenus* menus_ = nullptr;
    QDockWidget* inspector_ = nullptr;
    QVBoxLayout* contentColumn_ = nullptr;
    std::optional<shell::ActiveSheet> presentedSheet_;
    platform::Subscription documentChanges_;
    platform::Subscription windowStateChanges_;
    platform::Subscription undoChanges_;
};

} // namespace lumivesper::ui
