#include "../support/temporary_folder.h"
#include "platform/cancellation.h"
#include "tools/process_runner.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;

ProcessRunContext shell(const std::string& script,
                        std::optional<fs::path> workingDirectory = std::nullopt) {
    return ProcessRunContext{"/bin/sh", {"-c", script}, std::move(workingDirectory)};
}

ProcessRunnerError failureOf(const ProcessRunContext& context) {
    try {
        runProcess(context);
    } catch (const ProcessRunnerError& error) {
        return error;
    }
    throw std::runtime_error("the process succeeded");
}

bool waitFor(const std::function<bool()>& condition,
             std::chrono::seconds timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

// Gone, or a zombie waiting for its new parent: either way no longer running.
bool hasEnded(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    if (!stat)
        return true;
    std::string line;
    std::getline(stat, line);
    const auto closing = line.rfind(')');
    return closing != std::string::npos && closing + 2 < line.size() && line[closing + 2] == 'Z';
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ProcessRunnerOutcome : public ::testing::Test {
protected:
    lumivesper::testing::TemporaryFolder folder;
};

TEST_F(ProcessRunnerOutcome, CapturesBothStreamsOfASuccess) {
    const ProcessResult result = runProcess(shell("printf 'out'; printf 'err' >&2"));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "out");
    EXPECT_EQ(result.standardError, "err");
    EXPECT_FALSE(result.terminationSignal);
}

TEST_F(ProcessRunnerOutcome, CapturesOutputLargerThanAPipe) {
    const ProcessResult result =
        runProcess(shell("head -c 300000 /dev/zero | tr '\\0' a; head -c 200000 /dev/zero >&2"));
    EXPECT_EQ(result.standardOutput, std::string(300000, 'a'));
    EXPECT_EQ(result.standardError.size(), 200000u);
}

TEST_F(ProcessRunnerOutcome, PassesArgumentsUntouched) {
    const ProcessResult result = runProcess(
        ProcessRunContext{"/bin/sh", {"-c", "printf '%s|' \"$@\"", "sh", "a b", "", "*"}, {}});
    EXPECT_EQ(result.standardOutput, "a b||*|");
}

TEST_F(ProcessRunnerOutcome, RunsInTheWorkingDirectory) {
    const ProcessResult result = runProcess(shell("pwd -P", folder.path()));
    EXPECT_EQ(result.standardOutput, fs::canonical(folder.path()).string() + "\n");
}

TEST_F(ProcessRunnerOutcome, AMissingWorkingDirectoryIsRefusedBeforeStarting) {
    EXPECT_THROW(runProcess(shell("touch ran", folder.path() / "absent")), std::system_error);
}

TEST_F(ProcessRunnerOutcome, StandardInputIsEmpty) {
    EXPECT_EQ(runProcess(shell("cat; echo end")).standardOutput, "end\n");
}

TEST_F(ProcessRunnerOutcome, ExitCodeWithoutOutput) {
    const auto error = failureOf(shell("exit 3"));
    EXPECT_EQ(error.kind(), ProcessRunnerError::Kind::nonZeroExit);
    EXPECT_EQ(error.description(), "Process failed with exit code 3 (sh)");
    ASSERT_TRUE(error.result());
    EXPECT_EQ(error.result()->exitCode, 3);
    ASSERT_TRUE(error.context());
    EXPECT_EQ(error.context()->arguments.back(), "exit 3");
}

TEST_F(ProcessRunnerOutcome, ExitCodeWithErrorText) {
    const auto error = failureOf(shell("echo ignored; printf '  boom\\n' >&2; exit 3"));
    EXPECT_EQ(error.description(), "Process failed with exit code 3 (sh): boom");
    EXPECT_EQ(error.result()->standardError, "  boom\n");
}

TEST_F(ProcessRunnerOutcome, ExitCodeWithOutputOnly) {
    const auto error = failureOf(shell("printf 'x\\n'; exit 3"));
    EXPECT_EQ(error.description(), "Process failed with exit code 3 (sh): x");
}

TEST_F(ProcessRunnerOutcome, ASignalIsAFailureWithTheShellsExitCode) {
    const auto error = failureOf(shell("kill -9 $$"));
    ASSERT_TRUE(error.result());
    EXPECT_EQ(error.result()->terminationSignal, SIGKILL);
    EXPECT_EQ(error.result()->exitCode, 128 + SIGKILL);
}

TEST_F(ProcessRunnerOutcome, AMissingExecutable) {
    const fs::path missing = folder.path() / "no-such-tool";
    const auto error = failureOf(ProcessRunContext{missing, {}, {}});
    EXPECT_EQ(error.kind(), ProcessRunnerError::Kind::missingExecutable);
    EXPECT_EQ(error.description(), "Executable not found: " + missing.string());
}

TEST_F(ProcessRunnerOutcome, AFileThatMayNotBeRunIsMissingToo) {
    const fs::path notExecutable = folder.path() / "data.txt";
    std::ofstream(notExecutable) << "#!/bin/sh\n";
    EXPECT_EQ(failureOf(ProcessRunContext{notExecutable, {}, {}}).kind(),
              ProcessRunnerError::Kind::missingExecutable);
    EXPECT_EQ(failureOf(ProcessRunContext{folder.path(), {}, {}}).kind(),
              ProcessRunnerError::Kind::missingExecutable);
}

TEST_F(ProcessRunnerOutcome, ReturnsWhenTheProgramEndsEvenIfItsChildKeepsTheStreams) {
    // The background sleep inherits standard output and outlives the shell.
    const ProcessResult result = runProcess(shell("sleep 60 & echo $!"));
    const pid_t straggler = std::stoi(result.standardOutput);
    EXPECT_GT(straggler, 0);
    ::kill(straggler, SIGKILL);
}

class ProcessRunnerCancellation : public ::testing::Test {
protected:
    lumivesper::testing::TemporaryFolder folder;
};

TEST_F(ProcessRunnerCancellation, AStopBeforeStartingRunsNothing) {
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(runProcess(shell("touch ran", folder.path()), stop.get_token()),
                 platform::CancellationError);
    EXPECT_FALSE(fs::exists(folder.path() / "ran"));
}

TEST_F(ProcessRunnerCancellation, AStopKillsTheProgramAndWhatItStarted) {
    std::stop_source stop;
    const fs::path started = folder.path() / "started";
    auto run = std::async(std::launch::async, [&] {
        runProcess(
            shell("sleep 60 & echo $! > child.tmp; mv child.tmp started; wait", folder.path()),
            stop.get_token());
    });
    ASSERT_TRUE(waitFor([&] { return fs::exists(started); }));
    const pid_t child = std::stoi(readFile(started));

    stop.request_stop();
    ASSERT_EQ(run.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_THROW(run.get(), platform::CancellationError);
    EXPECT_TRUE(waitFor([&] { return hasEnded(child); }));
}

} // namespace
} // namespace lumivesper::tools
