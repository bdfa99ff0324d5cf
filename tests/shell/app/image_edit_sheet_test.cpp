#include "../../generation/loopback_server.h"
#include "app_fixture.h"
#include "generation/image_edit_workflow.h"
#include "generation/request_text.h"
#include "platform/image_io.h"
#include "ui/image_edit/image_edit_sheet.h"
#include "ui/library/library_view.h"
#include "ui/library/preview_cache.h"

#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QtTest>
#include <fstream>
#include <nlohmann/json.hpp>

namespace lumivesper::shell {

namespace {

namespace fs = std::filesystem;
using generation::testing::RecordingServer;
using generation::testing::replyJson;
using generation::testing::ScopedEnvironment;
using generation::testing::SeenRequest;

// A real picture file of one grey level.
fs::path pictureFile(const fs::path& folder, const std::string& name, std::uint8_t level) {
    platform::PixelImage pixels(96, 54);
    for (std::size_t i = 0; i < pixels.rgba.size(); ++i)
        pixels.rgba[i] = i % 4 == 3 ? 255 : level;
    const fs::path path = folder / name;
    platform::writePng(pixels, path);
    return path;
}

std::string fileText(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

// The program's server, standing in: a token, then the edited picture or a failure.
struct EditServer {
    explicit EditServer(std::string answer) : picture(std::move(answer)) {
        server.respond([this](const SeenRequest& seen, httplib::Response& r) {
            if (seen.path == "/api/token")
                return replyJson(r, R"({"token":"T","expiresIn":3600})");
            if (failing)
                return replyJson(r, "model overloaded", 503);
            replyJson(r, R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                             generation::pngDataURL(generation::toBytes(picture)) + R"("}}]}}]})");
        });
    }
    std::string picture;
    std::atomic<bool> failing{false};
    RecordingServer server;
    ScopedEnvironment url{"API_SERVER_URL", server.url()};
};

} // namespace

class ImageEditSheetTest : public QObject {
    Q_OBJECT

private:
    // Two key images from files, as a generated day has them; nothing to undo.
    static std::vector<platform::Uuid> fillDocument(AppFixture& fixture) {
        std::vector<document::WallpaperImage> images;
        for (const auto& [name, level] : {std::pair{"original.png", 40}, {"phase_6.png", 200}}) {
            auto image = AppFixture::image(name);
            image.sourcePath =
                pictureFile(fixture.folder.path(), name, static_cast<std::uint8_t>(level));
            images.push_back(image);
        }
        fixture.state().replaceImages(images, "Setup", false);
        fixture.app->undoManager().removeAllActions();
        return {images[0].id, images[1].id};
    }

    // "Edit with AI..." from the context menu of a row, as a right click shows it.
    static ui::ImageEditSheet* openFromContextMenu(AppFixture& fixture, int row) {
        auto* library = fixture.window().findChild<ui::LibraryView*>();
        QMenu menu;
        library->fillContextMenu(menu, row);
        for (QAction* action : menu.actions()) {
            if (action->text() == QLatin1String("Edit with AI..."))
                action->trigger();
        }
        return fixture.window().findChild<ui::ImageEditSheet*>();
    }

private slots:
    // The whole road: open from the menu, ask for a fix, see it beside the reference, apply it.
    // The new file lies beside the old one, the document stays clean with nothing to undo, and
    // the library's preview shows the edited picture.
    void fixIsPreviewedThenAppliedBesideTheSource() {
        AppFixture fixture;
        const auto ids = fillDocument(fixture);
        const fs::path answerFile = pictureFile(fixture.folder.path(), "answer.png", 120);
        EditServer stand(fileText(answerFile));
        fs::remove(answerFile);

        ui::ImageEditSheet* sheet = openFromContextMenu(fixture, 1);
        QVERIFY(sheet);
        QVERIFY(sheet->isVisible());
        auto& previews = fixture.window().findChild<ui::LibraryView*>()->previews();
        QVERIFY(fixture.waitFor([&] { return !sheet->originalFrame()->pixmap().isNull(); }));
        QVERIFY(fixture.waitFor([&] { return !sheet->currentFrame()->pixmap().isNull(); }));
        QCOMPARE(sheet->currentTitle()->text(), QStringLiteral("Current"));
        QVERIFY(!sheet->primaryButton()->isEnabled());
        QVERIFY(!sheet->discardButton()->isVisible());

        QTest::keyClicks(sheet->promptField(), QStringLiteral("  remove the crane "));
        QCOMPARE(sheet->primaryButton()->text(), QStringLiteral("Generate Fix"));
        QVERIFY(sheet->primaryButton()->isEnabled());
        QTest::mouseClick(sheet->primaryButton(), Qt::LeftButton);
        QVERIFY(sheet->progressBar()->isVisible());
        QCOMPARE(sheet->statusLine()->text(), QStringLiteral("Regenerating image..."));
        QVERIFY(!sheet->primaryButton()->isEnabled());
        QVERIFY(fixture.waitFor([&] { return !sheet->workflow().state().isGenerating; }));

        QCOMPARE(sheet->primaryButton()->text(), QStringLiteral("Apply Changes"));
        QVERIFY(sheet->discardButton()->isVisible());
        QCOMPARE(sheet->currentTitle()->text(), QStringLiteral("Edited"));
        QVERIFY(!sheet->errorLine()->isVisible());
        const QImage shown = sheet->currentFrame()->pixmap().toImage();
        QCOMPARE(qGray(shown.pixel(shown.width() / 2, shown.height() / 2)), 120);
        const auto request =
            nlohmann::json::parse(stand.server.seen("/api/proxy/chat/completions").at(0).body);
        const auto content = request.at("messages").at(0).at("content");
        QCOMPARE(content.at(0).at("text").get<std::string>(),
                 generation::imageEditPrompt("  remove the crane "));
        QCOMPARE(content.at(1).at("image_url").at("url").get<std::string>(),
                 generation::pngDataURL(
                     generation::toBytes(fileText(fixture.folder.path() / "original.png"))));
        QCOMPARE(content.at(2).at("image_url").at("url").get<std::string>(),
                 generation::pngDataURL(
                     generation::toBytes(fileText(fixture.folder.path() / "phase_6.png"))));

        QTest::mouseClick(sheet->primaryButton(), Qt::LeftButton);
        const auto edited = [&] { return fixture.state().image(ids[1])->sourcePath; };
        QVERIFY(fixture.waitFor([&] { return edited() != fixture.folder.path() / "phase_6.png"; }));
        QVERIFY(
            fixture.waitFor([&] { return !fixture.window().findChild<ui::ImageEditSheet*>(); }));
        const fs::path path = *edited();
        QCOMPARE(path.parent_path(), fixture.folder.path());
        QVERIFY(path.filename().string().starts_with("edited_"));
        QVERIFY(path.filename().string().ends_with("_phase_6.png"));
        QCOMPARE(fileText(path), stand.picture);
        QVERIFY(fs::exists(fixture.folder.path() / "phase_6.png"));
        QCOMPARE(fixture.state().image(ids[1])->fileName, std::string("phase_6.png"));
        QVERIFY(!fixture.state().isDirty());
        QVERIFY(!fixture.app->undoManager().canUndo());
        QVERIFY(!fixture.window().isWindowModified());

        const auto& record = *fixture.state().image(ids[1]);
        QVERIFY(fixture.waitFor([&] { return !previews.full(record).isNull(); }));
        const QImage preview = previews.full(record);
        QCOMPARE(qGray(preview.pixel(preview.width() / 2, preview.height() / 2)), 120);
    }

