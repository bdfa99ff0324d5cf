#include "platform/rotating_file_log_sink.h"

#include "platform/paths.h"

#include <chrono>
#include <ctime>
#include <system_error>

namespace lumivesper::platform {

namespace fs = std::filesystem;

namespace {

// "2026-11-23 10:54:11.123 ", local time.
std::string timePrefix() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[32];
    const auto length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    const auto milliseconds =
        duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03d ", static_cast<int>(milliseconds));
    return std::string(text, length) + fraction;
}

} // namespace

fs::path RotatingFileLogSink::standardFolder() {
    return stateHome() / "lumivesper";
}

RotatingFileLogSink::RotatingFileLogSink(fs::path folder, std::uintmax_t maximumBytes,
                                         int keptFiles)
    : folder_(std::move(folder)), maximumBytes_(maximumBytes), keptFiles_(keptFiles) {
    open();
}

void RotatingFileLogSink::open() {
    std::error_code error;
    fs::create_directories(folder_, error);
    stream_ = std::ofstream(file(), std::ios::binary | std::ios::app);
    size_ = fs::file_size(file(), error);
    if (error)
        size_ = 0;
}

void RotatingFileLogSink::rotate() {
    stream_.close();
    std::error_code ignored;
    const auto numbered = [&](int n) {
        return fs::path(file().string() + "." + std::to_string(n));
    };
    fs::remove(numbered(keptFiles_), ignored);
    for (int n = keptFiles_ - 1; n >= 1; --n)
        fs::rename(numbered(n), numbered(n + 1), ignored);
    if (keptFiles_ > 0)
        fs::rename(file(), numbered(1), ignored);
    else
        fs::remove(file(), ignored);
    open();
}

void RotatingFileLogSink::write(std::string_view line) {
    std::string text = timePrefix();
    text.append(line).push_back('\n');
    if (size_ > 0 && size_ + text.size() > maximumBytes_)
        rotate();
    if (!stream_.is_open())
        open(); // the folder may have come back
    stream_ << text << std::flush;
    if (stream_)
        size_ += text.size();
    else
        stream_.clear();
}

} // namespace lumivesper::platform
