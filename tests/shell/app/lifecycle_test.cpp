#include "app_fixture.h"

#include "shell/app/qt_dialogs.h"
#include "shell/app/qt_main_thread.h"
#include "shell/app/single_instance.h"
#include "shell/app/terminal_interrupts.h"
#include "ui/menus.h"
#include "ui/qt_text.h"

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QMessageBox>
#include <QPushButton>
#include <QProcess>
#include <QtTest>

#include <csignal>
#include <thread>

namespace lumivesper::shell {

namespace {

constexpr std::size_t saveAndQuit = 0, cancel = 1, dontSave = 2;

} // namespace

class LifecycleTest : public QObject {
    Q_OBJECT

private slots:
    void closingADirtyWindowAsksAndOnlyItsAnswerCloses() {
        AppFixture fixture;
        ui::MainWindow& window = fixture.window();
        fixture.state().addImage(AppFixture::image("dawn"));

        fixture.dialogs.alertAnswers = {cancel};
        QVERIFY(!window.close());
        QCOMPARE(fixture.dialogs.alerts.size(), 1u);
        QCOMPARE(fixture.dialogs.alerts[0].informativeText, "Do you want to save before close?");
        QVERIFY(window.isVisible());

        fixture.dialogs.alertAnswers = {dontSave};
        window.close();
        QTRY_VERIFY(!window.isVisible());
        QCOMPARE(fixture.dialogs.alerts.size(), 2u); // the second close passed unchecked
        QCOMPARE(fixture.exits, 0);                  // closing is not quitting
    }

    void quittingAsksAndWaitsForTheAnswer_data() {
        QTest::addColumn<bool>("dirty");
        QTest::addColumn<bool>("saved");          // the document has a package
        QTest::addColumn<int>("answer");          // -1: no alert expected
        QTest::addColumn<bool>("panelCancelled"); // only when a save panel comes
        QTest::addColumn<int>("exits");

        QTest::newRow("clean") << false << false << -1 << false << 1;
        QTest::newRow("cancel") << true << false << int(cancel) << false << 0;
        QTest::newRow("don't save") << true << false << int(dontSave) << false << 1;
        QTest::newRow("save & quit, saved before") << true << true << int(saveAndQuit) << false << 1;
        QTest::newRow("save & quit, panel chosen") << true << false << int(saveAndQuit) << false << 1;
        QTest::newRow("save & quit, panel cancelled")
            << true << false << int(saveAndQuit) << true << 0;
    }

    void quittingAsksAndWaitsForTheAnswer() {
        QFETCH(bool, dirty);
        QFETCH(bool, saved);
        QFETCH(int, answer);
        QFETCH(bool, panelCancelled);
        QFETCH(int, exits);
        AppFixture fixture;
        const auto package = fixture.folder.path() / "Day.lvesper";
        if (saved) {
            fixture.state().addImage(AppFixture::image("first"));
            document::ProjectIO(fixture.dialogs).save(package, fixture.state());
        }
        if (dirty)
            fixture.state().addImage(AppFixture::image("more"));
        if (answer >= 0)
            fixture.dialogs.alertAnswers = {std::size_t(answer)};
        fixture.dialogs.saveAnswers = {panelCancelled ? std::nullopt
                                                      : std::optional<std::filesystem::path>(package)};

        fixture.app->requestQuit();
        if (answer == int(saveAndQuit) && !saved)
            fixture.app->requestQuit(); // again while the panel is pending: no second question
        fixture.dialogs.mainThread.drain();

        QCOMPARE(fixture.dialogs.alerts.size(), answer >= 0 ? 1u : 0u);
        if (answer >= 0)
            QCOMPARE(fixture.dialogs.alerts[0].buttons[0], "Save & Quit");
        QCOMPARE(fixture.exits, exits);
        QCOMPARE(fixture.app->lifecycle().isTerminating(), exits == 1 && dirty);
        if (answer == int(saveAndQuit) && !panelCancelled)
            QVERIFY(!fixture.state().isDirty());
    }

    void ctrlCInTheTerminalQuitsThroughTheSameQuestion() {
        AppFixture fixture;
        TerminalInterrupts interrupts;
        connect(&interrupts, &TerminalInterrupts::interrupted, this,
                [&fixture] { fixture.app->requestQuit(); });
        fixture.state().addImage(AppFixture::image("dusk"));

        fixture.dialogs.alertAnswers = {cancel};
        std::raise(SIGINT);
        QTRY_COMPARE(fixture.dialogs.alerts.size(), 1u);
        QCOMPARE(fixture.exits, 0);

        fixture.dialogs.alertAnswers = {dontSave};
        std::raise(SIGINT);
        QTRY_COMPARE(fixture.exits, 1);
    }

