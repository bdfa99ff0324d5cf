#include "../support/temporary_folder.h"
#include "loopback_server.h"
#include "tool_fixture.h"
#include "tools/tool_coordinator.h"
#include "tools/tool_error.h"
#include "tools/tool_executor.h"

#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ToolPreparation : public ::testing::Test {
protected:
    void SetUp() override {
        const fs::path zip = folder.path() / "served.zip";
        testing::upscalerArchive().write(zip);
        archiveBytes = readFile(zip);
        server.server.Get("/upscaler.zip",
                          [this](const httplib::Request&, httplib::Response& response) {
                              ++downloads;
                              response.set_content(archiveBytes, "application/zip");
                          });
        server.start();
        package.archiveURL = server.url("/upscaler.zip");
    }

    ToolError failureOf(const ToolPackage& changed) {
        try {
            coordinator.prepare(changed);
        } catch (const ToolError& error) {
            return error;
        }
        throw std::runtime_error("the preparation succeeded");
    }

    lumivesper::testing::TemporaryFolder folder;
    testing::LoopbackServer server;
    std::string archiveBytes;
    std::atomic<int> downloads = 0;
    ToolPackage package = testing::upscalerPackage();
    ToolCoordinator coordinator{folder.path() / "tools", folder.path() / "tools-state.json",
                                folder.path() / "tools.log"};
};

TEST_F(ToolPreparation, DownloadsOnceAndThenUsesTheHealthyInstallation) {
    std::vector<double> fractions;
    const ToolInfo first =
        coordinator.prepare(package, [&](double fraction) { fractions.push_back(fraction); });
    EXPECT_EQ(first.status, "installed");
    EXPECT_EQ(downloads, 1);
    ASSERT_FALSE(fractions.empty());
    EXPECT_DOUBLE_EQ(fractions.back(), 1.0);
    EXPECT_EQ(coordinator.readyTool(package), coordinator.state().tool("upscaler"));

    const ToolInfo second = coordinator.prepare(package);
    EXPECT_EQ(downloads, 1);
    EXPECT_EQ(second.executable, first.executable);
    EXPECT_EQ(second.installedAt, first.installedAt);
}

TEST_F(ToolPreparation, ReinstallsADamagedInstallation) {
    const ToolInfo first = coordinator.prepare(package);
    fs::remove(*first.executable);
    EXPECT_FALSE(coordinator.readyTool(package));

    coordinator.prepare(package);
    EXPECT_EQ(downloads, 2);
    EXPECT_TRUE(fs::exists(*first.executable));
    EXPECT_NE(readFile(folder.path() / "tools.log").find("Executable missing"), std::string::npos);
}

TEST_F(ToolPreparation, AnUnreachableServerMeansNoNetwork) {
    package.archiveURL =
        "http://127.0.0.1:" + std::to_string(testing::closedLoopbackPort()) + "/upscaler.zip";
    EXPECT_EQ(failureOf(package).kind(), ToolError::Kind::networkUnavailable);
}

TEST_F(ToolPreparation, AFullDiskIsRefusedBeforeDownloading) {
    package.requiredSpace = coordinator.installer().availableSpace() + 1'000'000'000'000'000;
    EXPECT_EQ(failureOf(package).kind(), ToolError::Kind::insufficientDiskSpace);
    EXPECT_EQ(downloads, 0);
}

// A stand-in tool that runs out of memory above 256-pixel tiles and notes every attempt.
class ToolTileSizes : public ::testing::Test {
protected:
    void SetUp() override {
        std::ofstream(script)
            << "#!/bin/sh\n"
               "echo \"$1\" >> attempts.txt\n"
               "if [ \"$1\" -gt 256 ]; then echo 'out of memory' >&2; exit 1; fi\n"
               "echo done\n";
        fs::permissions(script, fs::perms::owner_all);
        ToolInfo tool;
        tool.status = "installed";
        tool.executable = script.string();
        coordinator.state().replace(ToolStateData{"1", {{"upscaler", tool}}});
    }

    ProcessRunContext contextFor(int tileSize) {
        ++contextsMade;
        return ProcessRunContext{script, {std::to_string(tileSize)}, folder.path()};
    }

    UpscaleRecord upscale(std::vector<int> tileSizes, const std::string& model = "x4") {
        return executor.runWithTileSizes("upscaler", model, std::move(tileSizes),
                                         [this](int tileSize) { return contextFor(tileSize); });
    }

    std::string attempts() const { return readFile(folder.path() / "attempts.txt"); }

    lumivesper::testing::TemporaryFolder folder;
    fs::path script = folder.path() / "tool.sh";
    ToolCoordinator coordinator{folder.path() / "tools", folder.path() / "tools-state.json",
                                folder.path() / "tools.log"};
    ToolExecutor executor{coordinator.logger(), coordinator};
    int contextsMade = 0;
};

TEST_F(ToolTileSizes, FallsBackToSmallerTilesAndRemembersTheOneThatWorked) {
    const UpscaleRecord record = upscale({512, 256, 128});
    EXPECT_EQ(record.tileSize, 256);
    EXPECT_EQ(record.model, "x4");
    EXPECT_EQ(attempts(), "512\n256\n");
    EXPECT_EQ(ToolState(folder.path() / "tools-state.json").tool("upscaler")->lastSuccessfulUpscale,
              record);
}

TEST_F(ToolTileSizes, StartsWithTheRememberedSizeForTheSameModel) {
    upscale({512, 256, 128});
    upscale({512, 256, 128});
    EXPECT_EQ(attempts(), "512\n256\n256\n");
    upscale({512, 256, 128}, "x2");
    EXPECT_EQ(attempts(), "512\n256\n256\n512\n256\n");
}

TEST_F(ToolTileSizes, ListsEveryAttemptWhenAllFail) {
    try {
        upscale({1024, 512});
        FAIL() << "an upscale succeeded";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.kind(), ToolError::Kind::allTileSizesFailed);
        EXPECT_EQ(error.description(),
                  "Upscaling failed with all tile sizes:\n"
                  "1024: Process failed with exit code 1 (tool.sh): out of memory\n"
                  "512: Process failed with exit code 1 (tool.sh): out of memory\n"
                  "\nTry reducing image resolution.");
    }
    EXPECT_FALSE(coordinator.state().tool("upscaler")->lastSuccessfulUpscale);
}

TEST_F(ToolTileSizes, AMissingProgramEndsAtOnce) {
    fs::remove(script);
    try {
        upscale({512, 256});
        FAIL() << "an upscale succeeded";
    } catch (const ProcessRunnerError& error) {
        EXPECT_EQ(error.kind(), ProcessRunnerError::Kind::missingExecutable);
    }
    EXPECT_EQ(contextsMade, 1);
}

TEST_F(ToolTileSizes, LogsEachRunOnOneLine) {
    upscale({512, 256});
    const std::string log = readFile(folder.path() / "tools.log");
    EXPECT_NE(log.find("Running " + script.string() + " 512 in "), std::string::npos) << log;
    EXPECT_NE(log.find("Failed: Process failed with exit code 1 (tool.sh): out of memory\n"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("Finished tool.sh"), std::string::npos) << log;
}

TEST(ToolLogging, WithoutAFileNothingIsWritten) {
    lumivesper::testing::TemporaryFolder folder;
    ToolLogger silent(std::nullopt);
    silent.log("nothing");
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
