#include "../support/temporary_folder.h"
#include "cli/command.h"
#include "document/json_coding.h"
#include "document/project.h"
#include "platform/image_io.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

namespace lumivesper::cli {
namespace {

using ::testing::HasSubstr;

struct CommandRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

CommandRun run(int (*command)(const CommandContext&), std::vector<std::string> arguments) {
    std::ostringstream out, err;
    const int code = command(CommandContext{std::move(arguments), out, err});
    return {code, out.str(), err.str()};
}

// Temporary and data folders point into the test folder, so the command's working folders can be
// seen and nothing is left in the real ones.
class ExportInspectCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        save("TMPDIR", folder.path() / "tmp");
        save("XDG_DATA_HOME", folder.path() / "data");
        std::filesystem::create_directories(folder.path() / "tmp");
    }
    void TearDown() override {
        for (const auto& [name, value] : saved)
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }

    void save(const std::string& name, const std::filesystem::path& value) {
        const char* previous = std::getenv(name.c_str());
        saved.emplace_back(name, previous ? std::optional<std::string>(previous) : std::nullopt);
        ::setenv(name.c_str(), value.c_str(), 1);
    }

    // A textured PNG; its width tells it apart in the exported file.
    std::string png(const std::string& name, int width, int height = 8) {
        platform::PixelImage pixels(width, height);
        for (std::size_t i = 0; i < pixels.rgba.size(); ++i)
            pixels.rgba[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(i / 4 % 251);
        const auto path = folder.path() / name;
        platform::writePng(pixels, path);
        return path.string();
    }

    nlohmann::json inspectJson() {
        const auto result = run(runInspect, {output, "--json"});
        EXPECT_EQ(result.exitCode, exitSuccess) << result.err;
        return nlohmann::json::parse(result.out);
    }

    int workingFolders() const {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path() / "tmp"))
            count += entry.path().filename().string().starts_with("LumivesperAIPreprocess-");
        return count;
    }

    lumivesper::testing::TemporaryFolder folder;
    std::string output = (folder.path() / "out.heic").string();
    std::vector<std::pair<std::string, std::optional<std::string>>> saved;
};

