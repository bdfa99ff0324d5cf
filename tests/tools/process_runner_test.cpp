#include "../support/temporary_folder.h"
#include "platform/cancellation.h"
#include "tool_fixture.h"
#include "tools/process_runner.h"

#include <csignal>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using testing::readFile;

ProcessRunContext shell(const std::string& script, std::optional<fs::path> directory = {}) {
    return ProcessRunContext{"/bin/sh", {"-c", script}, std::move(directory)};
}

ProcessRunnerError failedRun(const ProcessRunContext& context) {
    return testing::failureOf<ProcessRunnerError>([&] { runProcess(context); });
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

TEST_F(ProcessRuns, PassesArgumentsAndDirectoryAndCapturesBothStreams) {
    const ProcessResult result = runProcess(ProcessRunContext{
        "/bin/sh",
        {"-c", "cat; pwd -P; printf '%s|' \"$@\"; printf err >&2", "sh", "a b", "", "*"},
        folder.path()});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_FALSE(result.terminationSignal);
    EXPECT_EQ(result.standardOutput, fs::canonical(folder.path()).string() + "\na b||*|");
    EXPECT_EQ(result.standardError, "err");

    EXPECT_THROW(runProcess(shell("true", folder.path() / "absent")), std::system_error);
}

TEST_F(ProcessRuns, CapturesOutputLargerThanAPipe) {
    const ProcessResult result =
        runProcess(shell("head -c 300000 /dev/zero | tr '\\0' a; head -c 200000 /dev/zero >&2"));
    EXPECT_EQ(result.standardOutput, std::string(300000, 'a'));
    EXPECT_EQ(result.standardError.size(), 200000u);
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
}

TEST_F(ProcessRuns, ASignalIsAFailureWithTheShellsExitCode) {
    const auto error = failedRun(shell("kill -9 $$"));
    ASSERT_TRUE(error.result());
    EXPECT_EQ(error.result()->terminationSignal, SIGKILL);
    EXPECT_EQ(error.result()->exitCode, 128 + SIGKILL);
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
    const pid_t straggler = std::stoi(runProcess(shell("sleep 60 & echo $!")).standardOutput);
    EXPECT_GT(straggler, 0);
    ::kill(straggler, SIGKILL);
}

TEST_F(ProcessRuns, AStopKillsTheProgramAndWhatItStartedOrRunsNothing) {
    std::stop_source stop;
    auto run = std::async(std::launch::async, [&] {
        runProcess(
            shell("sleep 60 & echo $! > child.tmp; mv child.tmp started; wait", folder.path()),
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

} // namespace
} // namespace lumivesper::tools
