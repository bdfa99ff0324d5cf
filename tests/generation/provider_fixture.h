#pragma once

#include "generation/api_key_provider.h"
#include "generation/network_session.h"
#include "loopback_server.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace lumivesper::generation::testing {

// What a stand-in server saw of one request.
struct SeenRequest {
    std::string method;
    std::string path;
    std::string query; // "key=value" pairs as received
    std::string contentType;
    std::string authorization;
    std::string title;
    std::string body; // empty for multipart bodies, which arrive parsed in `parts`
    std::map<std::string, httplib::MultipartFormData> parts;
};

class FixedKey final : public APIKeyProvider {
public:
    explicit FixedKey(std::optional<std::string> key) : key_(std::move(key)) {}
    std::optional<std::string> apiKey() const override { return key_; }

private:
    std::optional<std::string> key_;
};

// One loopback server answering every path through `respond`, recording what it saw.
class RecordingServer {
public:
    using Responder = std::function<void(const SeenRequest&, httplib::Response&)>;

    RecordingServer() {
        auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            SeenRequest seen{request.method,
                             request.path,
                             queryOf(request),
                             request.get_header_value("Content-Type"),
                             request.get_header_value("Authorization"),
                             request.get_header_value("X-Title"),
                             request.body,
                             {}};
            for (const auto& [name, part] : request.files)
                seen.parts[name] = part;
            Responder responder;
            {
                std::lock_guard lock(mutex_);
                seen_.push_back(seen);
                responder = respond_;
            }
            if (responder)
                responder(seen, response);
        };
        loopback_.server.Get(".*", handler);
        loopback_.server.Post(".*", handler);
        loopback_.start();
    }

    void respond(Responder responder) {
        std::lock_guard lock(mutex_);
        respond_ = std::move(responder);
    }
    std::vector<SeenRequest> seen() const {
        std::lock_guard lock(mutex_);
        return seen_;
    }
    std::string url() const { return loopback_.url(); }

private:
    static std::string queryOf(const httplib::Request& request) {
        std::string query;
        for (const auto& [name, value] : request.params)
            query += (query.empty() ? "" : "&") + name + "=" + value;
        return query;
    }

    mutable std::mutex mutex_;
    std::vector<SeenRequest> seen_;
    Responder respond_;
    LoopbackServer loopback_; // last: stopped before the fields its handlers use
};

inline void replyJson(httplib::Response& response, const std::string& json, int status = 200) {
    response.status = status;
    response.set_content(json, "application/json");
}

} // namespace lumivesper::generation::testing
