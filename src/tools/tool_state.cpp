#include "tools/tool_state.h"

#include "platform/atomic_file.h"
#include "tools/tool_error.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

namespace lumivesper::tools {

namespace {

ToolStateData emptyState() {
    return ToolStateData{toolStateFormatVersion, {}};
}

ToolStateData readState(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        return emptyState();
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ToolError::invalidState("cannot read " + file.string());
    std::stringstream text;
    text << in.rdbuf();
    nlohmann::json json;
    try {
        json = nlohmann::json::parse(text.str());
    } catch (const nlohmann::json::exception&) {
        throw ToolError::invalidState(file.filename().string() + " is not valid JSON");
    }
    return json.get<ToolStateData>();
}

} // namespace

ToolState::ToolState(std::filesystem::path stateFile)
    : stateFile_(std::move(stateFile)), current_(readState(stateFile_)) {}

ToolStateData ToolState::currentState() const {
    std::lock_guard lock(mutex_);
    return current_;
}

std::optional<ToolInfo> ToolState::tool(const std::string& name) const {
    std::lock_guard lock(mutex_);
    auto found = current_.tools.find(name);
    if (found == current_.tools.end())
        return std::nullopt;
    return found->second;
}

void ToolState::replace(ToolStateData state) {
    std::lock_guard lock(mutex_);
    write(state);
    current_ = std::move(state);
}

void ToolState::update(const std::function<void(ToolStateData&)>& change) {
    std::lock_guard lock(mutex_);
    ToolStateData changed = current_;
    change(changed);
    write(changed);
    current_ = std::move(changed);
}

void ToolState::write(const ToolStateData& state) const {
    const std::string text = nlohmann::json(state).dump(2) + "\n";
    std::error_code error;
    std::filesystem::create_directories(stateFile_.parent_path(), error);
    try {
        platform::writeFileAtomically(stateFile_, text, 0644);
    } catch (const platform::FileWriteError&) {
        throw ToolError::toolsDirectoryUnavailable();
    }
}

} // namespace lumivesper::tools
