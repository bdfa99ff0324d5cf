#include "../support/temporary_folder.h"
#include "generation/edited_image_applier.h"
#include "generation/image_edit_workflow.h"
#include "generation/request_text.h"
#include "loopback_server.h"
#include "platform/image_io.h"
#include "settings/defaults.h"

#include <fstream>

namespace lumivesper::generation {
namespace {

namespace fs = std::filesystem;
using document::WallpaperImage;

std::string fileText(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

class ImageEditTest : public ::testing::Test {
protected:
    ImageEditTest() {
        // Three real pictures: the base frame, a relit frame and the model's answer.
        for (int level : {10, 120, 240}) {
            platform::PixelImage image(4, 4);
            std::fill(image.rgba.begin(), image.rgba.end(), static_cast<std::uint8_t>(level));
            const fs::path path = folder.path() / ("frame" + std::to_string(level) + ".png");
            platform::writePng(image, path);
            pictures.push_back(toBytes(fileText(path)));
            paths.push_back(path);
        }
        server.respond([this](const testing::SeenRequest& seen, httplib::Response& r) {
            if (seen.path == "/api/token")
                return testing::replyJson(r, R"({"token":"T","expiresIn":3600})");
            if (failWith)
                return testing::replyJson(r, "overloaded", failWith);
            testing::replyJson(r, R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                                      pngDataURL(pictures[2]) + R"("}}]}}]})");
        });
        WallpaperImage tween; // a tween ahead of the key images never serves as reference
        tween.fileName = "t.png";
        tween.isTween = true;
        tween.altitude = -40;
        tween.sourcePath = paths[1];
        base.fileName = "original.png";
        base.altitude = -30;
        base.sourcePath = paths[0];
        relit.fileName = "phase_6.png";
        relit.altitude = 60;
        relit.sourcePath = paths[1];
        appState.replaceImages({tween, base, relit}, "Set Up", false);
        appState.setUndoManager(&undoManager);
    }

    std::unique_ptr<ImageEditWorkflow> sheetFor(const WallpaperImage& image) {
        return std::make_unique<ImageEditWorkflow>(
            appState, image, mainThread, defaults,
            [this, image](const Bytes& bytes) {
                applied = applyEditedImage(appState, image, bytes);
            },
            [this] { ++dismissed; });
    }
    nlohmann::json lastContent() const {
        return nlohmann::json::parse(server.seen("/api/proxy/chat/completions").back().body)
            .at("messages")
            .at(0)
            .at("content");
    }

    lumivesper::testing::TemporaryFolder folder;
    std::vector<Bytes> pictures;
    std::vector<fs::path> paths;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    document::AppState appState;
    document::UndoManager undoManager;
    platform::QueuedMainThread mainThread;
    WallpaperImage base, relit;
    std::optional<fs::path> applied;
    int dismissed = 0;
    int failWith = 0;
    testing::RecordingServer server;
    testing::ScopedEnvironment serverURL{"API_SERVER_URL", server.url()};
};

TEST_F(ImageEditTest, FixSendsBothImagesInOrderAndApplyingKeepsTheDocumentClean) {
    auto sheet = sheetFor(relit);
    sheet->setEditPrompt("   ");
    EXPECT_FALSE(sheet->isPrimaryEnabled());
    sheet->setEditPrompt("  remove the crane  ");
    ASSERT_TRUE(sheet->isPrimaryEnabled());
    EXPECT_EQ(sheet->primaryButtonTitle(), "Generate Fix");
    sheet->pressPrimary();
    EXPECT_FALSE(sheet->isPrimaryEnabled()) << "while the request runs";
    EXPECT_EQ(sheet->state().progress, 0.5);
    ASSERT_TRUE(mainThread.runUntil([&] { return !sheet->state().isGenerating; }));
    ASSERT_EQ(sheet->state().generatedPreview, pictures[2]) << *sheet->state().errorMessage;
    EXPECT_EQ(sheet->primaryButtonTitle(), "Apply Changes");
    EXPECT_EQ(sheet->currentImageTitle(), "Edited");

    const auto content = lastContent();
    ASSERT_EQ(content.size(), 3u);
    EXPECT_EQ(content[0]["text"], imageEditPrompt("  remove the crane  "));
    EXPECT_EQ(content[1]["image_url"]["url"], pngDataURL(pictures[0])) << "the reference first";
    EXPECT_EQ(content[2]["image_url"]["url"], pngDataURL(pictures[1]));
    EXPECT_EQ(content[1]["image_url"]["detail"], "high");
    EXPECT_EQ(content[2]["image_url"]["detail"], "high");
    const auto model = nlohmann::json::parse(server.seen("/api/proxy/chat/completions")[0].body);
    EXPECT_EQ(model["model"], imageEditModel);
    EXPECT_NE(imageEditPrompt("X").find("Edit IMAGE 2 to fix this issue: X\n\nRULES:\n1."),
              std::string::npos);

    sheet->pressPrimary();
    EXPECT_EQ(dismissed, 1);
    ASSERT_TRUE(applied);
    EXPECT_EQ(applied->parent_path(), paths[1].parent_path());
    EXPECT_EQ(applied->filename().string().rfind("edited_", 0), 0u);
    EXPECT_EQ(applied->filename().string().find(':'), std::string::npos);
    EXPECT_EQ(toBytes(fileText(*applied)), pictures[2]);
    EXPECT_EQ(toBytes(fileText(paths[1])), pictures[1]) << "the replaced file is untouched";
    const WallpaperImage* updated = appState.image(relit.id);
    ASSERT_NE(updated, nullptr);
    EXPECT_EQ(updated->sourcePath, applied);
    EXPECT_EQ(updated->fileName, "phase_6.png");
    ASSERT_TRUE(updated->thumbnail);
    EXPECT_EQ(updated->thumbnail->rgba[0], 240);
    EXPECT_FALSE(appState.isDirty());
    EXPECT_FALSE(undoManager.canUndo());
    EXPECT_EQ(appState.images()[2].id, relit.id) << "no re-sort";
}

