#include "../support/scripted_dialogs.h"
#include "../support/temporary_folder.h"
#include "document/json_coding.h"
#include "document/project_io.h"
#include "platform/image_io.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace lumivesper::document {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

void writeText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

void writeImage(const fs::path& path, std::uint8_t shade) {
    fs::create_directories(path.parent_path());
    platform::PixelImage image(8, 6);
    for (std::size_t i = 0; i < image.rgba.size(); ++i)
        image.rgba[i] = (i % 4 == 3) ? 255 : shade;
    platform::writePng(image, path);
}

std::vector<std::string> keysOf(const json& object) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : object.items())
        keys.push_back(key);
    return keys;
}

class ProjectIOTest : public ::testing::Test {
protected:
    ProjectIOTest() { state.setUndoManager(&undo); }

    // An image file outside any package, as an import leaves it.
    WallpaperImage importedImage(const std::string& name, std::uint8_t shade = 128) {
        WallpaperImage image;
        image.fileName = name;
        image.altitude = 12.5;
        image.azimuth = 101.25;
        image.sourcePath = folder.path() / "imports" / name;
        writeImage(*image.sourcePath, shade);
        return image;
    }

    // A package written by hand, with the given image records and files.
    fs::path handWrittenPackage(const json& images, const std::vector<std::string>& files) {
        const fs::path url = folder.path() / "Hand.lvesper";
        writeText(url / "project.json",
                  json{{"version", "1.0"}, {"mode", "time"}, {"images", images}}.dump());
        for (const auto& name : files)
            writeImage(url / "images" / name, 200);
        return url;
    }

    static json record(const std::string& fileName) {
        return json{{"id", platform::Uuid::generate().toString()},
                    {"fileName", fileName},
                    {"isTween", false}};
    }

    testing::TemporaryFolder folder;
    testing::ScriptedDialogs dialogs;
    ProjectIO io{dialogs};
    UndoManager undo;
    AppState state;
    fs::path package = folder.path() / "Demo.lvesper";
};

// ---- save ----

TEST_F(ProjectIOTest, SaveWritesSortedPrettyJsonWithOnlyTheAllowedKeys) {
    WallpaperImage dawn = importedImage("dawn.png");
    WallpaperImage tween = importedImage("tween.png");
    tween.isTween = true;
    tween.parentId = dawn.id;
    state.addImage(dawn);
    state.addImage(tween);
    state.setLastMagicSettings("A lake", "1024x576", 5, "");

    io.save(package, state);

    ASSERT_TRUE(dialogs.alerts.empty());
    const std::string text = readText(package / "project.json");
    EXPECT_TRUE(text.starts_with("{\n  \"images\": ["));
    const json stored = json::parse(text);
    EXPECT_EQ(text, stored.dump(2)); // pretty, sorted keys at every level
    EXPECT_EQ(keysOf(stored), (std::vector<std::string>{"images", "magicPrompt", "magicTweenCount",
                                                        "mode", "version"}));
    EXPECT_EQ(stored["version"], "1.0");
    EXPECT_EQ(keysOf(stored["images"][0]),
              (std::vector<std::string>{"altitude", "azimuth", "fileName", "id", "isTween"}));
    EXPECT_EQ(
        keysOf(stored["images"][1]),
        (std::vector<std::string>{"altitude", "azimuth", "fileName", "id", "isTween", "parentId"}));
    EXPECT_TRUE(fs::is_regular_file(package / "images" / "dawn.png"));
    EXPECT_TRUE(fs::is_regular_file(package / "images" / "tween.png"));

    EXPECT_EQ(state.currentProjectPath(), package);
    EXPECT_FALSE(state.isDirty());
    EXPECT_EQ(state.images()[0].sourcePath, package / "images" / "dawn.png");
    ASSERT_FALSE(state.recentProjects().empty());
    EXPECT_EQ(state.recentProjects().front().path, package.string());
}

