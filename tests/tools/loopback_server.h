#pragma once

#include <chrono>
#include <httplib.h>
#include <stdexcept>
#include <string>
#include <thread>

namespace lumivesper::tools::testing {

// A real HTTP server on 127.0.0.1, serving the routes a test sets up on `server` before start().
class LoopbackServer {
public:
    ~LoopbackServer() {
        server.stop();
        if (thread_.joinable())
            thread_.join();
    }

    void start() {
        port_ = server.bind_to_any_port("127.0.0.1");
        if (port_ <= 0)
            throw std::runtime_error("cannot bind a loopback port");
        thread_ = std::thread([this] { server.listen_after_bind(); });
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!server.is_running()) {
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("loopback server did not start");
            std::this_thread::yield();
        }
    }

    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

    httplib::Server server;

private:
    int port_ = 0;
    std::thread thread_;
};

// A loopback URL where nothing listens any more.
inline std::string refusingURL(const std::string& path) {
    LoopbackServer stopped;
    stopped.start();
    return stopped.url(path);
}

} // namespace lumivesper::tools::testing
