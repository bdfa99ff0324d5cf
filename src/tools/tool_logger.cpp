#include "tools/tool_logger.h"

#include "tools/tool_records.h"

#include <fstream>
#include <utility>

namespace lumivesper::tools {

ToolLogger::ToolLogger(std::optional<std::filesystem::path> logFile)
    : logFile_(std::move(logFile)) {}

void ToolLogger::log(std::string_view message) {
    if (!logFile_)
        return;
    std::string line = isoTimestamp(std::chrono::system_clock::now()) + " ";
    for (char character : message) {
        if (character == '\n')
            line += " | ";
        else if (character != '\r')
            line += character;
    }
    line += '\n';

    std::lock_guard lock(mutex_);
    std::error_code ignored;
    std::filesystem::create_directories(logFile_->parent_path(), ignored);
    std::ofstream out(*logFile_, std::ios::binary | std::ios::app);
    out << line;
}

} // namespace lumivesper::tools
