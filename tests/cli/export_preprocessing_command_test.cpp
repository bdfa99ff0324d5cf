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
    std::ostringstream out;
    std::ostringstream err;
    const int code = command(CommandContext{std::move(arguments), out, err});
    return {code, out.str(), err.str()};
}

// Points the temporary and data folders into a test folder, so the command's working folders can
// be seen and nothing is left in the real ones.
class ExportPreprocessingCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        save("TMPDIR", folder.path() / "tmp");
        save("XDG_DATA_HOME", folder.path() / "data");
        std::filesystem::create_directories(folder.path() / "tmp");
    }
    void TearDown() override {
        for (const auto& [name, value] : saved) {
            if (value)
                ::setenv(name.c_str(), value->c_str(), 1);
            else
                ::unsetenv(name.c_str());
        }
    }

    void save(const std::string& name, const std::filesystem::path& value) {
        const char* previous = std::getenv(name.c_str());
        saved.emplace_back(name, previous ? std::optional<std::string>(previous) : std::nullopt);
        ::setenv(name.c_str(), value.c_str(), 1);
    }

    std::string png(const std::string& name, int width, int height) {
        platform::PixelImage pixels(width, height);
        for (std::size_t i = 0; i < pixels.rgba.size(); ++i)
            pixels.rgba[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(i / 4 % 251);
        const auto path = folder.path() / name;
        platform::writePng(pixels, path);
        return path.string();
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

TEST_F(ExportPreprocessingCommandTest, CustomCanvasFillsEveryFrameAndCleansUp) {
    const auto result =
        run(runExport, {png("a.png", 40, 40) + "@10,100", png("b.png", 30, 10) + "@20,200",
                        "--canvas", "64x32", "--dither", "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;
    EXPECT_THAT(result.err, HasSubstr("Preprocessed frame 2/2"));
    EXPECT_THAT(result.err, HasSubstr("[3/4] Encoded image 1/2"));

    std::ostringstream out, err;
    ASSERT_EQ(runInspect(CommandContext{{output, "--json"}, out, err}), exitSuccess);
    const auto json = nlohmann::json::parse(out.str());
    for (const auto& image : json["images"]) {
        EXPECT_EQ(image["width"], 64);
        EXPECT_EQ(image["height"], 32);
    }
    EXPECT_EQ(workingFolders(), 0);
}

TEST_F(ExportPreprocessingCommandTest, KeptFramesStayUnderTheDataFolder) {
    const auto result = run(runExport, {png("a.png", 20, 10), "--canvas", "source", "--keep-frames",
                                        "--dither", "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;
    const auto kept = folder.path() / "data" / "Lumivesper AI" / "Preprocessed";
    ASSERT_TRUE(std::filesystem::is_directory(kept));
    const auto session = std::filesystem::directory_iterator(kept)->path();
    EXPECT_TRUE(std::filesystem::exists(session / "frame_0001.png"));
    EXPECT_THAT(result.out, HasSubstr(session.string()));
}

TEST_F(ExportPreprocessingCommandTest, BadPreprocessingValuesAreUsageErrors) {
    const auto image = png("a.png", 8, 8);
    for (const auto& [flag, value] :
         std::vector<std::pair<std::string, std::string>>{{"--canvas", "0x100"},
                                                          {"--canvas", "huge"},
                                                          {"--canvas", "100xabc"},
                                                          {"--upscale", "fancy"}}) {
        const auto result = run(runExport, {image, flag, value, "-o", output});
        EXPECT_EQ(result.exitCode, exitUsage) << flag << " " << value;
    }
}

TEST_F(ExportPreprocessingCommandTest, AMissingUpscaleModelFailsClearly) {
    save("LUMIVESPER_UPSCALE_MODEL", folder.path() / "no-model.onnx");
    const auto result =
        run(runExport, {png("a.png", 8, 8), "--upscale", "auto", "--canvas", "8k", "-o", output});
    EXPECT_EQ(result.exitCode, exitFailure);
    EXPECT_THAT(result.err, HasSubstr("model failed to load"));
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(ExportPreprocessingCommandTest, InterruptCancelsAndRemovesTheTemporaryFrames) {
    std::vector<std::string> arguments;
    for (int n = 0; n < 6; ++n)
        arguments.push_back(png("f" + std::to_string(n) + ".png", 64, 36));
    for (std::string extra : {"--canvas", "8k", "-o"})
        arguments.push_back(extra);
    arguments.push_back(output);

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

TEST_F(ExportPreprocessingCommandTest, APackageExportsItsImagesWithTheirValuesAndMode) {
    const auto package = folder.path() / "Evening.lvesper";
    std::filesystem::create_directories(package / "images");
    document::Project project;
    project.mode = document::WallpaperMode::appearance;
    for (auto [name, light] : {std::pair{"night.png", false}, std::pair{"day.png", true}}) {
        std::filesystem::copy_file(png(name, light ? 24 : 16, 8), package / "images" / name);
        document::WallpaperImage image;
        image.fileName = name;
        image.isLight = light;
        project.images.push_back(image);
    }
    std::ofstream(package / "project.json") << nlohmann::json(project).dump();

    const auto result = run(runExport, {package.string(), "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;
    std::ostringstream out, err;
    ASSERT_EQ(runInspect(CommandContext{{output, "--json"}, out, err}), exitSuccess);
    const auto json = nlohmann::json::parse(out.str());
    EXPECT_EQ(json["kind"], "apr");
    EXPECT_EQ(json["images"][0]["width"], 24); // the light image first
    EXPECT_EQ(json["images"][1]["width"], 16);

    std::filesystem::remove(package / "images" / "day.png");
    const auto missing = run(runExport, {package.string(), "-o", output});
    EXPECT_EQ(missing.exitCode, exitFailure);
    EXPECT_THAT(missing.err, HasSubstr("day.png"));
}

} // namespace
} // namespace lumivesper::cli
