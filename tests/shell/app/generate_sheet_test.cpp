// The generation sheet inside the application: opened from the toolbar, and stopped cleanly when
// the application quits in the middle of a run.
#include "../../support/program_server_stand_in.h"
#include "app_fixture.h"
#include "platform/image_io.h"
#include "ui/generation/magic_generate_sheet.h"

#include <QtTest>
#include <fstream>

namespace lumivesper::shell {

namespace {

std::vector<generation::Bytes> pictures(const std::filesystem::path& folder) {
    platform::PixelImage image(32, 18);
    for (std::size_t p = 0; p < image.rgba.size(); ++p)
        image.rgba[p] = p % 4 == 3 ? 255 : 90;
    platform::writePng(image, folder / "grey.png");
    std::ifstream stream(folder / "grey.png", std::ios::binary);
    return {11, generation::Bytes(std::istreambuf_iterator<char>(stream), {})};
}

} // namespace

class GenerateSheetTest : public QObject {
    Q_OBJECT

private slots:
    // Quitting mid-run stops the run before anything else; the unsaved-changes question comes
    // after it, about the document the stopped run left, and no request is left in flight.
    void quittingDuringARunStopsItThenAsksThenQuits() {
        AppFixture fixture;
        lumivesper::testing::ProgramServerStandIn server(pictures(fixture.folder.path()));
        generation::testing::ScopedEnvironment serverURL("API_SERVER_URL", server.url());
        generation::testing::Gate release;
        std::atomic<bool> held{false};
        server.setHook([&](const std::string& phase, httplib::Response&) {
            if (phase == "astronomical") {
                held = true;
                release.wait(std::chrono::seconds(60));
            }
            return false;
        });

        fixture.app->commandCenter().performToolbarAction(ToolbarAction::generateTimeline);
        auto* sheet = fixture.window().findChild<ui::MagicGenerateSheet*>();
        QVERIFY(sheet);
        QVERIFY(sheet->isVisible());
        sheet->workflow().temporaryRoot = fixture.folder.path() / "tmp";
        sheet->workflow().setPrompt("a lighthouse");
        sheet->workflow().startGeneration();
        QVERIFY(fixture.waitFor([&] { return held.load(); }));

        fixture.dialogs.alertAnswers = {2}; // "Don't Save"
        fixture.app->requestQuit();
        QCOMPARE(fixture.exits, 0);
        QVERIFY(fixture.dialogs.alerts.empty()); // not before the run has stopped
        QVERIFY(fixture.waitFor([&] { return fixture.exits == 1; }));
        QVERIFY(!sheet->isRunning());
        QCOMPARE(fixture.dialogs.alerts.size(), std::size_t{1});
        QCOMPARE(QString::fromStdString(fixture.dialogs.alerts[0].informativeText),
                 QStringLiteral("Do you want to save before quitting?"));

        const std::size_t seenAtQuit = server.proxyRequests();
        release.open();
        server.stop();
        QCOMPARE(server.proxyRequests(), seenAtQuit);
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::GenerateSheetTest)
#include "generate_sheet_test.moc"
