#include "../support/temporary_folder.h"
#include "platform/cancellation.h"
#include "tool_fixture.h"
#include "tools/process_runner.h"
#include "tools/tool_coordinator.h"
#include "tools/tool_error.h"
#include "tools/tool_executor.h"

#include <csignal>
#include <future>
#include <gtest/gtest.h>
#include <regex>
#include <thread>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using testing::failureOf;
using testing::readFile;

ProcessRunContext shell(const std::string& script, std::optional<fs::path> directory = {}) {
    return ProcessRunContext{"/bin/sh", {"-c", script}, std::move(directory)};
}

ProcessRunnerError failedRun(const ProcessRunContext& context) {
    return failureOf<ProcessRunnerError>([&] { runProcess(context); });
}

bool waitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (; !condition(); std::this_thread::yield())
        if (std::chrono::steady_clock::now() > deadline)
            return false;
    return true;
}

class ProcessRuns : public ::testing::Test {
protected:
    lumivesper::testing::TemporaryFolder folder;
};

TEST_F(ProcessRuns, PassesArgumentsAndDirectoryAndCapturesBothStreamsPastAPipesSize) {
    const ProcessResult result = runProcess(ProcessRunContext{
        "/bin/sh",
        {"-c",
         "cat; pwd -P; printf '%s|' \"$@\"; head -c 300000 /dev/zero | tr '\\0' a; "
         "head -c 200000 /dev/zero | tr '\\0' e >&2",
         "sh", "a b", "", "*"},
        folder.path()});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_FALSE(result.terminationSignal);
    EXPECT_EQ(result.standardOutput,
              fs::canonical(folder.path()).string() + "\na b||*|" + std::string(300000, 'a'));
    EXPECT_EQ(result.standardError, std::string(200000, 'e'));

    EXPECT_THROW(runProcess(shell("true", folder.path() / "absent")), std::system_error);
}

TEST_F(ProcessRuns, ANonZeroExitIsDescribedByTheTrimmedErrorOrElseTheOutput) {
    const std::pair<std::string, std::string> cases[] = {
        {"exit 3", "Process failed with exit code 3 (sh)"},
        {"echo ignored; printf '  boom\\n' >&2; exit 3",
         "Process failed with exit code 3 (sh): boom"},
        {"printf 'x\\n'; exit 3", "Process failed with exit code 3 (sh): x"},
        {"printf ' \\n'; printf '\\t\\r\\n' >&2; exit 3", "Process failed with exit code 3 (sh)"},
        {"printf '\\n  two\\nlines \\n'; printf '   ' >&2; exit 3",
         "Process failed with exit code 3 (sh): two\nlines"},
    };
    for (const auto& [script, description] : cases) {
        const auto error = failedRun(shell(script));
        EXPECT_EQ(error.kind(), ProcessRunnerError::Kind::nonZeroExit);
        EXPECT_EQ(error.description(), description);
        ASSERT_TRUE(error.result() && error.context());
        EXPECT_EQ(error.result()->exitCode, 3);
        EXPECT_EQ(error.context()->arguments.back(), script);
    }
    const auto killed = failedRun(shell("kill -9 $$"));
    EXPECT_EQ(killed.result()->terminationSignal, SIGKILL);
    EXPECT_EQ(killed.result()->exitCode, 128 + SIGKILL);
}

TEST_F(ProcessRuns, AMissingOrUnrunnableProgramIsAMissingExecutable) {
    const fs::path notExecutable = folder.path() / "data.txt";
    std::ofstream(notExecutable) << "#!/bin/sh\n";
    for (const fs::path& program : {folder.path() / "no-such-tool", notExecutable, folder.path()}) {
        const auto error = failedRun(ProcessRunContext{program, {}, {}});
        EXPECT_EQ(error.kind(), ProcessRunnerError::Kind::missingExecutable);
        EXPECT_EQ(error.description(), "Executable not found: " + program.string());
    }
}

TEST_F(ProcessRuns, ReturnsWhenTheProgramEndsEvenIfItsChildKeepsTheStreams) {
    // The background child holds both pipes open for a minute; the run must end with its parent.
    auto run = std::async(std::launch::async, [&] {
        return runProcess(shell("sleep 60 & echo $! > straggler; echo $!", folder.path()));
    });
    const bool returned = run.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    ASSERT_TRUE(waitFor([&] { return !readFile(folder.path() / "straggler").empty(); }));
    const std::string pid = readFile(folder.path() / "straggler");
    ::kill(std::stoi(pid), SIGKILL); // also ends a run that is still waiting
    EXPECT_TRUE(returned) << "the run waited for the program's child";
    const ProcessResult result = run.get();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, pid);
}

