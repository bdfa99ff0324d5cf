#include "tools/process_runner_error.h"
#include "tools/tool_error.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace lumivesper::tools {
namespace {

struct ErrorText {
    const char* name;
    ToolError error;
    const char* description;
    const char* recoverySuggestion;
};

class ToolErrorText : public ::testing::TestWithParam<ErrorText> {};

TEST_P(ToolErrorText, DescribesAndSuggests) {
    const auto& expected = GetParam();
    EXPECT_EQ(expected.error.description(), expected.description);
    EXPECT_STREQ(expected.error.what(), expected.description);
    EXPECT_EQ(expected.error.recoverySuggestion(), expected.recoverySuggestion);
}

INSTANTIATE_TEST_SUITE_P(
    EveryCase, ToolErrorText,
    ::testing::Values(
        ErrorText{"DiskSpaceTruncatesDecimalMegabytes",
                  ToolError::insufficientDiskSpace(60'000'000, 9'999'999),
                  "Not enough disk space. Need 60MB, but only 9MB available.",
                  "Free up disk space and try again."},
        ErrorText{"DiskSpaceOfATypicalDownload", ToolError::insufficientDiskSpace(52'428'800, 0),
                  "Not enough disk space. Need 52MB, but only 0MB available.",
                  "Free up disk space and try again."},
        ErrorText{"DownloadWithStatus", ToolError::downloadFailed(404),
                  "Download failed (HTTP 404). Check your internet connection.",
                  "Check your internet connection and retry."},
        ErrorText{"DownloadWithoutStatus",
                  ToolError::downloadFailed(std::nullopt,
                                            std::make_exception_ptr(std::runtime_error("x"))),
                  "Download failed. Check your internet connection.",
                  "Check your internet connection and retry."},
        ErrorText{"Extraction", ToolError::extractionFailed(nullptr),
                  "Failed to extract AI tools. Archive may be corrupted.",
                  "Delete the installation folder and try again."},
        ErrorText{"Verification", ToolError::verificationFailed({"first", "second"}),
                  "Installation verification failed:\nfirst\nsecond",
                  "Delete the installation folder and try again."},
        ErrorText{"Models", ToolError::modelsUnavailable({"x2", "x4"}),
                  "Missing required AI models: x2, x4",
                  "Required model files are missing. Try reinstalling."},
        ErrorText{"AllTileSizes", ToolError::allTileSizesFailed("512: out of memory"),
                  "Upscaling failed with all tile sizes:\n512: out of memory\n\nTry reducing "
                  "image resolution.",
                  "Your GPU may not have enough memory. Try exporting at a lower resolution."},
        ErrorText{"ExecutableNotFound", ToolError::executableNotFound(),
                  "AI upscaler executable not found after installation.",
                  "Try reinstalling the AI tools."},
        ErrorText{"Network", ToolError::networkUnavailable(),
                  "No internet connection. AI upscaling requires a one-time download (~52MB).",
                  "Check your internet connection and retry."},
        ErrorText{"ToolsDirectory", ToolError::toolsDirectoryUnavailable(),
                  "Unable to access tools directory.", "Check application permissions."}),
    [](const auto& param) { return std::string(param.param.name); });

// The suggestion names the real folder, shortened the way the user knows it.
TEST(ToolErrorFolderSuggestion, NamesTheToolsFolderBelowHome) {
    const char* oldHome = std::getenv("HOME");
    const std::string savedHome = oldHome ? oldHome : "";
    ::setenv("HOME", "/home/ada", 1);
    ::setenv("XDG_DATA_HOME", "/home/ada/.local/share", 1);
    EXPECT_EQ(ToolError::invalidState("bad").description(), "Invalid tool state: bad");
    EXPECT_EQ(ToolError::invalidState("bad").recoverySuggestion(),
              "Try deleting ~/.local/share/Lumivesper AI/tools and reinstalling.");
    ::setenv("XDG_DATA_HOME", "/srv/data", 1);
    EXPECT_EQ(ToolError::installationFailed("disk gone").description(),
              "Installation failed: disk gone");
    EXPECT_EQ(ToolError::installationFailed("x").recoverySuggestion(),
              "Try deleting /srv/data/Lumivesper AI/tools and reinstalling.");
    ::unsetenv("XDG_DATA_HOME");
    if (oldHome)
        ::setenv("HOME", savedHome.c_str(), 1);
}

struct RunnerText {
    const char* name;
    std::string standardOutput;
    std::string standardError;
    const char* description;
};

class ProcessRunnerErrorText : public ::testing::TestWithParam<RunnerText> {};

TEST_P(ProcessRunnerErrorText, PrefersTrimmedErrorOverOutput) {
    const auto& expected = GetParam();
    const auto error = ProcessRunnerError::nonZeroExit(
        ProcessResult{3, expected.standardOutput, expected.standardError, std::nullopt},
        ProcessRunContext{"/usr/bin/tool", {"-v"}, std::nullopt});
    EXPECT_EQ(error.kind(), ProcessRunnerError::Kind::nonZeroExit);
    EXPECT_EQ(error.description(), expected.description);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ProcessRunnerErrorText,
    ::testing::Values(
        RunnerText{"Silent", "", "", "Process failed with exit code 3 (tool)"},
        RunnerText{"OnlyWhitespace", " \n", "\t\r\n", "Process failed with exit code 3 (tool)"},
        RunnerText{"ErrorTrimmed", "ignored", "  boom\n",
                   "Process failed with exit code 3 (tool): boom"},
        RunnerText{"OutputWhenErrorEmpty", "x", "", "Process failed with exit code 3 (tool): x"},
        RunnerText{"OutputWhenErrorBlank", "\n  two\nlines \n", "   ",
                   "Process failed with exit code 3 (tool): two\nlines"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(ProcessRunnerErrorMissing, NamesThePath) {
    const auto error = ProcessRunnerError::missingExecutable("/opt/tool/bin/up");
    EXPECT_EQ(error.kind(), ProcessRunnerError::Kind::missingExecutable);
    EXPECT_EQ(error.description(), "Executable not found: /opt/tool/bin/up");
    EXPECT_EQ(error.path(), "/opt/tool/bin/up");
}

} // namespace
} // namespace lumivesper::tools
