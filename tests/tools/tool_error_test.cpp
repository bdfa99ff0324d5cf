#include "tools/tool_error.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace lumivesper::tools {
namespace {

TEST(ToolErrorText, DescribesAndSuggestsEveryKind) {
    const std::string network = "Check your internet connection and retry.";
    const std::string reinstall = "Delete the installation folder and try again.";
    const struct {
        ToolError error;
        std::string description;
        std::string suggestion;
    } cases[] = {
        {ToolError::insufficientDiskSpace(60'000'000, 9'999'999),
         "Not enough disk space. Need 60MB, but only 9MB available.",
         "Free up disk space and try again."},
        {ToolError::downloadFailed(404),
         "Download failed (HTTP 404). Check your internet connection.", network},
        {ToolError::downloadFailed(std::nullopt),
         "Download failed. Check your internet connection.", network},
        {ToolError::networkUnavailable(),
         "No internet connection. AI upscaling requires a one-time download (~52MB).", network},
        {ToolError::extractionFailed(nullptr),
         "Failed to extract AI tools. Archive may be corrupted.", reinstall},
        {ToolError::verificationFailed({"first", "second"}),
         "Installation verification failed:\nfirst\nsecond", reinstall},
        {ToolError::modelsUnavailable({"x2", "x4"}), "Missing required AI models: x2, x4",
         "Required model files are missing. Try reinstalling."},
        {ToolError::allTileSizesFailed("512: out of memory"),
         "Upscaling failed with all tile sizes:\n512: out of memory\n\nTry reducing image "
         "resolution.",
         "Your GPU may not have enough memory. Try exporting at a lower resolution."},
        {ToolError::executableNotFound(), "AI upscaler executable not found after installation.",
         "Try reinstalling the AI tools."},
        {ToolError::toolsDirectoryUnavailable(), "Unable to access tools directory.",
         "Check application permissions."},
    };
    for (const auto& [error, description, suggestion] : cases) {
        EXPECT_EQ(error.description(), description);
        EXPECT_EQ(error.what(), description);
        EXPECT_EQ(error.recoverySuggestion(), suggestion) << description;
    }
}

// The suggestion names the real tools folder, with the home folder shortened to "~".
TEST(ToolErrorText, SuggestsDeletingTheToolsFolder) {
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
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
    ::setenv("HOME", home.c_str(), 1);
}

} // namespace
} // namespace lumivesper::tools
