#include "../support/temporary_folder.h"
#include "cli/command.h"
#include "platform/image_io.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace lumivesper::cli {
namespace {

using ::testing::HasSubstr;

struct CommandRun {
    int exitCode;
    std::string out;
    std::string err;
};

class ExportInspectCommandTest : public ::testing::Test {
protected:
    // A PNG whose width tells it apart in the exported file.
    std::string png(const std::string& name, int width) {
        platform::PixelImage pixels(width, 8);
        for (std::size_t i = 3; i < pixels.rgba.size(); i += 4)
            pixels.rgba[i] = 255;
        const auto path = folder.path() / name;
        platform::writePng(pixels, path);
        return path.string();
    }

    static CommandRun run(int (*command)(const CommandContext&),
                          std::vector<std::string> arguments) {
        std::ostringstream out;
        std::ostringstream err;
        const int code = command(CommandContext{std::move(arguments), out, err});
        return {code, out.str(), err.str()};
    }

    nlohmann::json inspectJson(const std::string& file) {
        const auto result = run(runInspect, {file, "--json"});
        EXPECT_EQ(result.exitCode, exitSuccess) << result.err;
        return nlohmann::json::parse(result.out);
    }

    testing::TemporaryFolder folder;
    std::string output = (folder.path() / "out.heic").string();
};

TEST_F(ExportInspectCommandTest, TimeModeFollowsTheDocumentsSunOrderAndKeepsExactValues) {
    // Given noon first and dawn second; the document sorts by hour, so dawn comes first.
    const auto noon = png("noon.png", 40) + "@60,180";
    const auto dawn = png("dawn.png", 24) + "@-6.25,95.125";
    const auto result = run(runExport, {noon, dawn, "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;
    EXPECT_THAT(result.err, HasSubstr("Encoded image 2/2"));

    const auto json = inspectJson(output);
    EXPECT_EQ(json["kind"], "solar");
    ASSERT_EQ(json["frames"].size(), 2u);
    EXPECT_EQ(json["images"][0]["width"], 24);
    EXPECT_EQ(json["frames"][0]["altitude"], -6.25);
    EXPECT_EQ(json["frames"][0]["azimuth"], 95.125);
    EXPECT_EQ(json["frames"][0]["light"], 0);
    EXPECT_EQ(json["images"][1]["width"], 40);
    EXPECT_EQ(json["frames"][1]["altitude"], 60.0);
    EXPECT_EQ(json["images"][1]["hasXmp"], false);
}

TEST_F(ExportInspectCommandTest, AppearanceModeWritesLightThenDark) {
    const auto result = run(runExport, {png("night.png", 16) + "@dark", png("day.png", 32),
                                        "--mode", "appearance", "-o", output});
    ASSERT_EQ(result.exitCode, exitSuccess) << result.err;
    const auto json = inspectJson(output);
    EXPECT_EQ(json["kind"], "apr");
    EXPECT_EQ(json["light"], 0);
    EXPECT_EQ(json["dark"], 1);
    EXPECT_EQ(json["images"][0]["width"], 32);
    EXPECT_EQ(json["images"][1]["width"], 16);

    const auto text = run(runInspect, {output});
    EXPECT_EQ(text.exitCode, exitSuccess);
    EXPECT_THAT(text.out, HasSubstr("Dark image: 1"));
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
    const auto text = folder.path() / "notes.png";
    std::ofstream(text) << "not an image";
    auto unreadable = run(runExport, {text.string(), "-o", output});
    EXPECT_EQ(unreadable.exitCode, exitFailure);
    EXPECT_THAT(unreadable.err, HasSubstr("notes.png"));

    auto oneImage = run(runExport, {png("a.png", 8), "--mode", "appearance", "-o", output});
    EXPECT_EQ(oneImage.exitCode, exitFailure);
    EXPECT_THAT(oneImage.err,
                HasSubstr("Invalid configuration: Appearance mode requires at least 2 images"));

    auto noFolder =
        run(runExport, {png("b.png", 8), "-o", (folder.path() / "x" / "o.heic").string()});
    EXPECT_EQ(noFolder.exitCode, exitFailure);
    EXPECT_THAT(noFolder.err, HasSubstr("Failed to create HEIC file"));

    EXPECT_EQ(run(runInspect, {text.string()}).exitCode, exitFailure);
    EXPECT_EQ(run(runInspect, {(folder.path() / "missing.heic").string()}).exitCode, exitFailure);
}

TEST_F(ExportInspectCommandTest, AFileNameWithAnAtSignIsTakenWhole) {
    const auto image = png("logo@2x.png", 8);
    const auto result = run(runExport, {image, "-o", output});
    EXPECT_EQ(result.exitCode, exitSuccess) << result.err;
    EXPECT_EQ(inspectJson(output)["frames"][0]["altitude"], 0.0);
}

} // namespace
} // namespace lumivesper::cli
