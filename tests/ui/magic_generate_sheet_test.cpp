// The generation sheet driven as a user drives it, against a stand-in of the program's server.
#include "../support/program_server_stand_in.h"
#include "../support/scripted_dialogs.h"
#include "../support/temporary_folder.h"
#include "document/app_state.h"
#include "document/undo_manager.h"
#include "generation/magic_generate_progress.h"
#include "platform/image_io.h"
#include "settings/defaults.h"
#include "ui/generation/image_well.h"
#include "ui/generation/live_preview.h"
#include "ui/generation/magic_generate_sheet.h"
#include "ui/generation/phase_list.h"
#include "ui/generation/picture_decoder.h"
#include "ui/generation/sun_arc_view.h"
#include "ui/qt_text.h"
#include "ui_fixture.h"

#include <QLabel>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>
#include <fstream>

namespace lumivesper::ui {
namespace {

namespace fs = std::filesystem;
using generation::GenerationOutcome;
using generation::PhaseIndicator;

constexpr int timeout = 20000;

generation::Bytes fileBytes(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Eleven small pictures, each of its own shade, so that every phase can be told apart.
std::vector<generation::Bytes> phasePictures(const fs::path& folder) {
    std::vector<generation::Bytes> pictures;
    for (int i = 0; i <= 10; ++i) {
        platform::PixelImage image(64, 36);
        for (std::size_t p = 0; p < image.rgba.size(); ++p)
            image.rgba[p] = p % 4 == 3 ? 255 : static_cast<std::uint8_t>(20 * i + 5);
        const fs::path path = folder / ("phase" + std::to_string(i) + ".png");
        platform::writePng(image, path);
        pictures.push_back(fileBytes(path));
    }
    return pictures;
}

// Never called on the proxy route, which the shipped model takes.
class ProxyOnlyService final : public generation::ImageGenerationService {
public:
    bool isConfigured() const override { return false; }
    generation::GeneratedImage
    generateImage(const std::string&, const std::string&, const std::string&,
                  const std::optional<generation::Bytes>&, const std::optional<std::string>&,
                  const std::optional<std::string>&, std::stop_token) const override {
        throw std::logic_error("the proxy route called the direct service");
    }
};

// The sheet over a real document and undo manager, talking to the stand-in; a phase can be held
// back until the test opens the gate, or answered by the test itself.
struct SheetFixture {
    SheetFixture() {
        state.setUndoManager(&undo);
        sheet = std::make_unique<MagicGenerateSheet>(state, service, mainThread, defaults, dialogs);
        sheet->workflow().temporaryRoot = folder.path() / "tmp";
        sheet->show();
    }
    ~SheetFixture() {
        release.open();
        sheet.reset();
    }

    // Holds the request for `phase` until `release` opens.
    void holdPhase(const std::string& phase) {
        server.setHook([this, phase](const std::string& asked, httplib::Response&) {
            if (asked == phase) {
                held = true;
                release.wait(std::chrono::seconds(60));
            }
            return false;
        });
    }

    template <typename Widget> Widget* child(const QString& name) const {
        return sheet->findChild<Widget*>(name);
    }
    QString statusOf(const char* phaseId) const {
        return child<QLabel>(QStringLiteral("status_") + QLatin1String(phaseId))->text();
    }
    void clickGenerate() const {
        QTest::mouseClick(child<QPushButton>("generate"), Qt::LeftButton);
    }

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    document::UndoManager undo;
    document::AppState state;
    testing::QtMainThread mainThread;
    lumivesper::testing::ScriptedDialogs dialogs;
    ProxyOnlyService service;
    std::vector<generation::Bytes> pictures = phasePictures(folder.path());
    lumivesper::testing::ProgramServerStandIn server{pictures};
    generation::testing::ScopedEnvironment serverURL{"API_SERVER_URL", server.url()};
    generation::testing::Gate release;
    std::atomic<bool> held{false};
    std::unique_ptr<MagicGenerateSheet> sheet;
};

class MagicGenerateSheetTest : public QObject {
    Q_OBJECT

private slots:
    void setUpFeedsTheWorkflow();
    void runShowsEachPhaseAsItArrivesThenClosesWithTheDayInTheDocument();
    void closingDuringARunCancelsItAndLeavesNothingInFlight();
    void serverFailureMidRunShowsTheFailureAndKeepsTheSheet();
};

void MagicGenerateSheetTest::setUpFeedsTheWorkflow() {
    SheetFixture f;
    auto* generate = f.child<QPushButton>("generate");
    QVERIFY(!generate->isEnabled()); // no prompt, no image

    // Mood chips add to the prompt, the second after a comma.
    const auto chips = f.sheet->findChildren<QPushButton*>(QStringLiteral("mood"));
    QCOMPARE(chips.size(), 10);
    QTest::mouseClick(chips[0], Qt::LeftButton);
    QTest::mouseClick(chips[1], Qt::LeftButton);
    QCOMPARE(f.child<QPlainTextEdit>("prompt")->toPlainText(),
             QStringLiteral("misty mountain lake, quiet coastal town"));
    QVERIFY(generate->isEnabled());

    // A dropped photo becomes the starting image and shows in the well once decoded.
    auto* well = f.child<ImageWell>("imageWell");
    const fs::path photo = f.folder.path() / "photo.png";
    std::ofstream(photo, std::ios::binary)
        .write(reinterpret_cast<const char*>(f.pictures[4].data()),
               static_cast<std::streamsize>(f.pictures[4].size()));
    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(toQString(photo))});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(well, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(well, &drop);
    QVERIFY(f.sheet->workflow().state().startingImageData == f.pictures[4]);
    f.sheet->pictureDecoder().waitForPending();
    QTRY_VERIFY(well->hasPicture());

    // "Generate a New Scene" puts the photo aside and hides the well.
    QTest::mouseClick(f.child<QPushButton>("mode1"), Qt::LeftButton);
    QVERIFY(!well->isVisibleTo(f.sheet.get()));
    QVERIFY(!f.sheet->workflow().state().startingImageData);

    // A file that is no picture is refused with the message of an unreadable one.
    QTest::mouseClick(f.child<QPushButton>("mode0"), Qt::LeftButton);
    const fs::path text = f.folder.path() / "notes.png";
    std::ofstream(text) << "not a picture";
    mime.setUrls({QUrl::fromLocalFile(toQString(text))});
    QDragEnterEvent enterAgain(QPoint(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(well, &enterAgain);
    QDropEvent badDrop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(well, &badDrop);
    f.sheet->pictureDecoder().waitForPending();
    QTRY_COMPARE(f.child<QLabel>("notice")->text(),
                 QStringLiteral("Failed to load starting image."));
    QVERIFY(!f.sheet->workflow().state().startingImageData);

    // Smoothness sets the tween count and says what it makes.
    QTest::mouseClick(f.child<QPushButton>("smoothness2"), Qt::LeftButton);
    QCOMPARE(f.sheet->workflow().state().tweenCount, 6);
    QCOMPARE(f.child<QLabel>("smoothnessSummary")->text(),
             QStringLiteral("6 in-between frames per transition · 77 frames in all"));
}

void MagicGenerateSheetTest::runShowsEachPhaseAsItArrivesThenClosesWithTheDayInTheDocument() {
    SheetFixture f;
    f.holdPhase("golden_am"); // the second batch
    f.sheet->workflow().setPrompt("a harbour at dawn");
    f.clickGenerate();
    QVERIFY(f.child<QWidget>("progressView")->isVisible());
    QVERIFY(!f.child<QWidget>("setupView")->isVisible());
    QCOMPARE(f.child<QPushButton>("dismiss")->text(), QStringLiteral("Cancel"));
    QVERIFY(!f.child<QPushButton>("generate")->isEnabled());

    // The first batch is in: its phases are done with their pictures, the held one is running.
    QTRY_VERIFY_WITH_TIMEOUT(f.held.load(), timeout);
    QTRY_COMPARE_WITH_TIMEOUT(f.statusOf("nautical"), QStringLiteral("Done"), timeout);
    QTRY_COMPARE_WITH_TIMEOUT(f.statusOf("golden_am"), QStringLiteral("Generating…"), timeout);
    QCOMPARE(f.statusOf("midday"), QStringLiteral("Waiting"));
    auto* arc = f.child<SunArcView>("sunArc");
    QVERIFY(arc->indicator(2) == PhaseIndicator::done);
    QVERIFY(arc->indicator(4) == PhaseIndicator::running);
    QVERIFY(arc->indicator(6) == PhaseIndicator::waiting);
    QCOMPARE(f.child<QLabel>("progressMessage")->text(),
             QStringLiteral("Completed 4/11 images..."));
    QCOMPARE(f.child<QLabel>("progressPercent")->text(), QStringLiteral("36%"));
    // The large preview shows the newest picture that came.
    auto* preview = f.child<LivePreview>("livePreview");
    const auto showsNewest = [&] {
        const auto& newest = f.sheet->workflow().state().livePreviewData;
        if (!newest || preview->picture().isNull())
            return false;
        const QImage expected = QImage::fromData(newest->data(), static_cast<int>(newest->size()));
        return preview->picture().pixel(0, 0) == expected.pixel(0, 0);
    };
    QTRY_VERIFY_WITH_TIMEOUT(showsNewest(), timeout);
    QVERIFY(f.state.images().empty()); // the keys are installed together at the end

    f.release.open();
    QTRY_VERIFY_WITH_TIMEOUT(!f.sheet->isVisible(), timeout);
    QCOMPARE(f.sheet->result(), int(QDialog::Accepted));
    QCOMPARE(f.state.images().size(), std::size_t{44});
    QCOMPARE(f.server.proxyRequests(), std::size_t{11});
}

void MagicGenerateSheetTest::closingDuringARunCancelsItAndLeavesNothingInFlight() {
    SheetFixture f;
    document::WallpaperImage old;
    old.fileName = "old.png";
    f.state.addImage(old);
    f.holdPhase("nautical");
    f.sheet->workflow().setPrompt("a harbour");
    f.clickGenerate();
    QTRY_VERIFY_WITH_TIMEOUT(f.held.load(), timeout);

    f.sheet->reject(); // Escape or the window's close button
    QTRY_VERIFY_WITH_TIMEOUT(!f.sheet->isVisible(), timeout);
    QVERIFY(!f.sheet->isRunning());
    const std::size_t seenAtClose = f.server.proxyRequests();
    f.release.open();
    f.server.stop(); // waits for the held handler
    QCOMPARE(f.server.proxyRequests(), seenAtClose);

    // The cancelled end of the proxy route: the document stays empty, its batch open.
    const auto& state = f.sheet->workflow().state();
    QVERIFY(state.outcome == GenerationOutcome::cancelled);
    QCOMPARE(toQString(state.progressMessage), QStringLiteral("Cancelled"));
    QVERIFY(f.state.images().empty());
    QVERIFY(f.state.hasOpenUndoBatch());
    QCOMPARE(f.sheet->result(), int(QDialog::Rejected));
    // Nothing was saved, so nothing is left half-written.
    const fs::path generated = f.folder.path() / "tmp" / "LumivesperGenerated";
    for (const auto& run : fs::directory_iterator(generated))
        QVERIFY(fs::is_empty(run.path()));
}

void MagicGenerateSheetTest::serverFailureMidRunShowsTheFailureAndKeepsTheSheet() {
    SheetFixture f;
    f.server.setHook([](const std::string& phase, httplib::Response& r) {
        if (phase != "golden_am")
            return false;
        r.status = 500;
        r.set_content("upstream exploded", "text/plain");
        return true;
    });
    f.sheet->workflow().setPrompt("a harbour");
    f.clickGenerate();

    auto* banner = f.child<QWidget>("failureBanner");
    QTRY_VERIFY_WITH_TIMEOUT(banner->isVisible(), timeout);
    QCOMPARE(f.child<QLabel>("failureHeading")->text(), QStringLiteral("Generation Failed"));
    QCOMPARE(f.child<QLabel>("failureText")->text(),
             QStringLiteral("Server error 500: upstream exploded"));
    QCOMPARE(f.child<QLabel>("progressMessage")->text(), QStringLiteral("Failed"));
    QCOMPARE(f.statusOf("golden_am"), QStringLiteral("Failed"));
    QCOMPARE(f.statusOf("nautical"), QStringLiteral("Done"));
    QVERIFY(f.child<SunArcView>("sunArc")->indicator(4) == PhaseIndicator::failed);
    QVERIFY(f.sheet->isVisible());
    QCOMPARE(f.child<QPushButton>("dismiss")->text(), QStringLiteral("Close"));
    QVERIFY(f.child<QPushButton>("changeSettings")->isVisible());
    QVERIFY(f.child<QPushButton>("generate")->isEnabled()); // it may be tried again

    // Back to the settings, and the sheet closes as it came.
    QTest::mouseClick(f.child<QPushButton>("changeSettings"), Qt::LeftButton);
    QVERIFY(f.child<QWidget>("setupView")->isVisible());
    QTest::mouseClick(f.child<QPushButton>("dismiss"), Qt::LeftButton);
    QVERIFY(!f.sheet->isVisible());
}

} // namespace
} // namespace lumivesper::ui

QTEST_MAIN(lumivesper::ui::MagicGenerateSheetTest)
#include "magic_generate_sheet_test.moc"
