#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <httplib.h>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace lumivesper::settings::testing {

// Polls until `done` holds, ten seconds at most, so that no test can hang.
inline bool waitFor(const std::function<bool()>& done) {
    using namespace std::chrono_literals;
    for (const auto deadline = std::chrono::steady_clock::now() + 10s;
         !done() && std::chrono::steady_clock::now() < deadline;)
        std::this_thread::sleep_for(1ms);
    return done();
}

// An update feed on 127.0.0.1 that answers each path with the body and status given for it (404
// for a path it was given nothing for). Requests are counted; while `holding` is set, their
// answers wait.
class LoopbackFeed {
public:
    LoopbackFeed() {
        server_.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
            ++requests;
            waitFor([this] { return !holding; });
            std::lock_guard lock(mutex_);
            const auto found = answers_.find(request.path);
            if (found == answers_.end()) {
                response.status = 404;
                return;
            }
            response.status = found->second.second;
            response.set_content(found->second.first, "application/rss+xml");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        waitFor([this] { return server_.is_running(); }); // stop() is ignored before then
    }
    ~LoopbackFeed() {
        holding = false;
        server_.stop();
        thread_.join();
    }
    LoopbackFeed(const LoopbackFeed&) = delete;
    LoopbackFeed& operator=(const LoopbackFeed&) = delete;

    std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }
    void answer(const std::string& path, std::string body, int status = 200) {
        std::lock_guard lock(mutex_);
        answers_[path] = {std::move(body), status};
    }

    std::atomic<int> requests = 0;
    std::atomic<bool> holding = false;

private:
    std::mutex mutex_;
    std::map<std::string, std::pair<std::string, int>> answers_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

// A feed of one release, with its link to release notes when one is given.
inline std::string appcastWith(const std::string& version, const std::string& displayVersion,
                               const std::string& releaseNotesURL = {}) {
    const std::string notes = releaseNotesURL.empty() ? ""
                                                      : "<u:releaseNotesLink>" + releaseNotesURL +
                                                            "</u:releaseNotesLink>";
    return R"(<rss version="2.0" xmlns:u="urn:example:updates"><channel><item>)" + notes +
           "<enclosure url=\"https://example.test/a.tar.gz\" u:version=\"" + version +
           "\" u:shortVersionString=\"" + displayVersion + "\"/></item></channel></rss>";
}

} // namespace lumivesper::settings::testing
