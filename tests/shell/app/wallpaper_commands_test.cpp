#include "app_fixture.h"
#include "export/heic_generator.h"
#include "platform/image_io.h"
#include "ui/library/library_view.h"
#include "ui/menus.h"
#include "ui/wallpaper/background_setup_dialog.h"
#include "ui/wallpaper/job_progress_dialog.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QUrl>
#include <QtTest>
#include <cstdlib>
#include <fstream>

namespace lumivesper::shell {

namespace fs = std::filesystem;

class WallpaperCommandsTest : public QObject {
    Q_OBJECT

private:
    // Solid pictures told apart by their red value, as images of a time document.
    static std::vector<document::WallpaperImage> pictures(const fs::path& folder) {
        std::vector<document::WallpaperImage> images;
        const std::vector<std::tuple<std::uint8_t, double, double>> frames = {
            {20, -10, 80}, {200, 45, 180}, {90, -5, 280}};
        for (const auto& [red, altitude, azimuth] : frames) {
            platform::PixelImage pixels(64, 36);
            for (std::size_t i = 0; i < pixels.rgba.size(); i += 4)
                pixels.rgba[i] = red, pixels.rgba[i + 3] = 255;
            document::WallpaperImage image;
            image.fileName = "red-" + std::to_string(red) + ".png";
            image.sourcePath = folder / image.fileName;
            platform::writePng(pixels, *image.sourcePath);
            image.altitude = altitude, image.azimuth = azimuth;
            images.push_back(image);
        }
        return images;
    }

    static fs::path dynamicWallpaper(const fs::path& folder) {
        const fs::path path = folder / "Dunes.heic";
        exporting::HeicGenerator().generate(pictures(folder), path, document::WallpaperMode::time,
                                            std::nullopt, {});
        return path;
    }

    static bool idle(AppFixture& fixture) {
        return fixture.dialogs.mainThread.runUntil([&] {
            QCoreApplication::processEvents();
            return !fixture.app->wallpaperImport().isImporting() &&
                   !fixture.app->desktopBackground().isApplying();
        });
    }

    static void drop(QWidget& target, const fs::path& file) {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(QString::fromStdString(file.string()))});
        // Qt delivers a drop only where the drag has entered.
        QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &data, Qt::LeftButton,
                              Qt::NoModifier);
        QApplication::sendEvent(&target, &enter);
        QDropEvent event(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&target, &event);
    }

