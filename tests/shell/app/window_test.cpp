#include "app_fixture.h"
#include "ui/menus.h"
#include "ui/symbol_icons.h"
#include "ui/toolbar.h"

#include <QAccessible>
#include <QAction>
#include <QDialog>
#include <QDockWidget>
#include <QToolButton>
#include <QtTest>
#include <functional>

namespace lumivesper::shell {

using document::WallpaperMode;
using ui::MainWindow;

class WindowTest : public QObject {
    Q_OBJECT

private:
    static bool enabled(MainWindow& window, MenuCommand command) {
        QAction* action = window.menus().action(command);
        return action && action->isEnabled();
    }
    static bool enabled(MainWindow& window, ToolbarAction which) {
        return window.toolbar().action(which)->isEnabled();
    }

private slots:
    void initTestCase() { ui::installFallbackIconTheme(); }

    // Each change of the document reaches the menus and the toolbar without anyone asking.
    void menusAndToolbarFollowTheDocument() {
        AppFixture fixture;
        MainWindow& window = fixture.window();
        QVERIFY(!enabled(window, MenuCommand::save));
        QVERIFY(!enabled(window, MenuCommand::closeProject));
        QVERIFY(!enabled(window, MenuCommand::exportWallpaper));
        QVERIFY(!enabled(window, MenuCommand::togglePlayback));
        QVERIFY(!enabled(window, ToolbarAction::exportWallpaper));
        QVERIFY(!window.toolbar().viewModeButton(LibraryViewMode::grid)->isEnabled());

        fixture.state().addImage(AppFixture::image("dawn"));
        QVERIFY(enabled(window, MenuCommand::save));
        QVERIFY(enabled(window, MenuCommand::closeProject));
        QVERIFY(enabled(window, MenuCommand::togglePlayback));
        QVERIFY(enabled(window, ToolbarAction::save));
        QVERIFY(window.toolbar().viewModeButton(LibraryViewMode::list)->isEnabled());
        QVERIFY(!enabled(window, ToolbarAction::autoTween)); // one key image is not a pair
        QVERIFY(!enabled(window, MenuCommand::deleteAllTweens));

        fixture.state().addImage(AppFixture::image("dusk"));
        fixture.state().addImage(AppFixture::image("dusk-tween", true));
        QVERIFY(enabled(window, ToolbarAction::autoTween));
        QVERIFY(enabled(window, MenuCommand::deleteAllTweens));

        fixture.state().setMode(WallpaperMode::appearance);
        QVERIFY(!enabled(window, MenuCommand::togglePlayback));
    }

    void undoAndRedoFollowTheManagerAndAnswerTheirKeys() {
        AppFixture fixture;
        MainWindow& window = fixture.window();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        QVERIFY(!enabled(window, MenuCommand::undo));
        QVERIFY(!enabled(window, MenuCommand::redo));

        fixture.state().addImage(AppFixture::image("noon"));
        QVERIFY(enabled(window, MenuCommand::undo));
        QVERIFY(!enabled(window, MenuCommand::redo));

        QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
        QVERIFY(fixture.state().images().empty());
        QVERIFY(!enabled(window, MenuCommand::undo));
        QVERIFY(enabled(window, MenuCommand::redo));

        QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(fixture.state().images().size(), 1u);
        QVERIFY(enabled(window, MenuCommand::undo));
    }

    void titleNamesTheProjectAndMarksUnsavedChanges() {
        AppFixture fixture;
        MainWindow& window = fixture.window();
        QCOMPARE(window.windowTitle(), QStringLiteral("Untitled[*]"));
        QVERIFY(!window.isWindowModified());

        fixture.state().addImage(AppFixture::image("night"));
        QVERIFY(window.isWindowModified());

        fixture.dialogs.saveAnswers.push_back(fixture.folder.path() / "Trip.lvesper");
        window.menus().action(MenuCommand::save)->trigger();
        fixture.dialogs.mainThread.drain(); // the panel comes a moment later
        QCOMPARE(window.windowTitle(), QStringLiteral("Trip[*]"));
        QVERIFY(!window.isWindowModified());
        QVERIFY(!enabled(window, MenuCommand::save));
    }

    void spaceTogglesPlaybackOnlyInTimeModeWithImages() {
        AppFixture fixture;
        MainWindow& window = fixture.window();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        const auto& ui = fixture.app->commandCenter().uiState();

        QTest::keyClick(&window, Qt::Key_Space);
        QVERIFY(!ui.isTimelinePlaying()); // nothing to play

        fixture.state().addImage(AppFixture::image("sunrise"));
        QTest::keyClick(&window, Qt::Key_Space);
        QVERIFY(ui.isTimelinePlaying());
        QCOMPARE(window.menus().action(MenuCommand::togglePlayback)->text(),
                 QStringLiteral("Pause Playback"));
        QTest::keyClick(&window, Qt::Key_Space);
        QVERIFY(!ui.isTimelinePlaying());

        fixture.state().setMode(WallpaperMode::appearance);
        QTest::keyClick(&window, Qt::Key_Space);
        QVERIFY(!ui.isTimelinePlaying());
    }

