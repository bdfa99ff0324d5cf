#include "platform/cancellation.h"
#include "platform/http_client.h"

#include <arpa/inet.h>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <httplib.h>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace lumivesper::platform {
namespace {

// A real server on 127.0.0.1 with a handler that can be held until the test releases it.
class HttpClientTest : public ::testing::Test {
protected:
    HttpClientTest() {
        server.Get("/hello", [](const httplib::Request& request, httplib::Response& response) {
            response.set_header("X-Echo", request.get_header_value("X-Token"));
            response.set_content("hello there", "text/plain");
        });
        server.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
            response.set_content(request.body, request.get_header_value("Content-Type"));
        });
        server.Get("/missing", [](const httplib::Request&, httplib::Response& response) {
            response.status = 404;
            response.set_content("no such thing", "text/plain");
        });
        server.Get("/moved", [](const httplib::Request&, httplib::Response& response) {
            response.set_redirect("/hello");
        });
        server.Get("/held", [this](const httplib::Request&, httplib::Response& response) {
            std::unique_lock lock(mutex);
            held = true;
            changed.notify_all();
            changed.wait_for(lock, std::chrono::seconds(20), [this] { return released; });
            response.set_content("late", "text/plain");
        });
        server.Get("/sized", [](const httplib::Request&, httplib::Response& response) {
            response.set_content(std::string(300000, 'x'), "application/zip");
        });
        server.Get("/chunked", [](const httplib::Request&, httplib::Response& response) {
            response.set_chunked_content_provider("application/zip",
                                                  [](size_t offset, httplib::DataSink& sink) {
                                                      if (offset >= 200000) {
                                                          sink.done();
                                                          return true;
                                                      }
                                                      const std::string chunk(50000, 'y');
                                                      return sink.write(chunk.data(), chunk.size());
                                                  });
        });
        // A slow line that keeps moving: a byte every 250 ms, 2.5 s in all. The pause is the
        // line's speed, not a wait for the test.
        server.Get("/trickle", [](const httplib::Request&, httplib::Response& response) {
            // Not a text type: the server would compress text and hold the bytes back.
            response.set_chunked_content_provider(
                "application/octet-stream", [](size_t offset, httplib::DataSink& sink) {
                    if (offset >= 10) {
                        sink.done();
                        return true;
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(250));
                    return sink.write("z", 1);
                });
        });
        port = server.bind_to_any_port("127.0.0.1");
        thread = std::thread([this] { server.listen_after_bind(); });
        // stop() before the accept loop runs would be lost, and the loop would never end.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!server.is_running() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }

    ~HttpClientTest() override {
        release();
        server.stop();
        thread.join();
    }

    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port) + path;
    }

    void waitUntilHeld() {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(10), [this] { return held; }));
    }

    void release() {
        std::lock_guard lock(mutex);
        released = true;
        changed.notify_all();
    }

    httplib::Server server;
    int port = 0;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable changed;
    bool held = false;
    bool released = false;
    HttpClient client;
};

TEST_F(HttpClientTest, SendsMethodHeadersAndBodyAndReadsAnyStatus) {
    const auto hello = client.send({"GET", url("/hello"), {{"X-Token", "abc"}}, {}});
    EXPECT_EQ(hello.status, 200);
    EXPECT_EQ(hello.body, "hello there");
    EXPECT_EQ(hello.header("x-echo"), "abc"); // names compared without case
    EXPECT_FALSE(hello.header("X-Absent"));

    const auto echoed =
        client.send({"POST", url("/echo"), {{"Content-Type", "application/json"}}, R"({"a":1})"});
    EXPECT_EQ(echoed.body, R"({"a":1})");
    EXPECT_EQ(echoed.header("Content-Type"), "application/json");

    EXPECT_EQ(client.send({"GET", url("/moved"), {}, {}}).body, "hello there"); // redirect followed
    const auto missing = client.send({"GET", url("/missing"), {}, {}});
    EXPECT_EQ(missing.status, 404); // a response, not an error
    EXPECT_EQ(missing.body, "no such thing");
}

