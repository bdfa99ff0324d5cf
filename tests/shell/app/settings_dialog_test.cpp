#include "app_fixture.h"

#include "settings/server_config.h"
#include "ui/menus.h"
#include "ui/settings/settings_dialog.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QtTest>

namespace lumivesper::shell {

class SettingsDialogTest : public QObject {
    Q_OBJECT

private:
    static ui::SettingsDialog* openSettings(AppFixture& fixture) {
        fixture.window().menus().action(MenuCommand::settings)->trigger();
        return fixture.window().findChild<ui::SettingsDialog*>();
    }

    template <typename Widget> static Widget* titled(QWidget& dialog, const QString& title) {
        for (auto* candidate : dialog.findChildren<Widget*>()) {
            if (candidate->text() == title)
                return candidate;
        }
        return nullptr;
    }

    // Clicks a check box or radio button on its indicator, where the press always lands.
    static void press(QAbstractButton* button) {
        QVERIFY(button);
        QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(6, button->height() / 2));
    }

private slots:
    void initTestCase() { qunsetenv("API_SERVER_URL"); }

    // "Current server:" follows every key typed while the switch is on, falls back to the
    // default server for an empty field, and the field keeps its text while hidden.
    void currentServerFollowsTheFieldLive() {
        AppFixture fixture;
        ui::SettingsDialog* dialog = openSettings(fixture);
        QVERIFY(dialog);
        dialog->showTab(ui::SettingsDialog::Tab::advanced);
        auto* current = dialog->findChild<QLabel*>(QStringLiteral("currentServer"));
        auto* field = dialog->findChild<QLineEdit*>(QStringLiteral("customServerURL"));
        auto* toggle = titled<QCheckBox>(*dialog, QStringLiteral("Use custom server"));
        const QString builtIn = QString::fromLatin1(settings::builtInServerURL);
        QCOMPARE(current->text(), builtIn);
        QVERIFY(!field->isVisible());

        press(toggle);
        QVERIFY(field->isVisible());
        QCOMPARE(current->text(), builtIn); // switch on, field empty
        QTest::keyClicks(field, QStringLiteral("http://l"));
        QCOMPARE(current->text(), QStringLiteral("http://l"));
        QTest::keyClick(field, Qt::Key_H);
        QCOMPARE(current->text(), QStringLiteral("http://lh"));

        press(toggle);
        QVERIFY(!field->isVisible());
        QCOMPARE(current->text(), builtIn);
        press(toggle);
        QCOMPARE(field->text(), QStringLiteral("http://lh"));
        QCOMPARE(current->text(), QStringLiteral("http://lh"));
    }

    // "Reset to Defaults" puts back the stable channel, the switch and the empty field at once.
    void resetToDefaultsShowsAtOnce() {
        AppFixture fixture;
        ui::SettingsDialog* dialog = openSettings(fixture);
        auto& stored = fixture.app->appSettings();
        dialog->showTab(ui::SettingsDialog::Tab::updates);
        press(titled<QRadioButton>(*dialog, QStringLiteral("Beta")));
        QCOMPARE(stored.updateChannel(), settings::UpdateChannel::beta);
        dialog->showTab(ui::SettingsDialog::Tab::advanced);
        press(titled<QCheckBox>(*dialog, QStringLiteral("Use custom server")));
        QTest::keyClicks(dialog->findChild<QLineEdit*>(QStringLiteral("customServerURL")),
                         QStringLiteral("http://x"));

        QTest::mouseClick(titled<QPushButton>(*dialog, QStringLiteral("Reset to Defaults")),
                          Qt::LeftButton);
        QCOMPARE(stored.updateChannel(), settings::UpdateChannel::stable);
        QVERIFY(titled<QRadioButton>(*dialog, QStringLiteral("Stable"))->isChecked());
        QVERIFY(!titled<QCheckBox>(*dialog, QStringLiteral("Use custom server"))->isChecked());
        QVERIFY(dialog->findChild<QLineEdit*>(QStringLiteral("customServerURL"))->text().isEmpty());
        QCOMPARE(dialog->findChild<QLabel*>(QStringLiteral("currentServer"))->text(),
                 QString::fromLatin1(settings::builtInServerURL));

        dialog->reject();
        QVERIFY(!fixture.app->commandCenter().uiState().activeSheet());
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::SettingsDialogTest)
#include "settings_dialog_test.moc"
