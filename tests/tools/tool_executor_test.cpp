#include "../support/temporary_folder.h"
#include "tool_fixture.h"
#include "tools/tool_coordinator.h"
#include "tools/tool_error.h"
#include "tools/tool_executor.h"

#include <gtest/gtest.h>
#include <regex>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using testing::readFile;

// A stand-in tool that runs out of memory above 256-pixel tiles and notes every attempt.
class ToolTileSizes : public ::testing::Test {
protected:
    void SetUp() override {
        std::ofstream(script)
            << "#!/bin/sh\n"
               "echo \"$1\" >> attempts.txt\n"
               "if [ \"$1\" -gt 256 ]; then echo 'out of memory' >&2; exit 1; fi\n";
        fs::permissions(script, fs::perms::owner_all);
        coordinator.state().replace(
            ToolStateData{"1", {{"upscaler", testing::toolInfo("installed", script)}}});
    }

    UpscaleRecord upscale(std::vector<int> tileSizes, const std::string& model = "x4") {
        return executor.runWithTileSizes("upscaler", model, std::move(tileSizes), [&](int size) {
            ++contextsMade;
            return ProcessRunContext{script, {std::to_string(size)}, folder.path()};
        });
    }

    lumivesper::testing::TemporaryFolder folder;
    fs::path script = folder.path() / "tool.sh";
    ToolCoordinator coordinator{folder.path() / "tools", folder.path() / "tools-state.json",
                                folder.path() / "tools.log"};
    ToolExecutor executor{coordinator.logger(), coordinator};
    int contextsMade = 0;
};

TEST_F(ToolTileSizes, FallsBackToSmallerTilesAndStartsWithTheOneThatWorked) {
    const UpscaleRecord record = upscale({512, 256, 128});
    EXPECT_EQ(record.tileSize, 256);
    EXPECT_EQ(record.model, "x4");
    EXPECT_EQ(ToolState(folder.path() / "tools-state.json").tool("upscaler")->lastSuccessfulUpscale,
              record);
    upscale({512, 256, 128});
    upscale({512, 256, 128}, "x2");
    EXPECT_EQ(readFile(folder.path() / "attempts.txt"), "512\n256\n256\n512\n256\n");

    const std::string log = readFile(folder.path() / "tools.log");
    EXPECT_NE(log.find("Running " + script.string() + " 512 in "), std::string::npos) << log;
    EXPECT_NE(log.find("Failed: Process failed with exit code 1 (tool.sh): out of memory\n"),
              std::string::npos);
    EXPECT_NE(log.find("Finished tool.sh"), std::string::npos);
}

TEST_F(ToolTileSizes, ListsEveryAttemptWhenAllFail) {
    const ToolError error = testing::failureOf<ToolError>([&] { upscale({1024, 512}); });
    EXPECT_EQ(error.kind(), ToolError::Kind::allTileSizesFailed);
    EXPECT_EQ(error.description(),
              "Upscaling failed with all tile sizes:\n"
              "1024: Process failed with exit code 1 (tool.sh): out of memory\n"
              "512: Process failed with exit code 1 (tool.sh): out of memory\n"
              "\nTry reducing image resolution.");
    EXPECT_FALSE(coordinator.state().tool("upscaler")->lastSuccessfulUpscale);
}

TEST_F(ToolTileSizes, AMissingProgramEndsAtOnce) {
    fs::remove(script);
    EXPECT_EQ(testing::failureOf<ProcessRunnerError>([&] {
                  upscale({512, 256});
              }).kind(),
              ProcessRunnerError::Kind::missingExecutable);
    EXPECT_EQ(contextsMade, 1);
}

TEST(ToolLogging, WritesOneTimestampedLinePerMessageOrNothingWithoutAFile) {
    lumivesper::testing::TemporaryFolder folder;
    ToolLogger(std::nullopt).log("nothing");
    EXPECT_TRUE(fs::is_empty(folder.path()));

    ToolLogger logger(folder.path() / "logs" / "tools.log");
    logger.log("first\nsecond");
    logger.log("third");
    const std::string log = readFile(folder.path() / "logs" / "tools.log");
    EXPECT_TRUE(
        std::regex_match(log, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ first \| second\n)"
                                         R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ third\n)")))
        << log;
}

} // namespace
} // namespace lumivesper::tools
