#include "../support/file_size_limit.h"
#include "../support/scripted_dialogs.h"
#include "../support/temporary_folder.h"
#include "document/json_coding.h"
#include "document/project_io.h"
#include "platform/image_io.h"

#include <fstream>
#include <gmock/gmock.h>

namespace lumivesper::document {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using ::testing::StartsWith;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

void writeImage(const fs::path& path) {
    fs::create_directories(path.parent_path());
    platform::writePng(platform::PixelImage(8, 6), path);
}

json record(const std::string& fileName) {
    return {{"id", Uuid::generate().toString()}, {"fileName", fileName}, {"isTween", false}};
}

json projectOf(const json& images) {
    return {{"version", "1.0"}, {"mode", "time"}, {"images", images}};
}

class ProjectIOTest : public ::testing::Test {
protected:
    // An image file outside any package, as an import leaves it.
    WallpaperImage imported(const std::string& name) {
        WallpaperImage image;
        image.fileName = name;
        image.altitude = 12.5;
        image.azimuth = 101.25;
        image.sourcePath = folder.path() / "imports" / name;
        writeImage(*image.sourcePath);
        return image;
    }

    // A package written by hand, with these files in its images folder.
    fs::path handWritten(const json& project, const std::vector<std::string>& files) {
        const fs::path url = folder.path() / "Hand.lvesper";
        writeText(url / "project.json", project.dump());
        for (const auto& name : files)
            writeImage(url / "images" / name);
        return url;
    }

    testing::TemporaryFolder folder;
    testing::ScriptedDialogs dialogs;
    ProjectIO io{dialogs};
    AppState state;
    fs::path package = folder.path() / "Demo.lvesper";
};

TEST_F(ProjectIOTest, SaveWritesSortedPrettyJsonWithTheAllowedKeysThatLoadsBackTheSame) {
    WallpaperImage dawn = imported("dawn.png");
    WallpaperImage tween = imported("tween.png");
    dawn.id = *Uuid::parse("00000000-0000-4000-8000-00000000000A");
    tween.id = *Uuid::parse("00000000-0000-4000-8000-00000000000B");
    tween.isTween = true;
    tween.parentId = dawn.id;
    state.addImage(dawn);
    state.addImage(tween);
    state.setLastMagicSettings("A lake", "1536x1024", 5, "dawn.png");

    io.save(package, state);

    const json expected = json::parse(R"({"version": "1.0", "mode": "time", "magicPrompt": "A lake",
      "magicSize": "1536x1024", "magicTweenCount": 5, "magicStartingImageFileName": "dawn.png",
      "images": [{"id": "00000000-0000-4000-8000-00000000000A", "fileName": "dawn.png",
                  "altitude": 12.5, "azimuth": 101.25, "isTween": false},
                 {"id": "00000000-0000-4000-8000-00000000000B", "fileName": "tween.png",
                  "altitude": 12.5, "azimuth": 101.25, "isTween": true,
                  "parentId": "00000000-0000-4000-8000-00000000000A"}]})");
    const std::string text = readText(package / "project.json");
    EXPECT_EQ(text, expected.dump(2)); // pretty, with sorted keys at every level, and no others
    EXPECT_EQ(state.currentProjectPath(), package);
    EXPECT_FALSE(state.isDirty());
    EXPECT_EQ(state.recentProjects().at(0).path, package.string());

    // Loaded into another document and saved elsewhere, it writes the same file.
    AppState reopened;
    io.load(package, reopened);
    ASSERT_EQ(reopened.images().size(), 2u);
    EXPECT_NE(reopened.images()[0].thumbnail, nullptr);
    EXPECT_FALSE(reopened.isDirty());
    io.save(folder.path() / "Copy.lvesper", reopened);
    EXPECT_EQ(readText(folder.path() / "Copy.lvesper" / "project.json"), text);
    EXPECT_TRUE(dialogs.alerts.empty());

