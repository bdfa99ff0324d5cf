#include "platform/console.h"

#include "platform/utf8.h"

#include <iostream>
#include <mutex>

namespace lumivesper::platform {

namespace {

// The process's one logger: which sink, and the lock that keeps lines whole.
struct Logger {
    std::mutex mutex;
    std::shared_ptr<LogSink> sink = std::make_shared<StreamLogSink>(std::cout);
};

Logger& logger() {
    static Logger instance;
    return instance;
}

} // namespace

void consoleLine(std::string_view line) {
    const std::string text = validUtf8(line);
    Logger& log = logger();
    std::lock_guard lock(log.mutex);
    if (!log.sink)
        return;
    try {
        log.sink->write(text);
    } catch (const std::exception&) {
        // A sink that cannot write (a full disk) must not fail the work being logged.
    }
}

std::shared_ptr<LogSink> currentLogSink() {
    Logger& log = logger();
    std::lock_guard lock(log.mutex);
    return log.sink;
}

std::shared_ptr<LogSink> installLogSink(std::shared_ptr<LogSink> sink) {
    Logger& log = logger();
    std::lock_guard lock(log.mutex);
    std::swap(log.sink, sink);
    return sink;
}

} // namespace lumivesper::platform
