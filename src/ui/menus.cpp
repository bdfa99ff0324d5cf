#include "ui/menus.h"

#include "ui/qt_text.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>

namespace lumivesper::ui {

namespace {

// Linux has no application menu: its entries go to Help, where desktop users look for updates.
QString menuTitle(const shell::Menu& menu) {
    switch (menu.placement) {
    case shell::MenuPlacement::file:
        return QStringLiteral("&File");
    case shell::MenuPlacement::edit:
        return QStringLiteral("&Edit");
    case shell::MenuPlacement::window:
        return QStringLiteral("&Window");
    case shell::MenuPlacement::application:
        return QStringLiteral("&Help");
    case shell::MenuPlacement::tweens:
        break;
    }
    return QStringLiteral("&") + toQString(menu.title);
}

constexpr shell::MenuPlacement barOrder[] = {
    shell::MenuPlacement::file, shell::MenuPlacement::edit, shell::MenuPlacement::tweens,
    shell::MenuPlacement::window, shell::MenuPlacement::application};

QKeySequence keySequence(const shell::KeyShortcut& shortcut) {
    QString text;
    if (shortcut.primaryModifier)
        text += QStringLiteral("Ctrl+");
    if (shortcut.shift)
        text += QStringLiteral("Shift+");
    return QKeySequence::fromString(text + toQString(shortcut.key), QKeySequence::PortableText);
}

// Entry titles are shown as they stand: an ampersand is a character, not a mnemonic.
QString plainTitle(const std::string& title) {
    return toQString(title).replace(QLatin1Char('&'), QStringLiteral("&&"));
}

const shell::MenuEntry* findEntry(const std::vector<shell::MenuEntry>& entries,
                                  shell::MenuCommand command,
                                  const std::optional<std::filesystem::path>& recent) {
    for (const auto& entry : entries) {
        if (entry.command == command && entry.recentPath == recent)
            return &entry;
        if (const auto* inner = findEntry(entry.submenu, command, recent))
            return inner;
    }
    return nullptr;
}

} // namespace

MainMenus::MainMenus(QMenuBar& bar, shell::AppCommandCenter& center, document::UndoManager* undo,
                     std::function<void()> quit)
    : QObject(&bar), bar_(bar), center_(center), undo_(undo) {
    for (const auto placement : barOrder) {
        auto* menu = new QMenu(&bar_);
        bar_.addMenu(menu);
        menus_[placement] = menu;
    }
    quit_ = new QAction(QStringLiteral("Quit"), this);
    // Some platform themes (offscreen, for one) bind no key to Quit; Linux desktops use Ctrl+Q.
    const auto quitKeys = QKeySequence::keyBindings(QKeySequence::Quit);
    quit_->setShortcuts(quitKeys.isEmpty() ? QList{QKeySequence(Qt::CTRL | Qt::Key_Q)}
                                           : quitKeys);
    quit_->setMenuRole(QAction::QuitRole);
    connect(quit_, &QAction::triggered, this, [quit = std::move(quit)] {
        if (quit)
            quit();
    });
    refresh();
}

void MainMenus::refresh() {
    // Deleted later: refresh may run from inside one of these entries' own signal.
    for (auto& made : entries_) {
        if (auto* action = qobject_cast<QAction*>(made.data()))
            action->setVisible(false);
        if (made)
            made->deleteLater();
    }
    entries_.clear();
    for (auto& [placement, menu] : menus_) {
        for (QAction* action : menu->actions())
            menu->removeAction(action);
    }
    for (const auto& model : shell::buildMenus(center_, undo_)) {
        QMenu* menu = menuFor(model);
        fill(*menu, model.entries);
        if (model.placement == shell::MenuPlacement::file) {
            menu->addSeparator();
            menu->addAction(quit_);
        }
    }
}

QMenu* MainMenus::menuFor(const shell::Menu& model) {
    QMenu* menu = menus_.at(model.placement);
    menu->setTitle(menuTitle(model));
    return menu;
}

void MainMenus::fill(QMenu& menu, const std::vector<shell::MenuEntry>& entries) {
    for (const auto& entry : entries) {
        if (entry.isSeparator) {
            entries_.emplace_back(menu.addSeparator());
            continue;
        }
        if (!entry.submenu.empty()) {
            auto* submenu = new QMenu(plainTitle(entry.title), &menu);
            fill(*submenu, entry.submenu);
            menu.addMenu(submenu);
            entries_.emplace_back(submenu);
            continue;
        }
        auto* action = new QAction(plainTitle(entry.title), &menu);
        action->setEnabled(entry.enabled);
        if (entry.shortcut)
            action->setShortcut(keySequence(*entry.shortcut));
        const auto command = entry.command;
        action->setData(static_cast<int>(command));
        const auto recent = entry.recentPath;
        if (recent)
            action->setToolTip(toQString(*recent));
        connect(action, &QAction::triggered, this,
                [this, command, recent] { perform(command, recent); });
        menu.addAction(action);
        entries_.emplace_back(action);
    }
}

void MainMenus::perform(shell::MenuCommand command,
                        const std::optional<std::filesystem::path>& recent) {
    for (const auto& model : shell::buildMenus(center_, undo_)) {
        if (const auto* entry = findEntry(model.entries, command, recent)) {
            shell::performMenuCommand(*entry, center_, undo_);
            return;
        }
    }
}

QAction* MainMenus::action(shell::MenuCommand command) const {
    for (const auto& made : entries_) {
        auto* action = qobject_cast<QAction*>(made.data());
        if (action && !action->menu() && action->data() == static_cast<int>(command))
            return action;
    }
    return nullptr;
}

QMenu* MainMenus::menu(shell::MenuPlacement placement) const {
    return menus_.at(placement);
}

} // namespace lumivesper::ui