    // The window opens without decoding, and fills each preview in later: the document stays
    // clean and the row is told, so every view repaints.
    AppState deferred;
    io.setLoadsPreviews(false);
    io.load(package, deferred);
    ASSERT_EQ(deferred.images()[0].thumbnail, nullptr);
    EXPECT_TRUE(deferred.images()[0].sourcePath);
    std::vector<ImageRowChange> rows;
    const auto subscription =
        deferred.observeImageRows([&](const ImageRowChange& change) { rows.push_back(change); });
    const auto preview = reopened.images()[0].thumbnail;
    deferred.fillDisplayPreview(deferred.images()[0].id, preview);
    deferred.fillDisplayPreview(deferred.images()[0].id, nullptr); // a later one never replaces it
    EXPECT_EQ(deferred.images()[0].thumbnail, preview);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].kind, ImageRowChange::Kind::changed);
    EXPECT_FALSE(deferred.isDirty());
}

TEST_F(ProjectIOTest, SecondSaveCopiesNothingAndSaveAsCopiesEverything) {
    state.addImage(imported("a.png"));
    state.addImage(imported("b.png"));
    io.save(package, state);
    // A second copy from the imports would overwrite this marker.
    writeText(package / "images" / "a.png", "marker");
    fs::remove_all(folder.path() / "imports");
    io.save(package, state);
    EXPECT_EQ(readText(package / "images" / "a.png"), "marker");
    const std::string formerJson = readText(package / "project.json");

    const fs::path other = folder.path() / "Other.lvesper";
    io.save(other, state);

    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_EQ(readText(other / "images" / "a.png"), "marker");
    EXPECT_EQ(state.images()[1].sourcePath, other / "images" / "b.png");
    EXPECT_TRUE(fs::is_regular_file(other / "images" / "b.png"));
    EXPECT_EQ(readText(package / "project.json"), formerJson);
    EXPECT_EQ(state.currentProjectPath(), other);
}

TEST_F(ProjectIOTest, FailedSaveNamesTheCauseAndKeepsTheDocumentDirty) {
    // The second image's file vanished, or its name would leave the images folder or is not
    // UTF-8. The alert names the file, but for the last, which cannot be printed.
    const std::string names[] = {"vanished.png", "../../escaped.png", "sub/x.png", "caf\xe9.png"};
    writeText(package / "images" / "vanished.png", "earlier"); // Save As over an older package
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        AppState document;
        document.addImage(imported("first.png"));
        WallpaperImage second = imported("second.png");
        second.fileName = name;
        if (name == "vanished.png")
            fs::remove(*second.sourcePath);
        document.addImage(second);

        io.save(package, document);

        ASSERT_EQ(dialogs.alerts.size(), 1u);
        EXPECT_EQ(dialogs.alerts[0].message, "Save Failed");
        EXPECT_EQ(dialogs.alerts[0].style, platform::AlertStyle::critical);
        EXPECT_THAT(dialogs.alerts[0].informativeText, StartsWith("Could not save project: "));
        EXPECT_THAT(dialogs.alerts[0].informativeText,
                    ::testing::HasSubstr(name == names[3] ? std::string() : name));
        dialogs.alerts.clear();
        EXPECT_TRUE(document.isDirty());
        EXPECT_FALSE(fs::exists(package / "project.json"));
        EXPECT_FALSE(fs::exists(folder.path() / "escaped.png"));
    }
    EXPECT_EQ(readText(package / "images" / "vanished.png"),
              "earlier"); // a failed copy loses nothing
}

TEST_F(ProjectIOTest, AProjectFileThatCannotBeWrittenWholeLeavesTheFormerOne) {
    state.addImage(imported("dawn.png"));
    io.save(package, state);
    const std::string saved = readText(package / "project.json");
    state.setMode(WallpaperMode::appearance);
    {
        testing::FileSizeLimit fullDisk(saved.size() / 2);
        io.save(package, state);
    }
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Save Failed");
    EXPECT_THAT(dialogs.alerts[0].informativeText, ::testing::HasSubstr("project.json"));
    EXPECT_EQ(readText(package / "project.json"), saved);
    EXPECT_EQ(std::distance(fs::directory_iterator(package), fs::directory_iterator()), 2)
        << "nothing but project.json and images: the partial file is gone";
    EXPECT_TRUE(state.isDirty());
}

