#include "app_fixture.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"
#include "ui/export/export_sheet.h"
#include "ui/export/frame_progress_grid.h"
#include "ui/menus.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>
#include <condition_variable>
#include <fstream>

namespace lumivesper::shell {

using exporting::HeicCanvasPreset;
using exporting::ProgressCallback;

namespace {

// Key frames with a run of tweens between the first two.
void fillDocument(document::AppState& state, int keys) {
    std::vector<document::WallpaperImage> images;
    for (int i = 0; i < keys; ++i) {
        images.push_back(AppFixture::image("k" + std::to_string(i) + ".png"));
        if (i == 0) {
            images.push_back(AppFixture::image("t1.png", true));
            images.push_back(AppFixture::image("t2.png", true));
        }
    }
    state.replaceImages(std::move(images), "Setup", false);
}

QPushButton* button(QWidget& sheet, const QString& title) {
    for (auto* candidate : sheet.findChildren<QPushButton*>()) {
        if (candidate->text() == title)
            return candidate;
    }
    return nullptr;
}

void choose(QComboBox* combo, const QString& entry) {
    const int index = combo->findText(entry);
    QVERIFY2(index >= 0, qPrintable(entry));
    combo->setCurrentIndex(index);
    emit combo->activated(index);
}

} // namespace

class ExportSheetTest : public QObject {
    Q_OBJECT

private:
    static ui::ExportSheet* openSheet(AppFixture& fixture) {
        fixture.window().menus().action(MenuCommand::exportWallpaper)->trigger();
        return fixture.window().findChild<ui::ExportSheet*>();
    }

private slots:
    // The two choices read the options when the sheet appears and write them when chosen;
    // a bad custom size blocks the export with the validation text.
    void choicesAndValidationEditTheOptions() {
        AppFixture fixture;
        fillDocument(fixture.state(), 2);
        auto& ui = fixture.app->commandCenter().uiState();
        auto options = ui.exportOptions();
        options.canvasPreset = HeicCanvasPreset::custom;
        ui.setExportOptions(options);

        ui::ExportSheet* sheet = openSheet(fixture);
        QVERIFY(sheet);
        QVERIFY(sheet->isVisible());
        auto* quality = sheet->findChild<QComboBox*>(QStringLiteral("exportQuality"));
        auto* display = sheet->findChild<QComboBox*>(QStringLiteral("targetDisplay"));
        QCOMPARE(quality->currentText(), QStringLiteral("High"));
        QCOMPARE(display->currentText(), QStringLiteral("Custom…"));

        choose(quality, QStringLiteral("Ultra"));
        QCOMPARE(ui.exportOptions().canvasPreset, HeicCanvasPreset::apple8k);
        QVERIFY(ui.exportOptions().enableDither);
        // The choices do not follow the options until the sheet appears again.
        QCOMPARE(display->currentText(), QStringLiteral("Custom…"));

        choose(display, QStringLiteral("External Display…"));
        choose(display, QStringLiteral("This Display"));
        QCOMPARE(ui.exportOptions().canvasPreset, HeicCanvasPreset::apple6k);

        auto* advanced = sheet->findChild<QToolButton*>(QStringLiteral("advancedToggle"));
        QVERIFY(!sheet->findChild<QWidget*>(QStringLiteral("advanced"))->isVisible());
        QCOMPARE(advanced->arrowType(), Qt::RightArrow);
        QTest::mouseClick(advanced, Qt::LeftButton);
        QVERIFY(sheet->findChild<QWidget*>(QStringLiteral("advanced"))->isVisible());
        QCOMPARE(advanced->arrowType(), Qt::DownArrow); // the open section's arrow points down
        choose(display, QStringLiteral("Custom…"));
        QLineEdit* width = nullptr;
        for (auto* field : sheet->findChildren<QLineEdit*>()) {
            if (field->accessibleName() == QLatin1String("Width"))
                width = field;
        }
        QVERIFY(width && width->isVisible());
        width->selectAll();
        QTest::keyClicks(width, QStringLiteral("abc"));
        QCOMPARE(ui.exportOptions().customWidth, std::string("abc"));
        auto* validation = sheet->findChild<QWidget*>(QStringLiteral("validation"));
        QVERIFY(validation->isVisible());
        QCOMPARE(validation->findChildren<QLabel*>().last()->text(),
                 QStringLiteral("Enter a valid custom canvas size."));
        QVERIFY(!button(*sheet, QStringLiteral("Export"))->isEnabled());
        width->selectAll();
        QTest::keyClicks(width, QStringLiteral("100 "));
        QVERIFY(!validation->isVisible());
        QVERIFY(button(*sheet, QStringLiteral("Export"))->isEnabled());

        QTest::mouseClick(button(*sheet, QStringLiteral("Cancel")), Qt::LeftButton);
        QVERIFY(!ui.activeSheet());
    }

