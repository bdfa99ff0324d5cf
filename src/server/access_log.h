#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>

namespace lumivesper::server {

// What the log may know of a finished request. Deliberately no headers, query or body: those are
// where keys, tokens and images travel.
struct RequestSummary {
    std::string method;
    std::string path;
    int status = 0;
    std::size_t bytesIn = 0;
    std::size_t bytesOut = 0;
    std::string client;
};

// One JSON object per line: every request, and the server's own events. A request is handled
// start to end on one worker thread, so what handlers note is kept per thread until the request's
// line is written.
class AccessLog {
public:
    using Sink = std::function<void(std::string_view line)>;

    // Without a sink, lines go to standard output.
    explicit AccessLog(Sink sink = {});

    // The calling thread starts on a request.
    void begin();
    // Adds a field to the line of the calling thread's request.
    void note(const std::string& key, nlohmann::json value);
    void finish(const RequestSummary& request);

    void event(const std::string& name, nlohmann::json fields = nlohmann::json::object());

    // A short, stable tag for a device: enough to follow one device through the log without
    // writing its id.
    static std::string deviceTag(std::string_view deviceId);

private:
    struct Pending {
        std::chrono::steady_clock::time_point start;
        nlohmann::json notes = nlohmann::json::object();
    };

    void write(nlohmann::json line);

    Sink sink_;
    std::mutex mutex_;
    std::unordered_map<std::thread::id, Pending> pending_;
};

} // namespace lumivesper::server
