#pragma once

#include "shell/app_command_center.h"
#include "shell/app_ui_state.h"

#include <QToolBar>

#include <map>

class QToolButton;

namespace lumivesper::ui {

// The window's toolbar: the command center's items in its order, with the View picker as three
// exclusive buttons. Holds no state of its own; refresh() re-reads the items.
class MainToolbar final : public QToolBar {
    Q_OBJECT

public:
    explicit MainToolbar(shell::AppCommandCenter& center, QWidget* parent = nullptr);

    void refresh();

    QAction* action(shell::ToolbarAction which) const;
    QToolButton* viewModeButton(shell::LibraryViewMode mode) const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* makeViewPicker();

    shell::AppCommandCenter& center_;
    std::map<shell::ToolbarAction, QAction*> actions_;
    std::map<shell::LibraryViewMode, QToolButton*> viewButtons_;
    QWidget* openButton_ = nullptr;
};

} // namespace lumivesper::ui