TEST_F(ProjectIOTest, HandWrittenPackageLoadsWhatItCanAndListsMissingImagesByName) {
    json images = json::array({record("a.png"), record("b.png"), record("c.png"), record("x.png")});
    images[1]["comment"] = "from a newer version";
    json project = projectOf(images);
    project["futureSetting"] = 3;
    const fs::path url = handWritten(project, {"b.png"});
    writeText(url / "images" / "x.png", "not an image");

    // Through the command line's dialogs, which print alerts; a failed load follows.
    std::ostringstream out;
    platform::TextDialogs text(out);
    ProjectIO(text).load(url, state);
    ProjectIO(text).load(folder.path() / "Absent.lvesper", state);

    EXPECT_THAT(out.str(), StartsWith("Warning: Missing Images\nThe following images could not be "
                                      "found:\n\na.png\nc.png\nError: Load Failed\nCould not "
                                      "load project: "));
    ASSERT_EQ(state.images().size(), 4u);
    EXPECT_EQ(state.images()[0].sourcePath, std::nullopt);
    EXPECT_EQ(state.images()[1].sourcePath, url / "images" / "b.png");
    // A file that does not decode keeps its place in the package, without a thumbnail.
    EXPECT_EQ(state.images()[3].sourcePath, url / "images" / "x.png");
    EXPECT_EQ(state.images()[3].thumbnail, nullptr);
    EXPECT_EQ(state.currentProjectPath(), url);

    io.save(url, state);
    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_EQ(json::parse(readText(url / "project.json"))["images"].size(), 4u);
}

TEST_F(ProjectIOTest, UnreadablePackagesFailToLoadAndLeaveTheDocument) {
    json withoutIsTween = record("a.png");
    withoutIsTween.erase("isTween");
    std::vector<std::string> texts = {
        "", "{\"version\": ", R"({"version": "1.0", "mode": "dusk", "images": []})",
        projectOf(json::array({withoutIsTween})).dump()};
    // Names that would leave the images folder; the files they point at exist.
    for (const std::string name :
         {"../outside.png", "sub/x.png", "sub\\x.png", "..", ".", "", "/etc/passwd"})
        texts.push_back(projectOf(json::array({record(name)})).dump());
    // Two images with one id: the first sorting edit would stop the process.
    const json first = record("a.png");
    json twin = record("b.png");
    twin["id"] = first["id"];
    texts.push_back(projectOf(json::array({first, twin})).dump());
    state.addImage(imported("kept.png"));
    const fs::path url = folder.path() / "Bad.lvesper";
    writeImage(url / "images" / "sub" / "x.png");
    writeImage(url / "outside.png");

    for (const std::string& text : texts) { // an empty text: no project file at all
        fs::remove(url / "project.json");
        if (!text.empty())
            writeText(url / "project.json", text);
        SCOPED_TRACE(text);
        io.load(url, state);
        ASSERT_EQ(dialogs.alerts.size(), 1u);
        EXPECT_EQ(dialogs.alerts[0].message, "Load Failed");
        EXPECT_EQ(dialogs.alerts[0].style, platform::AlertStyle::critical);
        EXPECT_THAT(dialogs.alerts[0].informativeText, StartsWith("Could not load project: "));
        EXPECT_GT(dialogs.alerts[0].informativeText.size(), 30u) << "an explanation follows";
        dialogs.alerts.clear();
        ASSERT_EQ(state.images().size(), 1u);
        EXPECT_EQ(state.images()[0].fileName, "kept.png");
    }
    EXPECT_EQ(state.currentProjectPath(), std::nullopt);
    EXPECT_TRUE(state.recentProjects().empty());
}

TEST_F(ProjectIOTest, OpenPanelComesLaterAndPicksAPackageFolder) {
    std::optional<fs::path> chosen;
    dialogs.openAnswers.push_back({package});
    io.showOpenPanel(folder.path(), [&](fs::path url) { chosen = url; });
    EXPECT_TRUE(dialogs.openPanels.empty()); // not before the delay
    dialogs.mainThread.drain();

    EXPECT_EQ(chosen, package);
    EXPECT_EQ(dialogs.delays,
              std::vector<std::chrono::milliseconds>{std::chrono::milliseconds(100)});
    ASSERT_EQ(dialogs.openPanels.size(), 1u);
    const auto& settings = dialogs.openPanels[0];
    EXPECT_TRUE(settings.canChooseFiles);
    EXPECT_FALSE(settings.canChooseDirectories);
    EXPECT_EQ(settings.packageExtensions, std::vector<std::string>{"lvesper"});
}

} // namespace
} // namespace lumivesper::document