    void toolbarButtonsDriveTheWindowState() {
        AppFixture fixture;
        MainWindow& window = fixture.window();
        const auto& ui = fixture.app->commandCenter().uiState();
        fixture.state().addImage(AppFixture::image("a"));

        QTest::mouseClick(window.toolbar().viewModeButton(LibraryViewMode::single), Qt::LeftButton);
        QCOMPARE(ui.viewMode(), LibraryViewMode::single);
        QVERIFY(window.toolbar().viewModeButton(LibraryViewMode::single)->isChecked());
        fixture.dialogs.alertAnswers.push_back(2); // Don't Save
        window.menus().action(MenuCommand::newProject)->trigger();
        QCOMPARE(ui.viewMode(), LibraryViewMode::grid);
        QVERIFY(window.toolbar().viewModeButton(LibraryViewMode::grid)->isChecked());

        auto* dock = window.findChild<QDockWidget*>(QStringLiteral("inspectorDock"));
        QVERIFY(dock->isVisible());
        window.toolbar().action(ToolbarAction::inspector)->trigger();
        QVERIFY(!ui.showsInspector());
        QVERIFY(!dock->isVisible());

        // The generation sheet comes up, and once closed no longer counts as on screen.
        fixture.app->commandCenter().performToolbarAction(ToolbarAction::generateTimeline);
        QVERIFY(ui.activeSheet() == ActiveSheet::magicGenerate);
        auto* sheet = window.findChild<QDialog*>(QStringLiteral("magicGenerateSheet"));
        QVERIFY(sheet && sheet->isVisible());
        sheet->reject();
        QVERIFY(!ui.activeSheet());
    }

    // What a screen reader and an icon theme must give every control of the toolbar.
    void everyToolbarControlHasAThemeIconAndAnAccessibleName() {
        AppFixture fixture;
        const auto buttons = fixture.window().toolbar().findChildren<QToolButton*>();
        QVERIFY(buttons.size() >= 10);
        for (QToolButton* button : buttons) {
            if (button->objectName() == QLatin1String("qt_toolbar_ext_button"))
                continue;
            QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(button);
            QVERIFY(accessible);
            const QString name = accessible->text(QAccessible::Name);
            QVERIFY2(!name.isEmpty(), qPrintable(button->toolTip()));
            QVERIFY2(!button->icon().pixmap(24).isNull(), qPrintable(name));
        }
        for (const char* symbol : {"folder", "folder.fill"})
            QVERIFY2(QIcon::hasThemeIcon(ui::themeIconName(symbol)), symbol);
    }

    // What a screen reader lists: every control the user can reach in the window as it stands,
    // with images in grid, list and single view, has a name to call it by.
    void everyShownControlOfTheWindowHasAnAccessibleName() {
        AppFixture fixture;
        MainWindow& window = fixture.window();
        fixture.state().setMode(WallpaperMode::time);
        for (const char* name : {"dawn", "noon", "dusk"})
            fixture.state().addImage(AppFixture::image(name));
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const QSet<QAccessible::Role> controls = {
            QAccessible::PushButton, QAccessible::CheckBox,   QAccessible::RadioButton,
            QAccessible::Slider,     QAccessible::SpinBox,    QAccessible::EditableText,
            QAccessible::ComboBox,   QAccessible::MenuItem,   QAccessible::ListItem,
            QAccessible::List,       QAccessible::ButtonMenu, QAccessible::PageTab};
        for (auto mode : {LibraryViewMode::grid, LibraryViewMode::list, LibraryViewMode::single}) {
            window.toolbar().viewModeButton(mode)->click();
            QStringList unnamed;
            int seen = 0;
            std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* node) {
                if (!node || node->state().invisible)
                    return;
                if (controls.contains(node->role())) {
                    ++seen;
                    if (node->text(QAccessible::Name).trimmed().isEmpty())
                        unnamed << QStringLiteral("%1 (%2)")
                                       .arg(node->object()
                                                ? node->object()->metaObject()->className()
                                                : "item")
                                       .arg(int(node->role()));
                }
                for (int i = 0; i < node->childCount(); ++i)
                    walk(node->child(i));
            };
            walk(QAccessible::queryAccessibleInterface(&window));
            QVERIFY2(seen >= 12, qPrintable(QString::number(seen))); // toolbar and transport
            QVERIFY2(unnamed.isEmpty(), qPrintable(unnamed.join(QStringLiteral(", "))));
        }
    }

    // A screen reader toggles a checkable button through its accessible action, with no click.
    void checkableControlsAnswerTheirAccessibleToggle() {
        AppFixture fixture;
        MainWindow& window = fixture.window();
        const auto& ui = fixture.app->commandCenter().uiState();
        fixture.state().addImage(AppFixture::image("a"));
        auto toggle = [](QWidget* control) {
            QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(control);
            accessible->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        };

        toggle(window.toolbar().widgetForAction(window.toolbar().action(ToolbarAction::inspector)));
        QVERIFY(!ui.showsInspector());
        toggle(window.toolbar().viewModeButton(LibraryViewMode::list));
        QCOMPARE(ui.viewMode(), LibraryViewMode::list);
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::WindowTest)
#include "window_test.moc"