    void theQuitShortcutWorksWhileASheetIsUp() {
        AppFixture fixture;
        fixture.state().addImage(AppFixture::image("dusk"));
        fixture.window().show();
        fixture.window().menus().action(MenuCommand::settings)->trigger();
        auto* sheet = fixture.window().findChild<QDialog*>();
        QVERIFY(sheet);
        QVERIFY(QTest::qWaitForWindowExposed(sheet));
        sheet->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(sheet));

        fixture.dialogs.alertAnswers = {dontSave};
        QTest::keyClick(sheet, Qt::Key_Q, Qt::ControlModifier);
        QTRY_COMPARE(fixture.exits, 1);
        QCOMPARE(fixture.dialogs.alerts.size(), 1u); // through the unsaved-changes question
    }

    void filesGivenAtLaunchOpenOnceTheWindowIsBound() {
        lumivesper::testing::TemporaryFolder elsewhere;
        const auto package = elsewhere.path() / "Launch.lvesper";
        document::AppState empty;
        lumivesper::testing::ScriptedDialogs quiet;
        document::ProjectIO(quiet).save(package, empty);

        AppFixture fixture({ui::toQString(elsewhere.path() / "photo.png"), ui::toQString(package)});
        QCOMPARE(fixture.refused, QStringList{ui::toQString(elsewhere.path() / "photo.png")});
        QCOMPARE(fixture.state().currentProjectPath(), package);
        QVERIFY(fixture.dialogs.alerts.empty());
    }

    void workPostedFromAnyThreadRunsOnTheMainThreadUnlessItsQueueHasGone() {
        std::thread::id ranOn;
        bool dropped = true;
        {
            QtMainThread mainThread;
            std::thread worker([&] { mainThread.post([&] { ranOn = std::this_thread::get_id(); }); });
            worker.join();
            QTRY_COMPARE(ranOn, std::this_thread::get_id());
            mainThread.post([&] { dropped = false; });
        }
        QCoreApplication::processEvents();
        QVERIFY(dropped);
    }

    // The question as the user sees it: the buttons in their order, an ampersand as a character.
    void alertsShowTheirButtonsAndAnswerWithTheirIndex() {
        QtDialogs dialogs;
        QStringList shown;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        QTimer::singleShot(0, this, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box)
                return; // runAlert would wait for ever; the test times out
            icon = box->icon();
            for (QAbstractButton* button : box->buttons())
                shown << button->text();
            for (QAbstractButton* button : box->buttons()) {
                if (button->text() == QLatin1String("Don't Save"))
                    button->click();
            }
        });
        const auto answer = dialogs.runAlert({"You have unsaved changes.",
                                              "Do you want to save before quitting?",
                                              platform::AlertStyle::warning,
                                              {"Save & Quit", "Cancel", "Don't Save"}});
        QCOMPARE(answer, dontSave);
        QCOMPARE(icon, QMessageBox::Warning);
        QVERIFY(shown.contains(QStringLiteral("Save && Quit"))); // drawn as "Save & Quit"
        QCOMPARE(shown.size(), 3);
    }

    // The second launch is the real program, started from another working folder.
    void aFileHandedToASecondInstanceOpensInTheFirst() {
        AppFixture fixture;
        const auto package = fixture.savedPackage("Handed.lvesper");
        std::filesystem::permissions(fixture.folder.path(), std::filesystem::perms::owner_all);
        const QString runtime = ui::toQString(fixture.folder.path());
        SingleInstance first(QDir(runtime).filePath(QStringLiteral("lumivesper.socket")));
        QVERIFY(first.listen());
        connect(&first, &SingleInstance::filesReceived, this,
                [&fixture](const QStringList& files) { fixture.app->openFromOutside(files); });

        QProcess second;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        second.setProcessEnvironment(environment);
        second.setWorkingDirectory(runtime);
        second.setProcessChannelMode(QProcess::ForwardedChannels);
        second.start(QStringLiteral(LUMIVESPER_APP_BINARY), {QStringLiteral("Handed.lvesper")});
        QTRY_COMPARE_WITH_TIMEOUT(fixture.state().currentProjectPath(),
                                  std::optional<std::filesystem::path>(package), 20000);
        QTRY_COMPARE_WITH_TIMEOUT(second.state(), QProcess::NotRunning, 20000);
        QCOMPARE(second.exitCode(), 0);
        QVERIFY(fixture.dialogs.alerts.empty()); // a clean document opens without a question
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::LifecycleTest)
#include "lifecycle_test.moc"