TEST_F(ExportInspectCommandTest, TimeModeFollowsTheDocumentsSunOrderAndKeepsExactValues) {
    // Given noon first; the document sorts by hour, so dawn comes first. An '@' in a file name
    // without values after it belongs to the name.
    const auto result = run(runExport, {png("noon.png", 40) + "@60,180", png("logo@2x.png", 8),
                                        png("dawn.png", 24) + "@-6.25,95.125", "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;

    const auto json = inspectJson();
    ASSERT_EQ(json["frames"].size(), 3u);
    EXPECT_EQ(json["images"][0]["width"], 24);
    EXPECT_EQ(json["frames"][0]["altitude"], -6.25);
    EXPECT_EQ(json["frames"][0]["azimuth"], 95.125);
    EXPECT_EQ(json["images"][1]["width"], 40);
    EXPECT_EQ(json["frames"][1]["altitude"], 60.0);
    EXPECT_EQ(json["images"][2]["width"], 8); // logo@2x.png: altitude and azimuth 0
    EXPECT_EQ(json["frames"][2]["altitude"], 0.0);
}

TEST_F(ExportInspectCommandTest, QualityReachesTheEncoder) {
    platform::PixelImage busy(128, 64);
    for (std::size_t i = 0; i < busy.rgba.size(); ++i)
        busy.rgba[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(i * 2654435761u >> 13);
    const auto source = folder.path() / "busy.png";
    platform::writePng(busy, source);
    std::vector<std::uintmax_t> sizes;
    for (const char* quality : {"10", "90"}) {
        ASSERT_EQ(run(runExport, {source.string(), "--quality", quality, "-o", output}).exitCode,
                  exitSuccess);
        sizes.push_back(std::filesystem::file_size(output));
    }
    EXPECT_LT(sizes[0], sizes[1]);
}

TEST_F(ExportInspectCommandTest, BadUsageExitsWithTwo) {
    const auto image = png("a.png", 8);
    const std::vector<std::vector<std::string>> cases = {
        {},
        {image},                                      // no output
        {"-o", output},                               // no image
        {image, "-o", output, "--mode", "sunny"},     // unknown mode
        {image, "-o", output, "--canvas-size", "8k"}, // unknown option
        {image + "@light", "-o", output},             // appearance value in time mode
        {image + "@60", "-o", output},                // one angle
        {image + "@60,180", "--mode", "appearance", "-o", output},
        {image, "--canvas", "0x100", "-o", output},
        {image, "--canvas", "huge", "-o", output},
        {image, "--upscale", "fancy", "-o", output},
        {image, "--quality", "101", "-o", output},
        {image, "--quality", "7.5", "-o", output},
        {image, "--quality", "-o", output},
    };
    for (const auto& arguments : cases) {
        const auto result = run(runExport, arguments);
        EXPECT_EQ(result.exitCode, exitUsage) << ::testing::PrintToString(arguments);
        EXPECT_FALSE(result.err.empty());
    }
    EXPECT_EQ(run(runInspect, {}).exitCode, exitUsage);
    EXPECT_EQ(run(runInspect, {output, "--verbose"}).exitCode, exitUsage);
}

TEST_F(ExportInspectCommandTest, FailuresExitWithOneAndSayWhy) {
    const auto noFolder =
        run(runExport, {png("b.png", 8), "-o", (folder.path() / "x" / "o.heic").string()});
    EXPECT_EQ(noFolder.exitCode, exitFailure);
    EXPECT_THAT(noFolder.err, HasSubstr("Failed to create HEIC file"));

    save("LUMIVESPER_UPSCALE_MODEL", folder.path() / "no-model.onnx");
    const auto noModel =
        run(runExport, {png("a.png", 8), "--upscale", "auto", "--canvas", "8k", "-o", output});
    EXPECT_EQ(noModel.exitCode, exitFailure);
    EXPECT_THAT(noModel.err, HasSubstr("model failed to load"));
    EXPECT_FALSE(std::filesystem::exists(output));

    EXPECT_EQ(run(runInspect, {(folder.path() / "missing.heic").string()}).exitCode, exitFailure);
}

TEST_F(ExportInspectCommandTest, PreprocessedFramesAreRemovedUnlessKeptUnderTheDataFolder) {
    const auto result =
        run(runExport, {png("a.png", 40, 40) + "@10,100", png("b.png", 30, 10) + "@20,200",
                        "--canvas", "64x32", "--dither", "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;
    EXPECT_THAT(result.err, HasSubstr("[3/4] Encoded image 1/2"));
    for (const auto& image : inspectJson()["images"]) {
        EXPECT_EQ(image["width"], 64);
        EXPECT_EQ(image["height"], 32);
    }
    EXPECT_EQ(workingFolders(), 0);

    const auto keep = run(runExport, {png("c.png", 20, 10), "--canvas", "source", "--keep-frames",
                                      "--dither", "-o", output});
    ASSERT_EQ(keep.exitCode, exitSuccess) << keep.err;
    const auto kept = folder.path() / "data" / "Lumivesper AI" / "Preprocessed";
    ASSERT_TRUE(std::filesystem::is_directory(kept));
    const auto session = std::filesystem::directory_iterator(kept)->path();
    EXPECT_TRUE(std::filesystem::exists(session / "frame_0001.png"));
    EXPECT_THAT(keep.out, HasSubstr(session.string()));
}

TEST_F(ExportInspectCommandTest, InterruptCancelsAndRemovesTheTemporaryFrames) {
    std::vector<std::string> arguments;
    for (int n = 0; n < 6; ++n)
        arguments.push_back(png("f" + std::to_string(n) + ".png", 64, 36));
    arguments.insert(arguments.end(), {"--canvas", "8k", "-o", output});
    CommandRun result;
    std::thread exporter([&] { result = run(runExport, arguments); });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (workingFolders() == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    ASSERT_EQ(workingFolders(), 1);
    ::kill(::getpid(), SIGINT);
    exporter.join();

    EXPECT_EQ(result.exitCode, exitFailure);
    EXPECT_THAT(result.err, HasSubstr("Export cancelled"));
    EXPECT_EQ(workingFolders(), 0);
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(ExportInspectCommandTest, AppearanceFromArgumentsOrAPackageWritesLightThenDark) {
    const auto result = run(runExport, {png("night.png", 16) + "@dark", png("day.png", 32),
                                        "--mode", "appearance", "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;
    EXPECT_EQ(inspectJson()["images"][0]["width"], 32);
    const auto text = run(runInspect, {output});
    EXPECT_EQ(text.exitCode, exitSuccess);
    EXPECT_THAT(text.out, HasSubstr("Dark image: 1"));

    const auto package = folder.path() / "Evening.lvesper";
    std::filesystem::create_directories(package / "images");
    document::Project project;
    project.mode = document::WallpaperMode::appearance;
    for (auto [name, light] : {std::pair{"night.png", false}, std::pair{"day.png", true}}) {
        std::filesystem::copy_file(folder.path() / name, package / "images" / name);
        document::WallpaperImage image;
        image.fileName = name;
        image.isLight = light;
        project.images.push_back(image);
    }
    std::ofstream(package / "project.json") << nlohmann::json(project).dump();
    std::filesystem::remove(output);
    const auto fromPackage = run(runExport, {package.string(), "-o", output});
    ASSERT_EQ(fromPackage.exitCode, exitSuccess) << fromPackage.err;
    EXPECT_EQ(inspectJson()["images"][0]["width"], 32);

    std::filesystem::remove(package / "images" / "day.png");
    const auto missing = run(runExport, {package.string(), "-o", output});
    EXPECT_EQ(missing.exitCode, exitFailure);
    EXPECT_THAT(missing.err, HasSubstr("day.png"));
}

TEST_F(ExportInspectCommandTest, AnUnusableTemporaryFolderIsAFailureNotACrash) {
    ::setenv("TMPDIR", (folder.path() / "no-such-folder").c_str(), 1); // restored by TearDown
    const auto result = run(runExport, {png("a.png", 16), "-o", output, "--dither"});
    EXPECT_EQ(result.exitCode, exitFailure);
    EXPECT_THAT(result.err, HasSubstr("lumivesper-cli export: "));
    EXPECT_FALSE(std::filesystem::exists(output));
}

} // namespace
} // namespace lumivesper::cli

namespace lumivesper::cli {
namespace {

TEST_F(ExportInspectCommandTest, ImportMakesAPackageThatExportsTheSameRecordsAgain) {
    ASSERT_EQ(run(runExport,
                  {png("a.png", 16) + "@-4.5,80.25", png("b.png", 24) + "@55,181", "-o", output})
                  .exitCode,
              exitSuccess);
    const auto before = inspectJson();
    const auto package = (folder.path() / "again").string();
    const auto imported = run(runImport, {output, "-o", package});
    ASSERT_EQ(imported.exitCode, exitSuccess) << imported.err;
    EXPECT_EQ(imported.out, package + ".lvesper\n");
    EXPECT_THAT(imported.err, HasSubstr("[2/2] Decoded image 2/2"));

    ASSERT_EQ(run(runExport, {package + ".lvesper", "-o", output}).exitCode, exitSuccess);
    const auto after = inspectJson();
    EXPECT_EQ(after["frames"], before["frames"]);
    EXPECT_EQ(after["images"][1]["width"], 24);

    const auto again = run(runImport, {output, "-o", package + ".lvesper"});
    EXPECT_EQ(again.exitCode, exitFailure);
    EXPECT_THAT(again.err, HasSubstr("already exists"));
    const auto notWallpaper = run(runImport, {png("c.png", 8), "-o", package + "2"});
    EXPECT_EQ(notWallpaper.exitCode, exitFailure);
    EXPECT_THAT(notWallpaper.err, HasSubstr("Not a readable HEIF file"));
}

TEST_F(ExportInspectCommandTest, ImportAndApplyRefuseBadUsageWithTwo) {
    const std::vector<std::pair<int (*)(const CommandContext&), std::vector<std::string>>> cases = {
        {runImport, {}},
        {runImport, {output}},                      // no package
        {runImport, {output, "-o"}},                // no package after -o
        {runImport, {output, "-o", "p", "--fast"}}, // unknown option
        {runApply, {}},
        {runApply, {output, "--lat", "48"}}, // no longitude
        {runApply, {output, "--lat", "95", "--lon", "0"}},
        {runApply, {output, "--desktop", "xfce"}},
        {runApply, {output, "--command", "swaybg -i"}}, // no {} for the picture
        {runApply, {output, "--remove"}},               // a file and --remove
    };
    for (const auto& [command, arguments] : cases) {
        const auto result = run(command, arguments);
        EXPECT_EQ(result.exitCode, exitUsage) << ::testing::PrintToString(arguments);
        EXPECT_FALSE(result.err.empty());
    }
}

} // namespace
} // namespace lumivesper::cli