private slots:
    // The File menu's entry: a wallpaper chosen, a package named, the frames decoded on a worker,
    // and the new project in the window with its sun positions.
    void importFromTheFileMenuOpensTheNewProject() {
        AppFixture fixture;
        const fs::path wallpaper = dynamicWallpaper(fixture.folder.path());
        fixture.dialogs.openAnswers = {{wallpaper}};
        fixture.dialogs.saveAnswers = {fixture.folder.path() / "Imported"};
        QAction* entry = fixture.window().menus().action(MenuCommand::importDynamicWallpaper);
        QVERIFY(entry && entry->isEnabled());
        QCOMPARE(entry->text(), QStringLiteral("Import Dynamic Wallpaper..."));
        entry->trigger();
        fixture.dialogs.mainThread.drain();
        QVERIFY(idle(fixture));

        QVERIFY(fixture.dialogs.alerts.empty());
        QCOMPARE(fixture.state().currentProjectPath(),
                 std::optional(fixture.folder.path() / "Imported.lvesper"));
        const auto& images = fixture.state().images();
        QCOMPARE(images.size(), 3u);
        for (const auto& image : images)
            QVERIFY(image.sourcePath && fs::exists(*image.sourcePath));
        QCOMPARE(*images[0].altitude, -10.0); // sorted by the hour of the sun: morning first
        QVERIFY(!fixture.state().isDirty());
        QVERIFY(!fixture.app->jobProgress().dialog());
    }

    // A dropped dynamic wallpaper asks first; "Add as Image" keeps today's plain import.
    void aDroppedDynamicWallpaperOffersTheImport() {
        AppFixture fixture;
        const fs::path wallpaper = dynamicWallpaper(fixture.folder.path());
        auto* library = fixture.window().findChild<ui::LibraryView*>();
        QVERIFY(library);

        fixture.dialogs.alertAnswers = {1}; // Add as Image
        drop(*library, wallpaper);
        QVERIFY(
            fixture.dialogs.mainThread.runUntil([&] { return !fixture.dialogs.alerts.empty(); }));
        QCOMPARE(fixture.dialogs.alerts[0].message,
                 std::string("\u201cDunes.heic\u201d is a dynamic wallpaper."));
        QVERIFY(fixture.dialogs.mainThread.runUntil(
            [&] { return library->imports().pendingCount() == 0; }));
        QCOMPARE(fixture.state().images().size(), 1u);
        QVERIFY(!fixture.state().currentProjectPath());

        fixture.dialogs.alertAnswers = {0, 2}; // the offer taken; then Don't Save the image
        fixture.dialogs.saveAnswers = {fixture.folder.path() / "Dropped.lvesper"};
        drop(*library, wallpaper);
        QVERIFY(fixture.dialogs.mainThread.runUntil(
            [&] { return fixture.state().currentProjectPath().has_value(); }));
        QCOMPARE(fixture.dialogs.alerts.size(), 3u); // the offer, then the unsaved question
        QCOMPARE(fixture.dialogs.alerts[2].message, std::string("You have unsaved changes."));
        QCOMPARE(fixture.state().images().size(), 3u);
    }

    // The whole command against the real desktop code, with a hook in place of a desktop: the
    // missing place and command are asked in the dialog, and the picture of the moment reaches
    // the hook.
    void setAsDesktopBackgroundAsksWhatIsMissingAndRunsTheHook() {
        AppFixture fixture;
        const fs::path home = fixture.folder.path() / "home";
        const fs::path bin = fixture.folder.path() / "bin";
        fs::create_directories(bin);
        std::ofstream(bin / "systemctl") << "#!/bin/sh\nexit 0\n";
        fs::permissions(bin / "systemctl", fs::perms::owner_all);
        qputenv("HOME", home.c_str());
        qputenv("XDG_DATA_HOME", (home / "data").c_str());
        qputenv("XDG_CONFIG_HOME", (home / "config").c_str());
        qputenv("PATH", QByteArray(bin.c_str()) + ":/usr/bin:/bin");
        qunsetenv("XDG_CURRENT_DESKTOP");

        for (auto& image : pictures(fixture.folder.path()))
            fixture.state().addImage(image);
        const fs::path package = fixture.folder.path() / "Dunes.lvesper";
        document::ProjectIO(fixture.dialogs).save(package, fixture.state());

        const fs::path shown = fixture.folder.path() / "shown.png";
        QAction* entry = fixture.window().menus().action(MenuCommand::setDesktopBackground);
        QVERIFY(entry && entry->isEnabled());
        bool asked = false;
        QTimer::singleShot(0, [&] {
            auto* dialog =
                qobject_cast<ui::BackgroundSetupDialog*>(QApplication::activeModalWidget());
            if (!dialog)
                return;
            asked = true;
            QVERIFY(dialog->latitude() && dialog->command());
            QVERIFY(dialog->setButton().isEnabled() == false); // no place yet
            dialog->latitude()->setText(QStringLiteral(" 48.14"));
            dialog->longitude()->setText(QStringLiteral("11.58"));
            dialog->command()->setText(QStringLiteral("cp {} '") +
                                       QString::fromStdString(shown.string()) +
                                       QStringLiteral("'"));
            QVERIFY(dialog->setButton().isEnabled());
            dialog->setButton().click();
        });
        entry->trigger();
        QVERIFY(asked);
        QVERIFY(idle(fixture));

        QCOMPARE(fixture.dialogs.alerts.size(), 1u);
        QCOMPARE(fixture.dialogs.alerts[0].message,
                 std::string("\u201cDunes\u201d is now your desktop background."));
        QVERIFY(fs::exists(shown));
        QVERIFY(fs::exists(home / "data" / "lumivesper" / "backgrounds"));
        const auto place = fixture.app->desktopBackground().rememberedLocation();
        QVERIFY(place && place->latitude == 48.14);
        QCOMPARE(fixture.app->desktopBackground().rememberedCommand().substr(0, 6),
                 std::string("cp {} "));
    }

    // Cancel asks the work to stop once, and the dialog says so until the work has ended.
    void theProgressDialogCancelsOnceAndSaysSo() {
        int cancels = 0;
        ui::JobProgressDialog dialog(
            QStringLiteral("Importing"), [&] { ++cancels; }, nullptr);
        dialog.setProgress(1, 4, QStringLiteral("Decoded image 1/4"));
        QCOMPARE(dialog.bar().maximum(), 4);
        QCOMPARE(dialog.bar().value(), 1);
        QTest::mouseClick(&dialog.cancelButton(), Qt::LeftButton);
        QTest::keyClick(&dialog, Qt::Key_Escape);
        QCOMPARE(cancels, 1);
        QVERIFY(!dialog.cancelButton().isEnabled());
        dialog.setProgress(2, 4, QStringLiteral("Decoded image 2/4"));
        QCOMPARE(dialog.message().text(), QStringLiteral("Stopping\u2026"));
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::WallpaperCommandsTest)
#include "wallpaper_commands_test.moc"
