#include "server/access_log.h"

#include "platform/console.h"

#include <ctime>
#include <openssl/evp.h>

namespace lumivesper::server {

namespace {

std::string timestamp() {
    const auto now = std::chrono::system_clock::now();
    const auto seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    const auto length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    char withMillis[48];
    std::snprintf(withMillis, sizeof withMillis, "%.*s.%03dZ", static_cast<int>(length), text,
                  static_cast<int>(millis));
    return withMillis;
}

} // namespace

AccessLog::AccessLog(Sink sink)
    : sink_(sink ? std::move(sink)
                 : Sink([](std::string_view line) { platform::consoleLine(line); })) {}

void AccessLog::begin() {
    std::lock_guard guard(mutex_);
    pending_[std::this_thread::get_id()] = Pending{std::chrono::steady_clock::now()};
}

void AccessLog::note(const std::string& key, nlohmann::json value) {
    std::lock_guard guard(mutex_);
    pending_[std::this_thread::get_id()].notes[key] = std::move(value);
}

void AccessLog::finish(const RequestSummary& request) {
    nlohmann::json line = {{"time", timestamp()},           {"event", "request"},
                           {"method", request.method},      {"path", request.path.substr(0, 200)},
                           {"status", request.status},      {"bytes_in", request.bytesIn},
                           {"bytes_out", request.bytesOut}, {"client", request.client}};
    {
        std::lock_guard guard(mutex_);
        const auto found = pending_.find(std::this_thread::get_id());
        // A request the library refused before it reached us has no start of ours.
        if (found != pending_.end()) {
            line["ms"] = std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::steady_clock::now() - found->second.start)
                             .count();
            line.update(found->second.notes);
            pending_.erase(found);
        }
    }
    write(std::move(line));
}

void AccessLog::event(const std::string& name, nlohmann::json fields) {
    nlohmann::json line = {{"time", timestamp()}, {"event", name}};
    line.update(fields);
    write(std::move(line));
}

void AccessLog::write(nlohmann::json line) {
    // Replacement rather than an exception for text that is not UTF-8 (a path sent in bytes).
    sink_(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

std::string AccessLog::deviceTag(std::string_view deviceId) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(deviceId.data(), deviceId.size(), digest, &length, EVP_sha256(), nullptr);
    static constexpr char hex[] = "0123456789abcdef";
    std::string tag;
    for (unsigned int i = 0; i < 6 && i < length; ++i) {
        tag += hex[digest[i] >> 4];
        tag += hex[digest[i] & 0xF];
    }
    return tag;
}

} // namespace lumivesper::server