TEST_F(ProjectIOTest, SavedPackageLoadsBackIntoAnotherDocument) {
    WallpaperImage dawn = importedImage("dawn.png");
    state.addImage(dawn);
    state.setLastMagicSettings("A lake", "1536x1024", 3, "dawn.png");
    io.save(package, state);

    AppState reopened;
    io.load(package, reopened);

    ASSERT_TRUE(dialogs.alerts.empty());
    ASSERT_EQ(reopened.images().size(), 1u);
    const WallpaperImage& image = reopened.images()[0];
    EXPECT_EQ(image.id, dawn.id);
    EXPECT_EQ(image.fileName, "dawn.png");
    EXPECT_EQ(image.altitude, 12.5);
    EXPECT_EQ(image.azimuth, 101.25);
    EXPECT_EQ(image.sourcePath, package / "images" / "dawn.png");
    // The preview is whatever the image library makes of the file.
    std::optional<int> previewWidth;
    try {
        previewWidth = platform::loadPreview(*image.sourcePath).width;
    } catch (const platform::ImageIoError&) {
    }
    EXPECT_EQ(image.thumbnail ? std::optional<int>(image.thumbnail->width) : std::nullopt,
              previewWidth);
    EXPECT_EQ(reopened.lastMagicPrompt(), "A lake");
    EXPECT_EQ(reopened.lastMagicSize(), "1536x1024");
    EXPECT_EQ(reopened.lastMagicStartingImageFileName(), "dawn.png");
    EXPECT_EQ(reopened.currentProjectPath(), package);
    EXPECT_FALSE(reopened.isDirty());
}

TEST_F(ProjectIOTest, SecondSaveCopiesNoFile) {
    state.addImage(importedImage("dawn.png", 10));
    io.save(package, state);
    // A marker in the package's copy: a second copy from the import would overwrite it.
    writeText(package / "images" / "dawn.png", "marker");
    fs::remove(folder.path() / "imports" / "dawn.png");

    io.save(package, state);

    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_EQ(readText(package / "images" / "dawn.png"), "marker");
}

TEST_F(ProjectIOTest, SaveAsCopiesEveryImageAndLeavesTheFormerPackage) {
    state.addImage(importedImage("a.png"));
    state.addImage(importedImage("b.png"));
    io.save(package, state);
    const std::string formerJson = readText(package / "project.json");

    const fs::path other = folder.path() / "Other.lvesper";
    io.save(other, state);

    ASSERT_TRUE(dialogs.alerts.empty());
    EXPECT_TRUE(fs::is_regular_file(other / "images" / "a.png"));
    EXPECT_TRUE(fs::is_regular_file(other / "images" / "b.png"));
    for (const auto& image : state.images())
        EXPECT_EQ(image.sourcePath->parent_path(), other / "images");
    EXPECT_TRUE(fs::is_regular_file(package / "images" / "a.png"));
    EXPECT_EQ(readText(package / "project.json"), formerJson);
    EXPECT_EQ(state.currentProjectPath(), other);
}

TEST_F(ProjectIOTest, VanishedSourceFailsTheSaveAndKeepsTheDocumentDirty) {
    state.addImage(importedImage("first.png"));
    state.addImage(importedImage("gone.png"));
    fs::remove(folder.path() / "imports" / "gone.png");

    io.save(package, state);

    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Save Failed");
    EXPECT_TRUE(dialogs.alerts[0].informativeText.starts_with("Could not save project: "));
    EXPECT_NE(dialogs.alerts[0].informativeText.find("gone.png"), std::string::npos);
    EXPECT_EQ(dialogs.alerts[0].style, platform::AlertStyle::critical);
    EXPECT_TRUE(state.isDirty());
    EXPECT_EQ(state.currentProjectPath(), std::nullopt);
    EXPECT_FALSE(fs::exists(package / "project.json"));
    // What was copied before the failure stays, and its record points at the copy.
    EXPECT_EQ(state.images()[0].sourcePath, package / "images" / "first.png");
    EXPECT_TRUE(state.recentProjects().empty());
}

TEST_F(ProjectIOTest, EmptyDocumentStillGetsAnImagesFolder) {
    io.save(package, state);
    EXPECT_TRUE(fs::is_directory(package / "images"));
    EXPECT_EQ(json::parse(readText(package / "project.json"))["images"], json::array());
}

TEST_F(ProjectIOTest, RecordsWithoutAFileAreKeptAndSkipped) {
    const fs::path url =
        handWrittenPackage(json::array({record("lost.png"), record("here.png")}), {"here.png"});
    io.load(url, state);
    dialogs.alerts.clear();

    io.save(url, state);

    EXPECT_TRUE(dialogs.alerts.empty());
    const json stored = json::parse(readText(url / "project.json"));
    ASSERT_EQ(stored["images"].size(), 2u);
    EXPECT_EQ(stored["images"][0]["fileName"], "lost.png");
}

TEST_F(ProjectIOTest, SaveRefusesFileNamesThatLeaveThePackage) {
    WallpaperImage image = importedImage("fine.png");
    image.fileName = "../escaped.png";
    state.addImage(image);

    io.save(package, state);

    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Save Failed");
    EXPECT_FALSE(fs::exists(package));
    EXPECT_FALSE(fs::exists(folder.path() / "escaped.png"));
    EXPECT_TRUE(state.isDirty());
}