TEST_F(HttpClientTest, TheTimeOutIsForIdleTimeAndTheOverallCapEndsATrickle) {
    using std::chrono::milliseconds;
    struct Case {
        const char* path;
        milliseconds overall;
        bool timesOut;
    };
    for (const auto& [path, overall, timesOut] :
         {Case{"/trickle", std::chrono::minutes(1), false}, // moving for longer than the idle 2 s
          Case{"/held", std::chrono::minutes(1), true},     // nothing moves
          Case{"/trickle", milliseconds(1000), true}}) {
        // Curl looks at the speed once a second, so the idle time-out has a second's slack.
        HttpRequest request{"GET", url(path), {}, {}, milliseconds(2000), overall};
        try {
            EXPECT_EQ(client.send(request).body, std::string(10, 'z'));
            EXPECT_FALSE(timesOut) << path;
        } catch (const HttpError& error) {
            EXPECT_TRUE(timesOut) << path << ": " << error.what();
            EXPECT_EQ(error.kind(), HttpError::Kind::timedOut);
        }
    }
}

TEST_F(HttpClientTest, ACallbackThatThrowsEndsTheTransferAndTheCallerGetsTheException) {
    struct Refused : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    const auto file = std::filesystem::temp_directory_path() /
                      ("lumivesper-throwing-download" + std::to_string(port));
    EXPECT_THROW(client.download(
                     {"GET", url("/chunked"), {}, {}}, file,
                     [](std::int64_t, std::optional<std::int64_t>) { throw Refused("no more"); }),
                 Refused);
    std::filesystem::remove(file);
    EXPECT_EQ(client.send({"GET", url("/hello"), {}, {}}).status, 200); // the client still works
}

TEST_F(HttpClientTest, ErrorTextsHideTheKeyOfAUrl) {
    try {
        client.send({"GET", "nope://127.0.0.1/v1?key=SECRET123&alt=json", {}, {}});
        FAIL() << "expected an invalid URL";
    } catch (const HttpError& error) {
        EXPECT_EQ(error.kind(), HttpError::Kind::invalidUrl);
        EXPECT_EQ(std::string(error.what()),
                  "Invalid URL: nope://127.0.0.1/v1?key=REDACTED&alt=json");
    }
}

TEST_F(HttpClientTest, StopTokenCancelsARunningRequest) {
    std::stop_source stop;
    std::jthread canceller([&] {
        waitUntilHeld();
        stop.request_stop();
    });
    EXPECT_THROW(client.send({"GET", url("/held"), {}, {}}, stop.get_token()), CancellationError);
}

TEST_F(HttpClientTest, ClosedPortIsCannotConnect) {
    // A port that is bound but not listening refuses connections.
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    const int closedPort = ntohs(address.sin_port);
    struct CloseSocket {
        int fd;
        ~CloseSocket() { ::close(fd); }
    } closeSocket{socket};
    try {
        client.send({"GET", "http://127.0.0.1:" + std::to_string(closedPort) + "/", {}, {}});
        FAIL() << "expected a refused connection";
    } catch (const HttpError& error) {
        EXPECT_EQ(error.kind(), HttpError::Kind::cannotConnect);
    }
}

TEST_F(HttpClientTest, DownloadsReportProgressWithTheTotalOnlyWhenKnown) {
    const auto folder = std::filesystem::temp_directory_path();
    for (const auto& [path, size, totalKnown] :
         {std::tuple{"/sized", 300000, true}, std::tuple{"/chunked", 200000, false}}) {
        const auto file = folder / ("lumivesper-download-test" + std::to_string(port));
        std::int64_t lastReceived = 0;
        bool sawTotal = false;
        const auto response =
            client.download({"GET", url(path), {}, {}}, file,
                            [&](std::int64_t received, std::optional<std::int64_t> total) {
                                EXPECT_GE(received, lastReceived);
                                lastReceived = received;
                                sawTotal = sawTotal || total.has_value();
                                if (total) {
                                    EXPECT_EQ(*total, size);
                                }
                            });
        EXPECT_EQ(response.status, 200);
        EXPECT_TRUE(response.body.empty());
        EXPECT_EQ(std::filesystem::file_size(file), static_cast<std::uintmax_t>(size)) << path;
        EXPECT_EQ(lastReceived, size);
        EXPECT_EQ(sawTotal, totalKnown) << path;
        std::filesystem::remove(file);
    }
}

} // namespace
} // namespace lumivesper::platform
