#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <httplib.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace lumivesper::tools::testing {

// A real HTTP server on 127.0.0.1, serving the routes a test sets up on `server` before start().
class LoopbackServer {
public:
    LoopbackServer() = default;
    ~LoopbackServer() {
        server.stop();
        if (thread_.joinable())
            thread_.join();
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

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

// A loopback URL where nothing listens: the port is bound to learn a free number, then closed.
inline std::string refusingURL(const std::string& path) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (socket < 0 || ::bind(socket, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("cannot find a free loopback port");
    ::close(socket);
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + path;
}

} // namespace lumivesper::tools::testing