TEST_F(ProjectIOTest, NameThatIsNotUtf8FailsTheSaveInsteadOfTheProgram) {
    WallpaperImage image = importedImage("plain.png");
    image.fileName = "caf\xe9.png";
    state.addImage(image);
    io.save(package, state);
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Save Failed");
    EXPECT_TRUE(state.isDirty());
}

// ---- load ----

TEST_F(ProjectIOTest, MissingImagesKeepTheirPlaceAndAreListedByName) {
    const fs::path url = handWrittenPackage(
        json::array({record("a.png"), record("b.png"), record("c.png")}), {"b.png"});

    io.load(url, state);

    ASSERT_EQ(state.images().size(), 3u);
    EXPECT_EQ(state.images()[0].sourcePath, std::nullopt);
    EXPECT_EQ(state.images()[1].sourcePath, url / "images" / "b.png");
    EXPECT_EQ(state.images()[2].thumbnail, nullptr);
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Missing Images");
    EXPECT_EQ(dialogs.alerts[0].informativeText,
              "The following images could not be found:\n\na.png\nc.png");
    EXPECT_EQ(dialogs.alerts[0].style, platform::AlertStyle::warning);
    EXPECT_EQ(state.currentProjectPath(), url);
}

TEST_F(ProjectIOTest, PackageWithoutImagesFolderReportsEveryImage) {
    const fs::path url = handWrittenPackage(json::array({record("a.png"), record("b.png")}), {});
    io.load(url, state);
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_TRUE(dialogs.alerts[0].informativeText.ends_with("\n\na.png\nb.png"));
    EXPECT_EQ(state.images().size(), 2u);
}

TEST_F(ProjectIOTest, UndecodableImageKeepsItsFileButHasNoThumbnail) {
    const fs::path url = handWrittenPackage(json::array({record("broken.png")}), {});
    writeText(url / "images" / "broken.png", "not an image");
    io.load(url, state);
    EXPECT_TRUE(dialogs.alerts.empty());
    ASSERT_EQ(state.images().size(), 1u);
    EXPECT_EQ(state.images()[0].sourcePath, url / "images" / "broken.png");
    EXPECT_EQ(state.images()[0].thumbnail, nullptr);
}

TEST_F(ProjectIOTest, UnknownKeysAreIgnored) {
    json image = record("a.png");
    image["comment"] = "from a newer version";
    const fs::path url = handWrittenPackage(json::array({image}), {"a.png"});
    json project = json::parse(readText(url / "project.json"));
    project["futureSetting"] = 3;
    writeText(url / "project.json", project.dump());

    io.load(url, state);

    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_EQ(state.images().size(), 1u);
}

TEST_F(ProjectIOTest, OpenProjectIsOneUndoStepThatKeepsTheRecentEntry) {
    const fs::path url = handWrittenPackage(json::array({record("a.png")}), {"a.png"});
    io.load(url, state);
    EXPECT_EQ(undo.undoActionName(), "Open Project");
    undo.undo();
    EXPECT_TRUE(state.images().empty());
    ASSERT_EQ(state.recentProjects().size(), 1u);
    EXPECT_EQ(state.recentProjects()[0].displayName, "Hand");
}

// Every way a package can be unreadable: "Load Failed", and the open document stays as it was.
struct UnreadableCase {
    const char* name;
    std::string projectJson;
};

class UnreadablePackageTest : public ProjectIOTest,
                              public ::testing::WithParamInterface<UnreadableCase> {};

TEST_P(UnreadablePackageTest, ShowsLoadFailedAndLeavesTheDocument) {
    WallpaperImage kept = importedImage("kept.png");
    state.addImage(kept);
    writeImage(folder.path() / "outside.png", 1);
    const fs::path url = folder.path() / "Bad.lvesper";
    if (!GetParam().projectJson.empty())
        writeText(url / "project.json", GetParam().projectJson);
    fs::create_directories(url / "images" / "sub");
    writeImage(url / "images" / "sub" / "x.png", 1);

    io.load(url, state);

    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Load Failed");
    EXPECT_TRUE(dialogs.alerts[0].informativeText.starts_with("Could not load project: "));
    EXPECT_GT(dialogs.alerts[0].informativeText.size(), 30u);
    EXPECT_EQ(dialogs.alerts[0].style, platform::AlertStyle::critical);
    ASSERT_EQ(state.images().size(), 1u);
    EXPECT_EQ(state.images()[0].id, kept.id);
    EXPECT_EQ(state.currentProjectPath(), std::nullopt);
    EXPECT_TRUE(state.recentProjects().empty());
}

