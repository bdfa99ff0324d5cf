#include "tools/tool_state.h"

#include "platform/uuid.h"
#include "tools/tool_error.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>
#include <utility>

namespace lumivesper::tools {

namespace {

class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return descriptor_; }
    // Closes now so that a failing close is seen.
    bool close() {
        const int result = ::close(descriptor_);
        descriptor_ = -1;
        return result == 0;
    }

private:
    int descriptor_;
};

bool writeAll(int descriptor, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

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
    const std::filesystem::path temporary =
        stateFile_.parent_path() /
        ("." + stateFile_.filename().string() + "." + platform::Uuid::generate().toString());
    FileDescriptor file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (file.get() < 0)
        throw ToolError::toolsDirectoryUnavailable();
    // Synced before the rename so that a crash leaves either the old file or the new one whole.
    const bool written = writeAll(file.get(), text) && ::fsync(file.get()) == 0 && file.close();
    if (!written || ::rename(temporary.c_str(), stateFile_.c_str()) != 0) {
        std::filesystem::remove(temporary, error);
        throw ToolError::toolsDirectoryUnavailable();
    }
}

} // namespace lumivesper::tools
