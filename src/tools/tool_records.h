#pragma once

#include <chrono>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::tools {

// The last run of a tool that worked, so the next run can start from the tile size that fitted.
struct UpscaleRecord {
    std::string timestamp;
    int tileSize = 0;
    std::string model;

    bool operator==(const UpscaleRecord&) const = default;
};

// One installed (or known) tool.
struct ToolInfo {
    std::string status;
    std::optional<std::string> executable;
    std::optional<std::string> modelsDir;
    std::optional<std::string> installedAt;
    std::optional<std::string> verifiedAt;
    std::optional<std::string> version;
    std::optional<std::vector<std::string>> availableModels;
    std::optional<UpscaleRecord> lastSuccessfulUpscale;

    bool operator==(const ToolInfo&) const = default;
};

// The whole content of the state file.
struct ToolStateData {
    std::string version;
    std::map<std::string, ToolInfo> tools;

    bool operator==(const ToolStateData&) const = default;
};

inline constexpr const char* toolStateFormatVersion = "1";
inline constexpr const char* toolStatusInstalled = "installed";

// "2026-11-22T23:52:18Z": times in the state file and the log are ISO 8601 in UTC.
std::string isoTimestamp(std::chrono::system_clock::time_point time);

// nlohmann-json hooks. Unknown keys are ignored, absent optionals are left out; a missing
// required key or a value of the wrong type throws ToolError::invalidState naming the key.
void to_json(nlohmann::json& json, const UpscaleRecord& record);
void from_json(const nlohmann::json& json, UpscaleRecord& record);
void to_json(nlohmann::json& json, const ToolInfo& info);
void from_json(const nlohmann::json& json, ToolInfo& info);
void to_json(nlohmann::json& json, const ToolStateData& data);
void from_json(const nlohmann::json& json, ToolStateData& data);

} // namespace lumivesper::tools