    // The encoder's quality under "Advanced": refused while it is no whole number from 0 to 100
    // (the options keep the last good one), and handed to the encoder. The upscaling estimate
    // stands under the upscaler's status.
    void qualityFieldAndUpscaleEstimate() {
        std::atomic<int> encodedWith{-1};
        AppFixture fixture({}, [&](LumivesperApp::Options& options) {
            options.makeUpscaler = [] { return nullptr; };
            options.generateHeic = [&](auto&&, auto&&, auto, int quality, auto&&, auto&&, auto) {
                encodedWith = quality;
            };
            options.tileSeconds = [] { return 2.0; };
        });
        const auto model = fixture.folder.path() / "model.onnx";
        std::ofstream(model) << "stands in for the model";
        qputenv("LUMIVESPER_UPSCALE_MODEL", QByteArray(model.c_str()));
        std::vector<document::WallpaperImage> images;
        for (const char* name : {"a.png", "b.png"}) {
            auto image = AppFixture::image(name);
            image.sourcePath = fixture.folder.path() / name;
            platform::writePng(platform::PixelImage(1024, 576), *image.sourcePath);
            images.push_back(image);
        }
        fixture.state().replaceImages(std::move(images), "Setup", false);
        auto& ui = fixture.app->commandCenter().uiState();

        ui::ExportSheet* sheet = openSheet(fixture);
        qunsetenv("LUMIVESPER_UPSCALE_MODEL");
        QVERIFY(sheet);
        auto* estimate = sheet->findChild<QLabel*>(QStringLiteral("upscaleEstimate"));
        QVERIFY(fixture.waitFor([&] { return estimate->isVisible(); }));
        QCOMPARE(estimate->text(), QStringLiteral("Upscaling takes about 3 min: 102 tiles in 2 "
                                                  "frames, 2.0 s a tile as measured on this "
                                                  "computer."));

        QTest::mouseClick(sheet->findChild<QToolButton*>(QStringLiteral("advancedToggle")),
                          Qt::LeftButton);
        auto* quality = sheet->findChild<QLineEdit*>(QStringLiteral("encoderQuality"));
        QVERIFY(quality && quality->isVisible());
        QCOMPARE(quality->accessibleName(), QStringLiteral("Quality"));
        QCOMPARE(quality->text(), QStringLiteral("50"));
        auto* validation = sheet->findChild<QWidget*>(QStringLiteral("validation"));
        // Typed key by key: the options keep the last text that was a quality.
        const std::pair<QString, int> refused[] = {{QStringLiteral("abc"), 50},
                                                   {QStringLiteral("101"), 10},
                                                   {QStringLiteral("7.5"), 7},
                                                   {QStringLiteral("-1"), 7}};
        for (const auto& [bad, kept] : refused) {
            quality->selectAll();
            QTest::keyClicks(quality, bad);
            QVERIFY2(validation->isVisible(), qPrintable(bad));
            QCOMPARE(validation->findChildren<QLabel*>().last()->text(),
                     QStringLiteral("Enter a quality from 0 to 100."));
            QVERIFY(!button(*sheet, QStringLiteral("Export"))->isEnabled());
            QCOMPARE(ui.exportOptions().quality, kept);
        }
        quality->selectAll();
        QTest::keyClicks(quality, QStringLiteral(" 80"));
        QVERIFY(!validation->isVisible());
        QCOMPARE(ui.exportOptions().quality, 80);

        fixture.dialogs.saveAnswers.push_back(fixture.folder.path() / "wall.heic");
        QTest::mouseClick(button(*sheet, QStringLiteral("Export")), Qt::LeftButton);
        QVERIFY(fixture.waitFor([&] { return encodedWith == 80; }));
    }

