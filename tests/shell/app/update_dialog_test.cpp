#include "../../settings/loopback_feed.h"
#include "app_fixture.h"
#include "ui/menus.h"
#include "ui/settings/update_dialog.h"
#include "ui/settings/update_notice.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QtTest>

namespace lumivesper::shell {

namespace {

using settings::testing::appcastWith;
using settings::testing::LoopbackFeed;

constexpr const char* stableFeed = "/api/updates/appcast.xml";
constexpr const char* betaFeed = "/api/updates/appcast-beta.xml";
constexpr const char* notesURL = "https://example.test/notes/99.0";

// Passes the checker's verdicts on to the application and counts them, so that a test knows
// when one has arrived.
class CountingDelegate final : public settings::UpdaterDelegate {
public:
    std::string feedURLString() override { return application->feedURLString(); }
    void didFindValidUpdate(const settings::AppcastItem& item,
                            settings::UpdateCheckKind kind) override {
        ++verdicts;
        application->didFindValidUpdate(item, kind);
    }
    void didNotFindUpdate(settings::UpdateCheckKind kind) override {
        ++verdicts;
        application->didNotFindUpdate(kind);
    }
    void didAbortWithError(const settings::UpdateCheckError& error,
                           settings::UpdateCheckKind kind) override {
        ++verdicts;
        application->didAbortWithError(error, kind);
    }

    settings::UpdaterDelegate* application = nullptr; // set before the checker starts
    int verdicts = 0;                                 // main thread
};

// The application with its real update checker reading `feed`; the launch's background check
// has given its verdict.
class CheckedApp {
public:
    explicit CheckedApp(const LoopbackFeed& feed) {
        qputenv("SPARKLE_FEED_BASE_URL", QByteArray::fromStdString(feed.baseURL()));
        fixture =
            std::make_unique<AppFixture>(QStringList{}, [this](LumivesperApp::Options& options) {
                options.makeUpdater = [this](settings::UpdaterDelegate& application) {
                    verdicts.application = &application;
                    return std::make_unique<UpdateCheckerController>(verdicts, checkerReplies);
                };
            });
        waitForVerdicts(1);
    }
    ~CheckedApp() { fixture.reset(); } // the checker goes before the delegate it reports to

    bool waitForVerdicts(int count) {
        return checkerReplies.runUntil([&] { return verdicts.verdicts >= count; },
                                       std::chrono::seconds(15));
    }
    ui::MainWindow& window() { return fixture->window(); }
    ui::UpdateDialog* dialog() { return window().findChild<ui::UpdateDialog*>(); }
    ui::UpdateNotice* notice() { return window().findChild<ui::UpdateNotice*>(); }

    platform::QueuedMainThread checkerReplies; // the checker's verdicts wait here
    CountingDelegate verdicts;
    std::unique_ptr<AppFixture> fixture;
};

QString textOf(QWidget* dialog, const char* name) {
    auto* label = dialog->findChild<QLabel*>(QString::fromLatin1(name));
    return label ? label->text() : QString();
}

// The texts of the visible buttons, in the order they were made.
QStringList visibleButtons(QWidget* widget) {
    QStringList texts;
    for (auto* button : widget->findChildren<QPushButton*>())
        if (button->isVisible())
            texts << button->text();
    return texts;
}

QPushButton* button(QWidget* widget, const QString& text) {
    for (auto* candidate : widget->findChildren<QPushButton*>())
        if (candidate->text() == text)
            return candidate;
    return nullptr;
}

QString newest() {
    return QString::fromStdString(settings::UpdateChecker::buildVersion());
}

} // namespace

class UpdateDialogTest : public QObject {
    Q_OBJECT

private slots:
    void checkForUpdatesSaysWhatTheFeedSays_data() {
        QTest::addColumn<QString>("body");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("announcedAtLaunch");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QStringList>("buttons");
        const QString feedWithUpdate =
            QString::fromStdString(appcastWith("99999", "99.0", notesURL));
        QTest::newRow("found") << feedWithUpdate << 200 << true
                               << "A new version of Lumivesper AI is available"
                               << "Lumivesper AI 99.0 (build 99999) is out on the Stable channel."
                               << QStringList{"Download", "Later"};
        QTest::newRow("up to date")
            << QString::fromStdString(appcastWith(newest().toStdString(), "0.0")) << 200 << false
            << "You're up to date"
            << "Lumivesper AI " LUMIVESPER_VERSION << QStringList{"OK"};
        QTest::newRow("HTTP 500") << feedWithUpdate << 500 << false << "Update Check Failed"
                                  << "The update feed answered with status 500."
                                  << QStringList{"Try Again", "Close"};
    }