    // A failure shows its text and lets the user try again; "Discard Changes" keeps the words;
    // "Cancel" closes the sheet and changes nothing.
    void failureRetryDiscardAndCancel() {
        AppFixture fixture;
        const auto ids = fillDocument(fixture);
        EditServer stand(fileText(fixture.folder.path() / "original.png"));
        stand.failing = true;

        ui::ImageEditSheet* sheet = openFromContextMenu(fixture, 0);
        QVERIFY(sheet);
        // The field grows with its lines from three to six, then scrolls.
        QPlainTextEdit* field = sheet->promptField();
        const int threeLines = field->height();
        field->setPlainText(QStringLiteral("1\n2\n3\n4\n5"));
        const int fiveLines = field->height();
        field->setPlainText(QStringLiteral("1\n2\n3\n4\n5\n6\n7\n8\n9"));
        const int nineLines = field->height();
        const int line = field->fontMetrics().lineSpacing();
        QCOMPARE(fiveLines - threeLines, 2 * line);
        QCOMPARE(nineLines - threeLines, 3 * line);
        field->clear();
        QCOMPARE(field->height(), threeLines);
        QTest::keyClicks(sheet->promptField(), QStringLiteral("straighten the horizon"));
        QTest::mouseClick(sheet->primaryButton(), Qt::LeftButton);
        QVERIFY(fixture.waitFor([&] { return !sheet->workflow().state().isGenerating; }));
        QVERIFY(sheet->errorLine()->isVisible());
        QVERIFY2(sheet->errorLine()->text().startsWith(QStringLiteral("Failed to regenerate: ")),
                 qPrintable(sheet->errorLine()->text()));
        QVERIFY(sheet->errorLine()->text().contains(QStringLiteral("503")));
        QVERIFY(!sheet->progressBar()->isVisible());
        QCOMPARE(sheet->primaryButton()->text(), QStringLiteral("Generate Fix"));
        QVERIFY(sheet->primaryButton()->isEnabled());

        stand.failing = false;
        QTest::mouseClick(sheet->primaryButton(), Qt::LeftButton);
        QVERIFY(fixture.waitFor([&] { return !sheet->workflow().state().isGenerating; }));
        QVERIFY(!sheet->errorLine()->isVisible());
        QTest::mouseClick(sheet->discardButton(), Qt::LeftButton);
        QCOMPARE(sheet->primaryButton()->text(), QStringLiteral("Generate Fix"));
        QCOMPARE(sheet->promptField()->toPlainText(), QStringLiteral("straighten the horizon"));
        QCOMPARE(sheet->currentTitle()->text(), QStringLiteral("Current"));

        QTest::mouseClick(sheet->cancelButton(), Qt::LeftButton);
        QVERIFY(
            fixture.waitFor([&] { return !fixture.window().findChild<ui::ImageEditSheet*>(); }));
        QCOMPARE(fixture.state().image(ids[0])->sourcePath, fixture.folder.path() / "original.png");
        for (const auto& entry : fs::directory_iterator(fixture.folder.path()))
            QVERIFY(!entry.path().filename().string().starts_with("edited_"));
    }
};

} // namespace lumivesper::shell

QTEST_MAIN(lumivesper::shell::ImageEditSheetTest)
#include "image_edit_sheet_test.moc"
