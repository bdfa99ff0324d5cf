#include "tools/tool_records.h"

#include "tools/tool_error.h"

#include <ctime>
#include <nlohmann/json.hpp>

namespace lumivesper::tools {

namespace {

using nlohmann::json;

void requireObject(const json& value, const char* what) {
    if (!value.is_object())
        throw ToolError::invalidState(std::string("expected an object for ") + what);
}

template <typename T> T decoded(const json& value, const char* key) {
    try {
        return value.get<T>();
    } catch (const json::exception&) {
        throw ToolError::invalidState(std::string("wrong type for key \"") + key + "\"");
    }
}

template <typename T> T requiredValue(const json& object, const char* key) {
    auto found = object.find(key);
    if (found == object.end() || found->is_null())
        throw ToolError::invalidState(std::string("missing key \"") + key + "\"");
    return decoded<T>(*found, key);
}

template <typename T> std::optional<T> optionalValue(const json& object, const char* key) {
    auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return std::nullopt;
    return decoded<T>(*found, key);
}

template <typename T>
void putOptional(json& object, const char* key, const std::optional<T>& value) {
    if (value)
        object[key] = *value;
}

} // namespace

std::string isoTimestamp(std::chrono::system_clock::time_point time) {
    const std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

void to_json(json& object, const UpscaleRecord& record) {
    object = json{
        {"timestamp", record.timestamp}, {"tileSize", record.tileSize}, {"model", record.model}};
}

void from_json(const json& object, UpscaleRecord& record) {
    requireObject(object, "an upscale record");
    record.timestamp = requiredValue<std::string>(object, "timestamp");
    // A tile size is a whole number of pixels; 512.5 is a damaged file, not 512.
    auto tileSize = object.find("tileSize");
    if (tileSize != object.end() && !tileSize->is_null() && !tileSize->is_number_integer())
        throw ToolError::invalidState("wrong type for key \"tileSize\"");
    record.tileSize = requiredValue<int>(object, "tileSize");
    record.model = requiredValue<std::string>(object, "model");
}

void to_json(json& object, const ToolInfo& info) {
    object = json{{"status", info.status}};
    putOptional(object, "executable", info.executable);
    putOptional(object, "modelsDir", info.modelsDir);
    putOptional(object, "installedAt", info.installedAt);
    putOptional(object, "verifiedAt", info.verifiedAt);
    putOptional(object, "version", info.version);
    putOptional(object, "availableModels", info.availableModels);
    putOptional(object, "lastSuccessfulUpscale", info.lastSuccessfulUpscale);
}

void from_json(const json& object, ToolInfo& info) {
    requireObject(object, "a tool");
    info.status = requiredValue<std::string>(object, "status");
    info.executable = optionalValue<std::string>(object, "executable");
    info.modelsDir = optionalValue<std::string>(object, "modelsDir");
    info.installedAt = optionalValue<std::string>(object, "installedAt");
    info.verifiedAt = optionalValue<std::string>(object, "verifiedAt");
    info.version = optionalValue<std::string>(object, "version");
    info.availableModels = optionalValue<std::vector<std::string>>(object, "availableModels");
    info.lastSuccessfulUpscale = optionalValue<UpscaleRecord>(object, "lastSuccessfulUpscale");
}

void to_json(json& object, const ToolStateData& data) {
    json tools = json::object();
    for (const auto& [name, info] : data.tools)
        tools[name] = info;
    object = json{{"version", data.version}, {"tools", std::move(tools)}};
}

void from_json(const json& object, ToolStateData& data) {
    requireObject(object, "the tool state");
    data.version = requiredValue<std::string>(object, "version");
    auto tools = object.find("tools");
    if (tools == object.end() || tools->is_null())
        throw ToolError::invalidState("missing key \"tools\"");
    requireObject(*tools, "\"tools\"");
    data.tools.clear();
    for (const auto& [name, info] : tools->items()) {
        try {
            data.tools.emplace(name, info.get<ToolInfo>());
        } catch (const ToolError& error) {
            throw ToolError::invalidState("tool \"" + name + "\": " + error.text());
        }
    }
}

} // namespace lumivesper::tools
