#pragma once

#include "platform/log_sink.h"

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace lumivesper::platform {

// The application's log: lines with their local time in `folder`/lumivesper.log. When a line
// would take the file past `maximumBytes`, it becomes lumivesper.log.1, older files move up to
// .<keptFiles> (the oldest is dropped) and a new file starts, so the log never grows without
// bound. Lines that cannot be written are lost, silently: diagnostics must not stop the program.
class RotatingFileLogSink final : public LogSink {
public:
    static constexpr const char* fileName = "lumivesper.log";

    // $XDG_STATE_HOME/lumivesper, or ~/.local/state/lumivesper.
    static std::filesystem::path standardFolder();

    explicit RotatingFileLogSink(std::filesystem::path folder,
                                 std::uintmax_t maximumBytes = 1024 * 1024, int keptFiles = 3);

    void write(std::string_view line) override;

    std::filesystem::path file() const { return folder_ / fileName; }

private:
    void open();
    void rotate();

    std::filesystem::path folder_;
    std::uintmax_t maximumBytes_;
    int keptFiles_;
    std::ofstream stream_;
    std::uintmax_t size_ = 0;
};

} // namespace lumivesper::platform
