#include "../support/temporary_folder.h"
#include "tools/tool_error.h"
#include "tools/tool_records.h"
#include "tools/tool_state.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

ToolInfo toolWithStatus(std::string status) {
    ToolInfo info;
    info.status = std::move(status);
    return info;
}

ToolInfo fullTool() {
    ToolInfo info;
    info.status = "installed";
    info.executable = "/data/tools/upscaler/bin/upscale";
    info.modelsDir = "/data/tools/upscaler/models";
    info.installedAt = "2026-01-02T03:04:05Z";
    info.verifiedAt = "2026-01-03T03:04:05Z";
    info.version = "0.2.0";
    info.availableModels = std::vector<std::string>{"x2", "x4"};
    info.lastSuccessfulUpscale = UpscaleRecord{"2026-01-04T00:00:00Z", 256, "x4"};
    return info;
}

class ToolRecordCoding : public ::testing::Test {};

TEST_F(ToolRecordCoding, RoundTripsEveryField) {
    ToolStateData state{"1", {{"upscaler", fullTool()}, {"bare", toolWithStatus("downloading")}}};
    const json encoded = state;
    EXPECT_EQ(encoded.at("tools").at("upscaler").at("lastSuccessfulUpscale").at("tileSize"), 256);
    EXPECT_EQ(encoded.get<ToolStateData>(), state);
}

TEST_F(ToolRecordCoding, LeavesAbsentOptionalsOut) {
    const json encoded = toolWithStatus("installed");
    EXPECT_EQ(encoded, json({{"status", "installed"}}));
}

TEST_F(ToolRecordCoding, IgnoresUnknownKeys) {
    const json text = json::parse(R"({
        "version": "1", "future": true,
        "tools": {"t": {"status": "installed", "colour": "blue",
            "lastSuccessfulUpscale": {"timestamp": "x", "tileSize": 128, "model": "m", "gpu": 1}}}
    })");
    const auto state = text.get<ToolStateData>();
    ASSERT_TRUE(state.tools.at("t").lastSuccessfulUpscale);
    EXPECT_EQ(state.tools.at("t").lastSuccessfulUpscale->tileSize, 128);
}

struct BadDocument {
    const char* name;
    const char* json;
    const char* mentions; // part of the reason the error gives
};

class ToolRecordStrictness : public ::testing::TestWithParam<BadDocument> {};

TEST_P(ToolRecordStrictness, RefusesAsInvalidState) {
    const auto& bad = GetParam();
    try {
        json::parse(bad.json).get<ToolStateData>();
        FAIL() << "decoded " << bad.json;
    } catch (const ToolError& error) {
        EXPECT_EQ(error.kind(), ToolError::Kind::invalidState);
        EXPECT_NE(error.description().find(bad.mentions), std::string::npos) << error.description();
        EXPECT_TRUE(error.description().starts_with("Invalid tool state: "));
    }
}

INSTANTIATE_TEST_SUITE_P(
    MissingOrWrong, ToolRecordStrictness,
    ::testing::Values(
        BadDocument{"NoVersion", R"({"tools": {}})", "\"version\""},
        BadDocument{"NoTools", R"({"version": "1"})", "\"tools\""},
        BadDocument{"ToolsNotObject", R"({"version": "1", "tools": []})", "\"tools\""},
        BadDocument{"NoStatus", R"({"version": "1", "tools": {"t": {}}})", "\"status\""},
        BadDocument{"NumberAsString",
                    R"({"version": "1", "tools": {"t": {"status": "x", "executable": 3}}})",
                    "\"executable\""},
        BadDocument{"RecordWithoutModel",
                    R"({"version":"1","tools":{"t":{"status":"x","lastSuccessfulUpscale":
                        {"timestamp":"x","tileSize":64}}}})",
                    "\"model\""},
        BadDocument{"FractionalTileSize",
                    R"({"version":"1","tools":{"t":{"status":"x","lastSuccessfulUpscale":
                        {"timestamp":"x","tileSize":64.5,"model":"m"}}}})",
                    "\"tileSize\""},
        BadDocument{"ModelListOfNumbers",
                    R"({"version":"1","tools":{"t":{"status":"x","availableModels":[1]}}})",
                    "\"availableModels\""}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(IsoTimestamp, WritesUtcWithSeconds) {
    const auto time = std::chrono::sys_days{std::chrono::year{2026} / 3 / 4} +
                      std::chrono::hours{5} + std::chrono::minutes{6} +
                      std::chrono::milliseconds{7890};
    EXPECT_EQ(isoTimestamp(time), "2026-03-04T05:06:07Z");
}

class ToolStateFile : public ::testing::Test {
protected:
    lumivesper::testing::TemporaryFolder folder;
    fs::path file = folder.path() / "tools-state.json";
};

TEST_F(ToolStateFile, StartsEmptyWithoutAFileAndWritesNothingUntilChanged) {
    ToolState state(file);
    EXPECT_TRUE(state.currentState().tools.empty());
    EXPECT_FALSE(state.tool("upscaler"));
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(ToolStateFile, ReplaceIsReadBackByANewOwner) {
    {
        ToolState state(file);
        state.replace(ToolStateData{"1", {{"upscaler", fullTool()}}});
    }
    ToolState reopened(file);
    EXPECT_EQ(reopened.tool("upscaler"), fullTool());
    // Nothing but the state file is left behind by the atomic write.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST_F(ToolStateFile, RefusesADamagedFileAndLeavesItAlone) {
    writeFile(file, "{\"version\": \"1\", \"tools\": ");
    try {
        ToolState state(file);
        FAIL() << "accepted a damaged file";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.kind(), ToolError::Kind::invalidState);
    }
    EXPECT_EQ(readFile(file), "{\"version\": \"1\", \"tools\": ");
}

TEST_F(ToolStateFile, AFailedChangeLeavesMemoryAndFileAsTheyWere) {
    ToolState state(file);
    state.replace(ToolStateData{"1", {{"kept", toolWithStatus("installed")}}});
    const std::string before = readFile(file);

    EXPECT_THROW(state.update([](ToolStateData& data) {
        data.tools.clear();
        throw std::runtime_error("changed my mind");
    }),
                 std::runtime_error);
    EXPECT_TRUE(state.tool("kept"));
    EXPECT_EQ(readFile(file), before);
}

TEST_F(ToolStateFile, AnUnwritablePlaceKeepsTheOldStateInMemory) {
    writeFile(folder.path() / "blocker", "a file where a folder should be");
    ToolState state(folder.path() / "blocker" / "state.json");
    try {
        state.replace(ToolStateData{"1", {{"t", toolWithStatus("installed")}}});
        FAIL() << "wrote below a file";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.kind(), ToolError::Kind::toolsDirectoryUnavailable);
    }
    EXPECT_TRUE(state.currentState().tools.empty());
}

} // namespace
} // namespace lumivesper::tools
