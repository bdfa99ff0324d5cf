#pragma once

#include "platform/log_sink.h"

#include <memory>
#include <string_view>

namespace lumivesper::platform {

// The program's one logger. Diagnostics ("console lines") are plain lines without levels; each
// goes to the sink the program installed: standard error for the command line (only with
// --verbose), a rotating file for the application. Until a program installs one, lines go to
// standard output. Bytes that are not UTF-8 (a path the user named) are replaced, so logging never
// fails. Lines from different threads never interleave.
void consoleLine(std::string_view line);

// Makes `sink` the destination of every later line and returns the one it replaces; an empty
// pointer silences the log.
std::shared_ptr<LogSink> installLogSink(std::shared_ptr<LogSink> sink);

// The sink lines go to now; empty while the log is silenced.
std::shared_ptr<LogSink> currentLogSink();

// Installs a sink for one scope, then puts the former one back.
class ScopedLogSink {
public:
    explicit ScopedLogSink(std::shared_ptr<LogSink> sink)
        : previous_(installLogSink(std::move(sink))) {}
    ~ScopedLogSink() { installLogSink(std::move(previous_)); }
    ScopedLogSink(const ScopedLogSink&) = delete;
    ScopedLogSink& operator=(const ScopedLogSink&) = delete;

private:
    std::shared_ptr<LogSink> previous_;
};

} // namespace lumivesper::platform
