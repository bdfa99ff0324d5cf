#include "../support/temporary_folder.h"
#include "tool_fixture.h"
#include "tools/tool_error.h"
#include "tools/tool_state.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::failureOf;
using testing::readFile;

const ToolInfo fullTool{.status = "installed",
                        .executable = "/data/tools/upscaler/bin/upscale",
                        .modelsDir = "/data/tools/upscaler/models",
                        .installedAt = "2026-01-02T03:04:05Z",
                        .verifiedAt = "2026-01-03T03:04:05Z",
                        .version = "0.2.0",
                        .availableModels = std::vector<std::string>{"x2", "x4"},
                        .lastSuccessfulUpscale = UpscaleRecord{"2026-01-04T00:00:00Z", 256, "x4"}};

TEST(ToolRecordCoding, RoundTripsLeavingAbsentOptionalsOutAndIgnoringUnknownKeys) {
    ToolInfo bare;
    bare.status = "downloading";
    const ToolStateData state{"1", {{"upscaler", fullTool}, {"bare", bare}}};
    const json encoded = state;
    EXPECT_EQ(encoded.at("tools").at("upscaler").at("lastSuccessfulUpscale").at("tileSize"), 256);
    EXPECT_EQ(encoded.at("tools").at("bare"), json({{"status", "downloading"}}));
    EXPECT_EQ(encoded.get<ToolStateData>(), state);

    const auto decoded = json::parse(R"({"version": "1", "future": true, "tools": {"t":
        {"status": "installed", "colour": "blue", "lastSuccessfulUpscale":
            {"timestamp": "x", "tileSize": 128, "model": "m", "gpu": 1}}}})")
                             .get<ToolStateData>();
    EXPECT_EQ(decoded.tools.at("t").lastSuccessfulUpscale, (UpscaleRecord{"x", 128, "m"}));
    // Times are written in UTC, to the second.
    EXPECT_EQ(isoTimestamp(std::chrono::sys_days{std::chrono::year{2026} / 3 / 4} +
                           std::chrono::milliseconds{18'367'890}),
              "2026-03-04T05:06:07Z");
}

TEST(ToolRecordCoding, RefusesAMissingRequiredKeyOrAWrongTypeNamingTheKey) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"tools": {}})", "\"version\""},
        {R"({"version": "1", "tools": []})", "\"tools\""},
        {R"({"version": "1", "tools": {"t": {}}})", "\"status\""},
        {R"({"version": "1", "tools": {"t": {"status": "x", "availableModels": [1]}}})",
         "\"availableModels\""},
        {R"({"version": "1", "tools": {"t": {"status": "x", "lastSuccessfulUpscale":
            {"timestamp": "x", "tileSize": 64}}}})",
         "\"model\""},
        {R"({"version": "1", "tools": {"t": {"status": "x", "lastSuccessfulUpscale":
            {"timestamp": "x", "tileSize": 64.5, "model": "m"}}}})",
         "\"tileSize\""},
    };
    for (const auto& [text, key] : cases) {
        const auto error = failureOf<ToolError>([&] { json::parse(text).get<ToolStateData>(); });
        EXPECT_EQ(error.kind(), ToolError::Kind::invalidState);
        EXPECT_TRUE(error.description().starts_with("Invalid tool state: "));
        EXPECT_NE(error.description().find(key), std::string::npos) << error.description();
    }
}

TEST(ToolStateFile, StartsEmptyIsReadBackByANewOwnerAndSurvivesFailedChanges) {
    lumivesper::testing::TemporaryFolder folder;
    const fs::path file = folder.path() / "tools-state.json";
    {
        ToolState state(file);
        EXPECT_TRUE(state.currentState().tools.empty());
        EXPECT_FALSE(fs::exists(file)) << "nothing is written until something changes";
        state.replace(ToolStateData{"1", {{"upscaler", fullTool}}});
    }
    ToolState state(file);
    EXPECT_EQ(state.tool("upscaler"), fullTool);
    // The atomic write leaves nothing but the state file behind.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);

    const std::string before = readFile(file);
    EXPECT_THROW(state.update([](ToolStateData& data) {
        data.tools.clear();
        throw std::runtime_error("changed my mind");
    }),
                 std::runtime_error);
    EXPECT_TRUE(state.tool("upscaler"));
    EXPECT_EQ(readFile(file), before);

    std::ofstream(folder.path() / "blocker") << "a file where a folder should be";
    ToolState unwritable(folder.path() / "blocker" / "state.json");
    const auto refused = failureOf<ToolError>([&] { unwritable.replace(state.currentState()); });
    EXPECT_EQ(refused.kind(), ToolError::Kind::toolsDirectoryUnavailable);
    EXPECT_TRUE(unwritable.currentState().tools.empty());

    std::ofstream(file) << "{\"version\": \"1\", \"tools\": ";
    EXPECT_EQ(failureOf<ToolError>([&] { ToolState damaged(file); }).kind(),
              ToolError::Kind::invalidState);
    EXPECT_EQ(readFile(file), "{\"version\": \"1\", \"tools\": ") << "a damaged file is left alone";
}

TEST(ToolErrorText, DescribesAndSuggestsEveryKind) {
    const struct {
        ToolError error;
        std::string description;
        std::string suggestion;
    } cases[] = {
        {ToolError::insufficientDiskSpace(60'000'000, 9'999'999),
         "Not enough disk space. Need 60MB, but only 9MB available.",
         "Free up disk space and try again."},
        {ToolError::networkUnavailable(),
         "No internet connection. AI upscaling requires a one-time download (~52MB).",
         "Check your internet connection and retry."},
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

TEST(ToolErrorText, SuggestsDeletingTheToolsFolderShortenedBelowHome) {
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    ::setenv("HOME", "/home/ada", 1);
    ::setenv("XDG_DATA_HOME", "/home/ada/.local/share", 1);
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