    // The dialog shows that the check runs, with Cancel, while the feed holds its answer back,
    // and then the verdict; the window stays usable throughout.
    void checkForUpdatesSaysWhatTheFeedSays() {
        QFETCH(QString, body);
        QFETCH(int, status);
        QFETCH(bool, announcedAtLaunch);
        QFETCH(QString, title);
        QFETCH(QString, message);
        QFETCH(QStringList, buttons);
        LoopbackFeed feed;
        feed.answer(stableFeed, body.toStdString(), status);
        CheckedApp app(feed);
        QCOMPARE(app.notice()->isVisible(), announcedAtLaunch);
        QVERIFY(!app.dialog());

        feed.holding = true;
        app.window().menus().action(MenuCommand::checkForUpdates)->trigger();
        QPointer<ui::UpdateDialog> dialog = app.dialog();
        QVERIFY(dialog && dialog->isVisible());
        QVERIFY(!dialog->isModal());
        QCOMPARE(textOf(dialog, "updateTitle"), QStringLiteral("Checking for Updates…"));
        QVERIFY(dialog->findChild<QProgressBar*>()->isVisible());
        QCOMPARE(visibleButtons(dialog), QStringList{"Cancel"});

        feed.holding = false;
        QVERIFY(app.waitForVerdicts(2));
        QCOMPARE(textOf(dialog, "updateTitle"), title);
        QVERIFY2(textOf(dialog, "updateMessage").startsWith(message),
                 qPrintable(textOf(dialog, "updateMessage")));
        QVERIFY(!dialog->findChild<QProgressBar*>()->isVisible());
        QCOMPARE(visibleButtons(dialog), buttons);
        auto* notes = dialog->findChild<QLabel*>(QStringLiteral("releaseNotesLink"));
        QCOMPARE(notes->isVisible(), status == 200 && announcedAtLaunch);
        if (notes->isVisible())
            QVERIFY(notes->text().contains(QStringLiteral("href=\"%1\"").arg(notesURL)));
        QVERIFY(!app.notice()->isVisible()); // what the dialog says, the notice need not

        QTest::mouseClick(button(dialog, buttons.last()), Qt::LeftButton);
        QVERIFY(!dialog || !dialog->isVisible());
    }

    // At launch and after a channel change the checks run in the background: nothing found and
    // failures show nothing at all; an update found shows only the notice, whose "View" opens the
    // dialog and whose "Dismiss" puts it away.
    void backgroundChecksShowOnlyAnUpdateFound() {
        LoopbackFeed feed;
        feed.answer(stableFeed, appcastWith(newest().toStdString(), "0.0"));
        feed.answer(betaFeed, "", 500);
        CheckedApp app(feed);
        settings::AppSettings& settings = app.fixture->app->appSettings();
        const auto nothingShown = [&] {
            return !app.dialog() && !app.notice()->isVisible() &&
                   QApplication::activeModalWidget() == nullptr;
        };
        QVERIFY(nothingShown());
        settings.setUpdateChannel(settings::UpdateChannel::beta);
        QVERIFY(app.waitForVerdicts(2));
        QVERIFY(nothingShown());

        feed.answer(betaFeed, appcastWith("99999", "99.0", notesURL));
        settings.setUpdateChannel(settings::UpdateChannel::stable);
        QVERIFY(app.waitForVerdicts(3));
        settings.setUpdateChannel(settings::UpdateChannel::beta);
        QVERIFY(app.waitForVerdicts(4));
        QVERIFY(!app.dialog());
        QVERIFY(app.notice()->isVisible());
        QCOMPARE(app.notice()->findChild<QLabel*>(QStringLiteral("updateNoticeText"))->text(),
                 QStringLiteral("Lumivesper AI 99.0 is available."));

        QTest::mouseClick(button(app.notice(), QStringLiteral("View")), Qt::LeftButton);
        QPointer<ui::UpdateDialog> dialog = app.dialog();
        QVERIFY(dialog && dialog->isVisible());
        QCOMPARE(textOf(dialog, "updateTitle"),
                 QStringLiteral("A new version of Lumivesper AI is available"));
        QVERIFY(!app.notice()->isVisible());
        QTest::mouseClick(button(dialog, QStringLiteral("Later")), Qt::LeftButton);
        QVERIFY(!dialog || !dialog->isVisible());

        settings.setUpdateChannel(settings::UpdateChannel::stable);
        QVERIFY(app.waitForVerdicts(5));
        settings.setUpdateChannel(settings::UpdateChannel::beta);
        QVERIFY(app.waitForVerdicts(6));
        QVERIFY(app.notice()->isVisible());
        QTest::mouseClick(button(app.notice(), QStringLiteral("Dismiss")), Qt::LeftButton);
        QVERIFY(!app.notice()->isVisible());
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::UpdateDialogTest)
#include "update_dialog_test.moc"