    // An export runs to its closing message with the strip all done; a second one is cancelled
    // while the generator waits, and the sheet then offers a new export.
    void exportRunsToTheEndAndCancelStopsIt() {
        std::atomic<bool> blockNext{false};
        std::atomic<bool> blocked{false};
        auto generator = [&](const std::vector<document::WallpaperImage>& images, auto&&, auto, int,
                             auto&&, const ProgressCallback& progress, std::stop_token stop) {
            const int total = static_cast<int>(images.size());
            progress(0, total, "Upscaling frame 1/12 (pass 1/2)");
            if (blockNext) {
                std::mutex mutex;
                std::condition_variable_any wake;
                std::unique_lock lock(mutex);
                blocked = true;
                wake.wait(lock, stop, [] { return false; });
                platform::throwIfCancelled(stop);
            }
            for (int i = 1; i <= total; ++i)
                progress(i, total,
                         "Encoded image " + std::to_string(i) + "/" + std::to_string(total));
        };
        AppFixture fixture({}, [&](LumivesperApp::Options& options) {
            options.makeUpscaler = [] { return nullptr; };
            options.generateHeic = generator;
        });
        fillDocument(fixture.state(), 12);
        ui::ExportSheet* sheet = openSheet(fixture);
        QVERIFY(sheet);
        auto* grid = sheet->findChild<ui::FrameProgressGrid*>();
        auto* status = sheet->findChild<QLabel*>(QStringLiteral("statusMessage"));
        const auto destination = fixture.folder.path() / "wall.heic";

        fixture.dialogs.saveAnswers.push_back(destination);
        QTest::mouseClick(button(*sheet, QStringLiteral("Export")), Qt::LeftButton);
        const auto& driver = fixture.app->exportDriver();
        QVERIFY(fixture.waitFor([&] { return !driver.state().isExportingHeic; }));
        QCOMPARE(status->text(), QStringLiteral("Export complete!"));
        QVERIFY(status->isVisible());
        QCOMPARE(grid->groups().size(), std::size_t(13)); // 12 keys and one run of tweens
        for (const auto& group : grid->groups())
            QCOMPARE(group.status(), ExportFrameStatus::complete);
        QCOMPARE(grid->metrics().thumbnailSize, 40.0);
        QVERIFY(button(*sheet, QStringLiteral("Close")));

        blockNext = true;
        fixture.dialogs.saveAnswers.push_back(destination);
        QTest::mouseClick(button(*sheet, QStringLiteral("Export")), Qt::LeftButton);
        QVERIFY(fixture.waitFor([&] { return blocked.load(); }));
        auto* progressView = sheet->findChild<QWidget*>(QStringLiteral("exportProgressView"));
        QVERIFY(progressView->isVisible());
        QVERIFY(!button(*sheet, QStringLiteral("Exporting..."))->isEnabled());
        QTest::keyClick(sheet, Qt::Key_Escape); // no way out but "Cancel Export"
        QVERIFY(sheet->isVisible());
        QTest::mouseClick(button(*sheet, QStringLiteral("Cancel Export")), Qt::LeftButton);
        QVERIFY(!progressView->isVisible());
        QCOMPARE(status->text(), QStringLiteral("Export cancelled"));
        QVERIFY(button(*sheet, QStringLiteral("Export"))->isVisible());
        QVERIFY(grid->groups().empty());
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::ExportSheetTest)
#include "export_sheet_test.moc"
