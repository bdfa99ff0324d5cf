#pragma once

#include "../generation/loopback_server.h"
#include "generation/phase_descriptor.h"
#include "generation/request_text.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::testing {

// The phase a proxy request relights, read from its prompt; "original" for the base frame.
inline std::string requestedPhase(const std::string& body) {
    for (const auto& phase : generation::lightingPhases)
        if (body.find(std::string(phase.timeOfDay)) != std::string::npos)
            return std::string(phase.name);
    return "original";
}

// The program's own server as a generation meets it, on 127.0.0.1: a device token, the prompt
// templates, and the image proxy answering each phase with a picture of its own (the base frame
// with the first, relit phase i with picture i).
class ProgramServerStandIn {
public:
    static constexpr const char* proxyPath = "/api/proxy/chat/completions";

    // Answers a proxy request itself when it returns true; runs on the server's threads.
    using Hook = std::function<bool(const std::string& phase, httplib::Response&)>;

    explicit ProgramServerStandIn(std::vector<generation::Bytes> pictures)
        : pictures_(std::move(pictures)) {
        server_.respond([this](const generation::testing::SeenRequest& seen, httplib::Response& r) {
            answer(seen, r);
        });
    }
    ~ProgramServerStandIn() { server_.stop(); }

    void setHook(Hook hook) {
        std::lock_guard lock(mutex_);
        hook_ = std::move(hook);
    }
    // Each proxy answer waits this long first, as a real model takes its time.
    void setDelay(std::chrono::milliseconds delay) { delayMs_ = static_cast<int>(delay.count()); }

    std::string url() const { return server_.url(); }
    std::size_t proxyRequests() const { return server_.seen(proxyPath).size(); }
    std::vector<generation::testing::SeenRequest> seen(const std::string& path = "") const {
        return server_.seen(path);
    }
    // Waits for the handlers still running; nothing is recorded afterwards.
    void stop() { server_.stop(); }

private:
    void answer(const generation::testing::SeenRequest& seen, httplib::Response& r) {
        if (seen.path == "/api/token")
            return generation::testing::replyJson(r, R"({"token":"T","expiresIn":3600})");
        if (seen.path == "/api/prompts")
            return generation::testing::replyJson(r, R"({"version":"t","updated":"","templates":{
                "original":"ORIGINAL {userPrompt}","relight":"RELIGHT {phaseDescription}"}})");
        if (seen.path != proxyPath) {
            r.status = 404;
            return;
        }
        const std::string phase = requestedPhase(seen.body);
        Hook hook;
        {
            std::lock_guard lock(mutex_);
            hook = hook_;
        }
        if (hook && hook(phase, r))
            return;
        if (const int delay = delayMs_.load(); delay > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        std::size_t index = 0;
        for (std::size_t i = 0; i < generation::lightingPhases.size(); ++i)
            if (generation::lightingPhases[i].name == phase)
                index = i + 1;
        const auto& picture = pictures_[std::min(index, pictures_.size() - 1)];
        generation::testing::replyJson(
            r, R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                   generation::pngDataURL(picture) + R"("}}]}}]})");
    }

    std::vector<generation::Bytes> pictures_;
    std::mutex mutex_;
    Hook hook_;
    std::atomic<int> delayMs_{0};
    generation::testing::RecordingServer server_;
};

} // namespace lumivesper::testing
