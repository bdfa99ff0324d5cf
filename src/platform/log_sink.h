#pragma once

#include <mutex>
#include <ostream>
#include <string_view>

namespace lumivesper::platform {

// Where diagnostic lines go. write() gets one line without its line feed, already valid UTF-8,
// and is never called by two threads at once.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(std::string_view line) = 0;
};

// Each line on a stream (standard output or standard error), flushed at once.
class StreamLogSink final : public LogSink {
public:
    explicit StreamLogSink(std::ostream& stream) : stream_(stream) {}
    void write(std::string_view line) override {
        // One insertion per line, so that other writers to the stream do not split it.
        std::string text;
        text.reserve(line.size() + 1);
        text.append(line).push_back('\n');
        stream_ << text << std::flush;
    }

private:
    std::ostream& stream_;
};

} // namespace lumivesper::platform
