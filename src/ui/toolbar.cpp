#include "ui/toolbar.h"

#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QAction>
#include <QButtonGroup>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWidgetAction>

namespace lumivesper::ui {

namespace {

struct ViewModeChoice {
    shell::LibraryViewMode mode;
    const char* label;
    const char* symbol;
};

constexpr ViewModeChoice viewModeChoices[] = {
    {shell::LibraryViewMode::grid, "Grid", "square.grid.2x2"},
    {shell::LibraryViewMode::list, "List", "list.bullet"},
    {shell::LibraryViewMode::single, "Single", "photo"},
};

} // namespace

MainToolbar::MainToolbar(shell::AppCommandCenter& center, QWidget* parent)
    : QToolBar(QStringLiteral("Toolbar"), parent), center_(center) {
    setObjectName(QStringLiteral("mainToolbar"));
    setMovable(false);
    setFloatable(false);
    setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    setIconSize(QSize(24, 24));
    setAccessibleName(windowTitle());

    for (const auto& item : center_.toolbarItems()) {
        if (item.action == shell::ToolbarAction::viewMode) {
            auto* picker = new QWidgetAction(this);
            picker->setText(toQString(item.label));
            picker->setDefaultWidget(makeViewPicker());
            addAction(picker);
            actions_[item.action] = picker;
            continue;
        }
        QAction* action = addAction(toQString(item.label));
        action->setToolTip(action->text());
        const auto which = item.action;
        if (which == shell::ToolbarAction::inspector) {
            // Toggled, not triggered: assistive tools toggle a checkable button without a click.
            action->setCheckable(true);
            connect(action, &QAction::toggled, this, [this, which](bool shown) {
                if (shown != center_.uiState().showsInspector())
                    center_.performToolbarAction(which);
            });
        } else {
            connect(action, &QAction::triggered, this,
                    [this, which] { center_.performToolbarAction(which); });
        }
        actions_[item.action] = action;
    }
    if (auto* more = findChild<QToolButton*>(QStringLiteral("qt_toolbar_ext_button")))
        more->setAccessibleName(QStringLiteral("More Tools"));
    // The Open button's icon fills while the pointer is over it.
    if ((openButton_ = widgetForAction(actions_.at(shell::ToolbarAction::open))))
        openButton_->installEventFilter(this);
    refresh();
}

QWidget* MainToolbar::makeViewPicker() {
    auto* picker = new QWidget(this);
    picker->setAccessibleName(QStringLiteral("View"));
    auto* column = new QVBoxLayout(picker);
    column->setContentsMargins(4, 0, 4, 0);
    column->setSpacing(2);
    auto* row = new QHBoxLayout;
    row->setSpacing(0);
    auto* group = new QButtonGroup(picker);
    group->setExclusive(true);
    for (const auto& choice : viewModeChoices) {
        auto* button = new QToolButton(picker);
        const QString label = QString::fromLatin1(choice.label);
        button->setIcon(symbolIcon(choice.symbol));
        button->setIconSize(QSize(20, 20));
        button->setToolTip(label);
        button->setAccessibleName(label);
        button->setCheckable(true);
        button->setAutoRaise(false);
        group->addButton(button);
        row->addWidget(button);
        viewButtons_[choice.mode] = button;
        const auto mode = choice.mode;
        connect(button, &QToolButton::toggled, this, [this, mode](bool chosen) {
            if (chosen)
                center_.uiState().setViewMode(mode);
        });
    }
    column->addLayout(row);
    auto* caption = new QLabel(QStringLiteral("View"), picker);
    caption->setAlignment(Qt::AlignHCenter);
    column->addWidget(caption);
    return picker;
}

void MainToolbar::refresh() {
    for (const auto& item : center_.toolbarItems()) {
        QAction* action = actions_.at(item.action);
        action->setEnabled(item.enabled);
        if (item.action != shell::ToolbarAction::viewMode)
            action->setIcon(symbolIcon(item.symbol));
    }
    for (const auto& [mode, button] : viewButtons_) {
        button->setEnabled(actions_.at(shell::ToolbarAction::viewMode)->isEnabled());
        const QSignalBlocker quiet(button);
        button->setChecked(center_.uiState().viewMode() == mode);
    }
    QAction* inspector = actions_.at(shell::ToolbarAction::inspector);
    const QSignalBlocker quiet(inspector);
    inspector->setChecked(center_.uiState().showsInspector());
}

QAction* MainToolbar::action(shell::ToolbarAction which) const {
    return actions_.at(which);
}

QToolButton* MainToolbar::viewModeButton(shell::LibraryViewMode mode) const {
    return viewButtons_.at(mode);
}

bool MainToolbar::eventFilter(QObject* watched, QEvent* event) {
    if (watched == openButton_ &&
        (event->type() == QEvent::Enter || event->type() == QEvent::Leave)) {
        center_.uiState().setHoveringOpenButton(event->type() == QEvent::Enter);
    }
    return QToolBar::eventFilter(watched, event);
}

} // namespace lumivesper::ui
