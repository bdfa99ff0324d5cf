#include "../support/temporary_folder.h"
#include "tool_fixture.h"
#include "tools/tool_error.h"
#include "tools/tool_state.h"

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
    const ToolStateData state{"1",
                              {{"upscaler", fullTool}, {"bare", testing::toolInfo("downloading")}}};
    const json encoded = state;
    EXPECT_EQ(encoded.at("tools").at("upscaler").at("lastSuccessfulUpscale").at("tileSize"), 256);
    EXPECT_EQ(encoded.at("tools").at("bare"), json({{"status", "downloading"}}));
    EXPECT_EQ(encoded.get<ToolStateData>(), state);

    const auto decoded = json::parse(R"({"version": "1", "future": true, "tools": {"t":
        {"status": "installed", "colour": "blue", "lastSuccessfulUpscale":
            {"timestamp": "x", "tileSize": 128, "model": "m", "gpu": 1}}}})")
                             .get<ToolStateData>();
    EXPECT_EQ(decoded.tools.at("t").lastSuccessfulUpscale, (UpscaleRecord{"x", 128, "m"}));
}

TEST(ToolRecordCoding, RefusesAMissingRequiredKeyOrAWrongTypeNamingTheKey) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"tools": {}})", "\"version\""},
        {R"({"version": "1"})", "\"tools\""},
        {R"({"version": "1", "tools": []})", "\"tools\""},
        {R"({"version": "1", "tools": {"t": {}}})", "\"status\""},
        {R"({"version": "1", "tools": {"t": {"status": "x", "executable": 3}}})", "\"executable\""},
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

TEST(ToolRecordCoding, TimestampsAreUtcToTheSecond) {
    using namespace std::chrono;
    const auto time = sys_days{year{2026} / 3 / 4} + hours{5} + minutes{6} + milliseconds{7890};
    EXPECT_EQ(isoTimestamp(time), "2026-03-04T05:06:07Z");
}

class ToolStateFile : public ::testing::Test {
protected:
    lumivesper::testing::TemporaryFolder folder;
    fs::path file = folder.path() / "tools-state.json";
};

TEST_F(ToolStateFile, StartsEmptyAndIsReadBackByANewOwner) {
    {
        ToolState state(file);
        EXPECT_TRUE(state.currentState().tools.empty());
        EXPECT_FALSE(fs::exists(file)) << "nothing is written until something changes";
        state.replace(ToolStateData{"1", {{"upscaler", fullTool}}});
    }
    EXPECT_EQ(ToolState(file).tool("upscaler"), fullTool);
    // The atomic write leaves nothing but the state file behind.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST_F(ToolStateFile, RefusesADamagedFileAndLeavesItAlone) {
    const std::string damaged = "{\"version\": \"1\", \"tools\": ";
    std::ofstream(file) << damaged;
    EXPECT_EQ(failureOf<ToolError>([&] { ToolState state(file); }).kind(),
              ToolError::Kind::invalidState);
    EXPECT_EQ(readFile(file), damaged);
}

TEST_F(ToolStateFile, AFailedChangeLeavesMemoryAndFileAsTheyWere) {
    ToolState state(file);
    state.replace(ToolStateData{"1", {{"kept", testing::toolInfo("installed")}}});
    const std::string before = readFile(file);
    EXPECT_THROW(state.update([](ToolStateData& data) {
        data.tools.clear();
        throw std::runtime_error("changed my mind");
    }),
                 std::runtime_error);
    EXPECT_TRUE(state.tool("kept"));
    EXPECT_EQ(readFile(file), before);

    std::ofstream(folder.path() / "blocker") << "a file where a folder should be";
    ToolState unwritable(folder.path() / "blocker" / "state.json");
    EXPECT_EQ(failureOf<ToolError>([&] {
                  unwritable.replace(ToolStateData{"1", {{"t", testing::toolInfo("installed")}}});
              }).kind(),
              ToolError::Kind::toolsDirectoryUnavailable);
    EXPECT_TRUE(unwritable.currentState().tools.empty());
}

} // namespace
} // namespace lumivesper::tools