TEST_F(ImageEditTest, FailuresAndDiscardKeepThePrompt) {
    auto sheet = sheetFor(base);
    sheet->setEditPrompt("fix the horizon");
    failWith = 500;
    sheet->pressPrimary();
    ASSERT_TRUE(mainThread.runUntil([&] { return !sheet->state().isGenerating; }));
    EXPECT_EQ(sheet->state().errorMessage, "Failed to regenerate: Server error 500: overloaded");
    EXPECT_EQ(sheet->state().progress, 0);
    auto content = lastContent();
    EXPECT_EQ(content[1]["image_url"]["url"], content[2]["image_url"]["url"])
        << "editing the first key image sends it twice";

    failWith = 0;
    sheet->pressPrimary();
    ASSERT_TRUE(mainThread.runUntil([&] { return !sheet->state().isGenerating; }));
    EXPECT_TRUE(sheet->state().generatedPreview);
    sheet->discardChanges();
    EXPECT_EQ(sheet->primaryButtonTitle(), "Generate Fix");
    EXPECT_EQ(sheet->state().editPrompt, "fix the horizon");
    EXPECT_EQ(server.seen("/api/proxy/chat/completions").size(), 2u);

    WallpaperImage lost = relit;
    lost.sourcePath = folder.path() / "gone.png";
    auto broken = sheetFor(lost);
    broken->setEditPrompt("x");
    broken->pressPrimary();
    EXPECT_EQ(broken->state().errorMessage, "Could not load current image");

    appState.replaceImages({}, "Clear", false);
    auto orphan = sheetFor(relit);
    orphan->setEditPrompt("x");
    orphan->pressPrimary();
    EXPECT_EQ(orphan->state().errorMessage, "Could not load original image");
    EXPECT_FALSE(orphan->state().isGenerating);
}

TEST_F(ImageEditTest, ApplyingTwiceKeepsBothFilesAndRefusesWhatDoesNotDecode) {
    const auto first =
        std::chrono::sys_days{std::chrono::year{2026} / 11 / 23} + std::chrono::hours(9);
    const auto one = applyEditedImage(appState, relit, pictures[2], first);
    const auto two =
        applyEditedImage(appState, relit, pictures[0], first + std::chrono::seconds(1));
    ASSERT_TRUE(one && two);
    EXPECT_EQ(one->filename(), "edited_2026-11-23T09-00-00Z_phase_6.png");
    EXPECT_EQ(two->filename(), "edited_2026-11-23T09-00-01Z_phase_6.png");
    EXPECT_TRUE(fs::exists(*one));
    EXPECT_EQ(appState.image(relit.id)->sourcePath, two);

    const auto junk =
        applyEditedImage(appState, relit, toBytes("not an image"), first + std::chrono::seconds(2));
    EXPECT_FALSE(junk);
    EXPECT_TRUE(fs::exists(paths[1].parent_path() / "edited_2026-11-23T09-00-02Z_phase_6.png"))
        << "the file stays on disk";
    EXPECT_EQ(appState.image(relit.id)->sourcePath, two);

    WallpaperImage pathless = relit;
    pathless.sourcePath.reset();
    EXPECT_FALSE(applyEditedImage(appState, pathless, pictures[2]));
}

TEST_F(ImageEditTest, ApplierWritesOffTheMainThreadAndDropsRepliesOnceGone) {
    auto applier = std::make_unique<EditedImageApplier>(appState, mainThread);
    applier->apply(relit, pictures[2]);
    ASSERT_TRUE(
        mainThread.runUntil([&] { return appState.image(relit.id)->sourcePath != paths[1]; }));
    const auto first = *appState.image(relit.id)->sourcePath;
    EXPECT_EQ(toBytes(fileText(first)), pictures[2]);
    EXPECT_FALSE(appState.isDirty());

    // Gone before its reply is run: the file is whole on disk, the document untouched.
    applier->apply(base, pictures[2]);
    applier.reset();
    mainThread.drain();
    EXPECT_EQ(appState.image(base.id)->sourcePath, paths[0]);
    std::size_t edited = 0;
    for (const auto& entry : fs::directory_iterator(folder.path()))
        if (entry.path().filename().string().starts_with("edited_")) {
            ++edited;
            EXPECT_EQ(toBytes(fileText(entry.path())), pictures[2]);
        }
    EXPECT_EQ(edited, 2u);
}

} // namespace
} // namespace lumivesper::generation
