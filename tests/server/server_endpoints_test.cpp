// The server's other endpoints and its limits, as clients see them.

#include "generation/prompt_manager.h"
#include "generation/proxy_error.h"
#include "generation/server_wire.h"
#include "server_fixture.h"
#include "settings/update_checker.h"

#include <arpa/inet.h>
#include <filesystem>
#include <fstream>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace lumivesper::server::testing {
namespace {

using namespace std::chrono_literals;

// Sends `request` on a fresh connection and reads until the server closes it (or 10 s pass).
struct RawExchange {
    std::string received;
    bool closedByServer = false;
};
RawExchange exchange(int port, const std::string& request) {
    RawExchange result;
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    timeval timeout{10, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::send(socket, request.data(), request.size(), 0) == static_cast<ssize_t>(request.size())) {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::recv(socket, buffer, sizeof buffer, 0)) > 0)
            result.received.append(buffer, static_cast<std::size_t>(count));
        result.closedByServer = count == 0;
    }
    ::close(socket);
    return result;
}

class ServerEndpoints : public ServerTest {};

TEST_F(ServerEndpoints, RefusesOversizedAndUnmeasuredBodiesBeforeReadingThem) {
    start([](ServerOptions& options) { options.maxBodyBytes = 1024 * 1024; });
    const std::string headers =
        std::string("POST ") + proxyPath +
        " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n";

    // 100 MB announced, 1 KB sent: the answer and the close come without the rest.
    const auto oversized = exchange(server->port(), headers + "Content-Length: 104857600\r\n\r\n" +
                                                        std::string(1024, 'x'));
    EXPECT_TRUE(oversized.received.starts_with("HTTP/1.1 413")) << oversized.received;
    EXPECT_NE(oversized.received.find("at most 1 MiB"), std::string::npos);
    EXPECT_TRUE(oversized.closedByServer);

    const auto chunked =
        exchange(server->port(),
                 headers + "Transfer-Encoding: chunked\r\n\r\n400\r\n" + std::string(1024, 'x'));
    EXPECT_TRUE(chunked.received.starts_with("HTTP/1.1 411")) << chunked.received;
    EXPECT_TRUE(chunked.closedByServer);

    // The program's own client, with two images that together pass the limit.
    const generation::Bytes image(700 * 1024, 0x42);
    const auto error = generation::testing::thrown<generation::ProxyError>(
        [&] { client()->editImage("fix it", image, image, "vendor/model"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status(), 413);
    EXPECT_TRUE(provider.seen(providerPath).empty());
}

TEST_F(ServerEndpoints, IssuesTokensOnlyForWellFormedRequestsAndWithinTheAddressLimit) {
    start([](ServerOptions& options) {
        options.tokenBurst = 3;
        options.tokenPerHour = 1;
    });
    httplib::Client http("127.0.0.1", server->port());
    const auto post = [&](const std::string& body) {
        const auto result = http.Post("/api/token", body, "application/json");
        return result ? result->status : -1;
    };
    EXPECT_EQ(post(R"({"deviceId":"A B","bundleId":"b","version":"1"})"), 400);
    EXPECT_EQ(post(R"({"deviceId":"ABC"})"), 400);
    EXPECT_EQ(post("not json"), 400);
    // Refused requests still count towards the address's limit: that is what stops a flood.
    EXPECT_EQ(post(R"({"deviceId":"ABC","bundleId":"b","version":"1"})"), 429);

    // The answer is the record the client decodes, with the configured lifetime.
    ServerTest::server.reset();
    start([](ServerOptions& options) { options.tokenLifetime = 900s; });
    httplib::Client fresh("127.0.0.1", server->port());
    const auto issued = fresh.Post(
        "/api/token", R"({"deviceId":"ABC","bundleId":"b","version":"1"})", "application/json");
    ASSERT_TRUE(issued);
    const auto answer = generation::decodeTokenResponse(issued->body);
    EXPECT_EQ(answer.expiresIn, 900);
    EXPECT_EQ(DeviceTokenSigner(tokenSecret, 900s).verify(answer.token).deviceId, "ABC");
}

TEST_F(ServerEndpoints, ServesTheOperatorsPromptsAndKeepsTheLastGoodOnesAfterABrokenEdit) {
    const auto file = folder.path() / "prompts.json";
    int edits = 0;
    const auto write = [&](const std::string& version, const std::string& extra = "") {
        std::ofstream(file, std::ios::trunc)
            << R"({"version":")" << version
            << R"(","updated":"u","templates":{"original":"o {userPrompt}","relight":"r {phaseDescription}"}})"
            << extra;
        // A second write within the file system's time resolution must still count as a change.
        std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() +
                                                   std::chrono::seconds(++edits));
    };
    write("v1");
    start([&](ServerOptions& options) { options.promptsFile = file; });
    const auto fetchVersion = [&] {
        defaults.remove(generation::PromptManager::cacheKey);
        return generation::PromptManager(server->url(), defaults, {}, [] { return std::nullopt; })
            .prompts()
            .version;
    };
    EXPECT_EQ(fetchVersion(), "v1");

    write("v2-edited");
    EXPECT_EQ(fetchVersion(), "v2-edited");

    write("v3-broken-edit", "trailing garbage");
    EXPECT_EQ(fetchVersion(), "v2-edited");
    bool warned = false;
    for (const auto& line : logLines())
        warned = warned || line.find("not usable") != std::string::npos;
    EXPECT_TRUE(warned);

    // A server that cannot start with the file it was given says so instead of serving nothing.
    std::ofstream(file, std::ios::trunc) << "{}";
    EXPECT_THROW(LumivesperServer([&] {
                     auto options = defaultOptions();
                     options.promptsFile = file;
                     return options;
                 }()),
                 std::runtime_error);
}

TEST_F(ServerEndpoints, ServesEachUpdateChannelsFeedAndReportsHealth) {
    const auto feeds = folder.path() / "feeds";
    std::filesystem::create_directories(feeds);
    std::ofstream(feeds / "appcast.xml")
        << R"(<rss version="2.0" xmlns:u="urn:example:updates"><channel><item><enclosure )"
           R"(url="https://example.test/a.tar.gz" u:version="999" u:shortVersionString="9.9"/>)"
           R"(</item></channel></rss>)";
    start([&](ServerOptions& options) {
        options.appcastDirectory = feeds;
        options.providerKey.reset();
    });

    const auto found =
        settings::UpdateChecker::fetchUpdate(server->url() + "/api/updates/appcast.xml", "1", 10s);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->displayVersion, "9.9");
    EXPECT_THROW(settings::UpdateChecker::fetchUpdate(
                     server->url() + "/api/updates/appcast-beta.xml", "1", 10s),
                 settings::UpdateCheckError);

    httplib::Client http("127.0.0.1", server->port());
    const auto health = http.Get("/healthz");
    ASSERT_TRUE(health);
    EXPECT_EQ(health->status, 200);
    const auto body = nlohmann::json::parse(health->body);
    EXPECT_EQ(body["status"], "ok");
    EXPECT_EQ(body["provider_key"], false);

    // Without a key the proxy says so rather than failing obscurely.
    const auto refused = generation::testing::thrown<generation::ProxyError>(
        [&] { client()->generateImage("a lake", "vendor/model"); });
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status(), 503);
}

} // namespace
} // namespace lumivesper::server::testing