TEST_F(ProcessRuns, AStopKillsTheProgramAndWhatItStartedOrRunsNothing) {
    std::stop_source stop;
    auto run = std::async(std::launch::async, [&] {
        runProcess(shell("sleep 60 & echo $! > pid; mv pid started; wait", folder.path()),
                   stop.get_token());
    });
    ASSERT_TRUE(waitFor([&] { return fs::exists(folder.path() / "started"); }));
    const std::string child = std::to_string(std::stoi(readFile(folder.path() / "started")));

    stop.request_stop();
    ASSERT_EQ(run.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_THROW(run.get(), platform::CancellationError);
    // Gone, or a zombie waiting for its new parent: either way no longer running.
    EXPECT_TRUE(waitFor([&] {
        const std::string stat = readFile("/proc/" + child + "/stat");
        const auto state = stat.rfind(')') + 2;
        return stat.empty() || (state < stat.size() && stat[state] == 'Z');
    }));
    EXPECT_THROW(runProcess(shell("touch ran", folder.path()), stop.get_token()),
                 platform::CancellationError);
    EXPECT_FALSE(fs::exists(folder.path() / "ran"));
}

// A stand-in tool that runs out of memory above 256-pixel tiles and notes every attempt.
class ToolTileSizes : public ProcessRuns {
protected:
    void SetUp() override {
        std::ofstream(script)
            << "#!/bin/sh\necho \"$1\" >> attempts.txt\n"
               "if [ \"$1\" -gt 256 ]; then echo 'out of memory' >&2; exit 1; fi\n";
        fs::permissions(script, fs::perms::owner_all);
        ToolInfo tool;
        tool.status = "installed";
        tool.executable = script.string();
        coordinator.state().replace(ToolStateData{"1", {{"upscaler", tool}}});
    }

    UpscaleRecord upscale(std::vector<int> tileSizes, const std::string& model = "x4") {
        return executor.runWithTileSizes("upscaler", model, std::move(tileSizes), [&](int size) {
            ++contextsMade;
            return ProcessRunContext{script, {std::to_string(size)}, folder.path()};
        });
    }

    fs::path script = folder.path() / "tool.sh";
    ToolCoordinator coordinator{folder.path() / "tools", folder.path() / "tools-state.json",
                                folder.path() / "tools.log"};
    ToolExecutor executor{coordinator.logger(), coordinator};
    int contextsMade = 0;
};

TEST_F(ToolTileSizes, FallsBackToSmallerTilesStartsWithTheOneThatWorkedAndLogsEachRun) {
    coordinator.logger().log("first\nsecond");
    const UpscaleRecord record = upscale({512, 256, 128});
    EXPECT_EQ(record.tileSize, 256);
    EXPECT_EQ(record.model, "x4");
    EXPECT_EQ(ToolState(folder.path() / "tools-state.json").tool("upscaler")->lastSuccessfulUpscale,
              record);
    upscale({512, 256, 128});
    upscale({512, 256, 128}, "x2");
    EXPECT_EQ(readFile(folder.path() / "attempts.txt"), "512\n256\n256\n512\n256\n");

    const std::string log = readFile(folder.path() / "tools.log");
    const std::string time = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ )"; // one line per message
    EXPECT_TRUE(std::regex_search(log, std::regex("^" + time + "first \\| second\n" + time +
                                                  "Running " + script.string() + " 512 in ")))
        << log;
    EXPECT_NE(log.find("Failed: Process failed with exit code 1 (tool.sh): out of memory\n"),
              std::string::npos);
    EXPECT_NE(log.find("Finished tool.sh"), std::string::npos);
}

TEST_F(ToolTileSizes, ListsEveryAttemptWhenAllFailAndEndsAtOnceWithoutAProgram) {
    const ToolError error = failureOf<ToolError>([&] { upscale({1024, 512}); });
    EXPECT_EQ(error.kind(), ToolError::Kind::allTileSizesFailed);
    EXPECT_EQ(error.description(),
              "Upscaling failed with all tile sizes:\n"
              "1024: Process failed with exit code 1 (tool.sh): out of memory\n"
              "512: Process failed with exit code 1 (tool.sh): out of memory\n"
              "\nTry reducing image resolution.");
    EXPECT_EQ(error.recoverySuggestion(),
              "Your GPU may not have enough memory. Try exporting at a lower resolution.");
    EXPECT_FALSE(coordinator.state().tool("upscaler")->lastSuccessfulUpscale);

    fs::remove(script);
    contextsMade = 0;
    const auto missing = failureOf<ProcessRunnerError>([&] { upscale({512, 256}); });
    EXPECT_EQ(missing.kind(), ProcessRunnerError::Kind::missingExecutable);
    EXPECT_EQ(contextsMade, 1);
}

} // namespace
} // namespace lumivesper::tools
