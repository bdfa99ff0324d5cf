#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>

namespace lumivesper::tools {

// Appends timestamped lines to the tool layer's log file; with no file, logging is off. Writing
// the log never fails the work being logged.
class ToolLogger {
public:
    explicit ToolLogger(std::optional<std::filesystem::path> logFile);

    const std::optional<std::filesystem::path>& logFile() const { return logFile_; }

    // One line "<ISO 8601 UTC time> <message>"; line breaks inside `message` are kept on the
    // same line as " | " so that each entry stays one line.
    void log(std::string_view message);

private:
    const std::optional<std::filesystem::path> logFile_;
    std::mutex mutex_;
};

} // namespace lumivesper::tools