std::string projectWithImage(const json& image) {
    return json{{"version", "1.0"}, {"mode", "time"}, {"images", json::array({image})}}.dump();
}

std::string projectWithFileName(const std::string& fileName) {
    return projectWithImage(json{{"id", "6B29FC40-CA47-1067-B31D-00DD010662DA"},
                                 {"fileName", fileName},
                                 {"isTween", false}});
}

std::string caseName(const ::testing::TestParamInfo<UnreadableCase>& testCase) {
    return testCase.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UnreadablePackageTest,
    ::testing::Values(
        UnreadableCase{"NoProjectFile", ""}, UnreadableCase{"NotJson", "{\"version\": "},
        UnreadableCase{"MissingIsTween",
                       projectWithImage(json{{"id", "6B29FC40-CA47-1067-B31D-00DD010662DA"},
                                             {"fileName", "a.png"}})},
        UnreadableCase{
            "UnknownMode",
            json{{"version", "1.0"}, {"mode", "dusk"}, {"images", json::array()}}.dump()},
        UnreadableCase{"ParentFolder", projectWithFileName("../outside.png")},
        UnreadableCase{"SubFolder", projectWithFileName("sub/x.png")},
        UnreadableCase{"Backslash", projectWithFileName("sub\\x.png")},
        UnreadableCase{"DotDot", projectWithFileName("..")},
        UnreadableCase{"Dot", projectWithFileName(".")},
        UnreadableCase{"Empty", projectWithFileName("")},
        UnreadableCase{"Absolute", projectWithFileName("/etc/passwd")}),
    caseName);

// ---- panels ----

TEST_F(ProjectIOTest, OpenPanelComesLaterAndPicksAPackageFolder) {
    std::optional<fs::path> chosen;
    dialogs.openAnswers.push_back({package});
    io.showOpenPanel(folder.path(), [&](fs::path url) { chosen = url; });

    EXPECT_TRUE(dialogs.openPanels.empty()); // not before the delay
    dialogs.mainThread.drain();

    ASSERT_EQ(dialogs.openPanels.size(), 1u);
    EXPECT_EQ(dialogs.delays,
              std::vector<std::chrono::milliseconds>{std::chrono::milliseconds(100)});
    const auto& settings = dialogs.openPanels[0];
    EXPECT_FALSE(settings.allowsMultipleSelection);
    EXPECT_TRUE(settings.canChooseFiles);
    EXPECT_FALSE(settings.canChooseDirectories);
    EXPECT_EQ(settings.packageExtensions, std::vector<std::string>{"lvesper"});
    EXPECT_EQ(settings.directory, folder.path());
    EXPECT_EQ(chosen, package);
}

TEST_F(ProjectIOTest, CancelledPanelsCallOnlyTheCancelHandler) {
    bool opened = false, saved = false, cancelled = false;
    io.showOpenPanel(std::nullopt, [&](fs::path) { opened = true; });
    io.showSavePanel(
        "Untitled.lvesper", std::nullopt, [&](fs::path) { saved = true; },
        [&] { cancelled = true; });
    dialogs.mainThread.drain();

    EXPECT_FALSE(opened);
    EXPECT_FALSE(saved);
    EXPECT_TRUE(cancelled);
    ASSERT_EQ(dialogs.savePanels.size(), 1u);
    EXPECT_EQ(dialogs.savePanels[0].nameFieldStringValue, "Untitled.lvesper");
    EXPECT_TRUE(dialogs.savePanels[0].canCreateDirectories);
}

} // namespace
} // namespace lumivesper::document

namespace lumivesper::document {
namespace {

TEST(TextDialogsTest, AlertsBecomeTextForTheCommandLine) {
    testing::TemporaryFolder folder;
    const fs::path url = folder.path() / "Text.lvesper";
    writeText(url / "project.json",
              json{{"version", "1.0"},
                   {"mode", "appearance"},
                   {"images", json::array({json{{"id", platform::Uuid::generate().toString()},
                                                {"fileName", "night.png"},
                                                {"isLight", false},
                                                {"isTween", false}}})}}
                  .dump());
    std::ostringstream out;
    platform::TextDialogs dialogs(out);
    AppState state;

    ProjectIO(dialogs).load(url, state);
    ProjectIO(dialogs).load(folder.path() / "Absent.lvesper", state);

    EXPECT_EQ(state.mode(), WallpaperMode::appearance);
    EXPECT_EQ(out.str().substr(0, out.str().find("Error: ")),
              "Warning: Missing Images\nThe following images could not be found:\n\nnight.png\n");
    EXPECT_NE(out.str().find("Error: Load Failed\nCould not load project: "), std::string::npos);
}

} // namespace
} // namespace lumivesper::document
