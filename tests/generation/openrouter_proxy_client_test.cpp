#include "../support/temporary_folder.h"
#include "generation/openrouter_proxy_client.h"
#include "generation/proxy_error.h"
#include "generation/request_text.h"
#include "loopback_server.h"
#include "platform/http_client.h"

#include <atomic>

namespace lumivesper::generation {
namespace {

using testing::replyJson;
using testing::SeenRequest;
using Json = nlohmann::json;

constexpr const char* proxyPath = "/api/proxy/chat/completions";
constexpr const char* b64Answer = R"({"choices":[{"message":{"images":[{"b64_json":"QUJD"}]}}]})";

class ProxyClientTest : public ::testing::Test {
protected:
    ~ProxyClientTest() override { release.open(); }

    // `proxy` answers the proxy path; tokens and downloads are answered here.
    void answer(testing::RecordingServer::Responder proxy) {
        server.respond([proxy](const SeenRequest& seen, httplib::Response& r) {
            if (seen.path == "/api/token")
                return replyJson(r, R"({"token":"T1","expiresIn":3600})");
            if (seen.path == "/files/x.png")
                return r.set_content(testing::tinyPng(), "image/png");
            if (seen.path == "/files/gone.png") {
                r.status = 404;
                return r.set_content("no such file", "text/plain");
            }
            if (seen.path == "/files/page.png")
                return r.set_content("<html>a login page</html>", "text/html");
            proxy(seen, r);
        });
    }
    OpenRouterProxyClient client(NetworkSession session = {}) {
        return OpenRouterProxyClient(server.url(), defaults, session);
    }
    // A text-only request's bytes or failure text, and the console.
    std::pair<std::string, std::string> run() {
        std::string result;
        const auto console = testing::capturedStdout([&] {
            if (const auto failure = testing::thrown<ProxyError>(
                    [&] { result = toText(client().generateImage("a lake", "m")); }))
                result = failure->description();
        });
        return {result, console};
    }

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    testing::Gate release;
    testing::RecordingServer server; // last: stopped first
};

TEST_F(ProxyClientTest, EveryAnswerShapeInItsOrder) {
    const std::string invalid = "Invalid image response from server";
    // The answer ("{files}" stands for the download URL), the bytes or failure, a console line.
    const std::vector<std::tuple<std::string, std::string, std::string>> shapes{
        {R"({"choices":[{"message":{"images":[{"image_url":{"url":"data:image/png;base64,QUJD"}}]}}]})",
         "ABC", "✅ Extracted image from message.images[].image_url.url (base64 data URL)\n"},
        {b64Answer, "ABC", "✅ Extracted image from message.images[].b64_json\n"},
        {R"({"choices":[{"message":{"images":[{"image_url":{"url":"{files}"}}]}}]})", "DOWNLOADED",
         "🌐 Downloading image from URL: http://127.0.0.1:"},
        {R"({"choices":[{"message":{"content":"{files}"}}]})", "DOWNLOADED",
         "🌐 Downloading image from URL: http://127.0.0.1:"},
        {R"({"data":[{"url":"{files}"}]})", invalid,
         "❌ Missing choices or message in response\n📄 Response structure:\n{\n"},
        {R"({"choices":[{"message":{"content":"sorry"}}],"data":[{"url":"{files}"}]})",
         "DOWNLOADED", "📝 Message content: sorry...\n🌐 Downloading image from data[].url: "},
        {R"({"choices":[{"message":{"images":[{"image_url":{"url":"data:image/png;base64"},"b64_json":"QUJD"}]}}]})",
         "ABC", "📝 Found image_url.url: data:image/png;base64...\n"},
        {R"({"choices":[]})", invalid, "❌ Missing choices or message in response\n"},
        {R"({"choices":[{"message":{"content":"sorry","role":"x"}}]})", invalid,
         "💬 Message keys: content, role\n📝 Message content: sorry...\n❌ Could not extract "
         "image from any known format\n"},
        {R"({"choices":[{"message":{"images":[{"b64_json":"QU JD"}]}}]})", invalid,
         "❌ Could not extract image from any known format\n"},
        {"<html>", invalid, "❌ Failed to parse JSON response\n"}};
    for (auto [body, result, consoleLine] : shapes) {
        if (const auto at = body.find("{files}"); at != std::string::npos)
            body.replace(at, 7, server.url() + "/files/x.png");
        if (result == "DOWNLOADED")
            result = testing::tinyPng();
        answer([&](const SeenRequest&, httplib::Response& r) { replyJson(r, body); });
        const auto [found, console] = run();
        EXPECT_EQ(found, result) << body;
        EXPECT_NE(console.find(consoleLine), std::string::npos) << console;
    }
}

TEST_F(ProxyClientTest, ADownloadMustSucceedAndDecodeAsAnImage) {
    for (const auto& [file, result] :
         {std::pair{"gone.png", "Server error 404: no such file"},
          std::pair{"page.png", "Invalid image response from server"}}) {
        const std::string body =
            R"({"choices":[{"message":{"content":")" + server.url() + "/files/" + file + R"("}}]})";
        answer([&](const SeenRequest&, httplib::Response& r) { replyJson(r, body); });
        EXPECT_EQ(run().first, result);
    }
}

TEST_F(ProxyClientTest, RequestFormsAndModelIds) {
    answer([](const SeenRequest&, httplib::Response& r) { replyJson(r, b64Answer); });
    const Bytes reference = toBytes("REF"), current = toBytes("CUR");
    client().generateImage("a lake", "openrouter/x");
    client().generateImage("relight", reference, "OpenRouter/x");
    client().editImage("fix", reference, current, "local/openrouter/x");

    const auto seen = server.seen(proxyPath);
    ASSERT_EQ(seen.size(), 3u);
    for (const auto& request : seen)
        EXPECT_EQ(request.authorization + " " + request.contentType, "Bearer T1 application/json");
    const auto image = [](const Bytes& bytes, const std::string& detail) {
        return R"({"type":"image_url","image_url":{"url":")" + pngDataURL(bytes) + "\"" + detail +
               "}}";
    };
    const auto request = [](const std::string& model, const std::string& content) {
        return Json::parse(R"({"model":")" + model + R"(","messages":[{"role":"user","content":)" +
                           content + R"(}],"modalities":["image","text"]})");
    };
    EXPECT_EQ(Json::parse(seen[0].body), request("x", R"("a lake")"));
    EXPECT_EQ(Json::parse(seen[1].body),
              request("OpenRouter/x",
                      R"([{"type":"text","text":"relight"},)" + image(reference, "") + "]"));
    const std::string high = R"(,"detail":"high")";
    EXPECT_EQ(Json::parse(seen[2].body),
              request("local/openrouter/x", R"([{"type":"text","text":"fix"},)" +
                                                image(reference, high) + "," +
                                                image(current, high) + "]"));
}

TEST_F(ProxyClientTest, OneRetryOn401AndOnly200Succeeds) {
    const std::string retrying = "⚠️  Token expired, retrying with fresh token...\n";
    struct Exchange {
        std::vector<std::pair<int, std::string>> answers; // in turn, the last repeated
        std::string result;
        std::size_t requests;
        std::string consoleLine;
    };
    for (const auto& [answers, result, requests, consoleLine] : std::vector<Exchange>{
             {{{401, "x"}, {200, b64Answer}}, "ABC", 2, retrying},
             {{{401, "x"}}, "Unauthorized - token expired", 2, retrying},
             {{{502, "down"}}, "Server error 502: down", 1, "❌ Proxy error (502): down\n"},
             {{{201, b64Answer}}, std::string("Server error 201: ") + b64Answer, 1, ""}}) {
        std::atomic<std::size_t> count{0};
        answer([&](const SeenRequest&, httplib::Response& r) {
            const auto& [status, body] = answers[std::min(count++, answers.size() - 1)];
            replyJson(r, body, status);
        });
        const auto before = server.seen(proxyPath).size();
        const auto [found, console] = run();
        EXPECT_EQ(found, result);
        EXPECT_EQ(server.seen(proxyPath).size() - before, requests) << result;
        EXPECT_NE(console.find(consoleLine), std::string::npos) << console;
    }
}

// Cancellation through this client is covered by the generator's stop test.
TEST_F(ProxyClientTest, SlowAnswerTimesOut) {
    answer([this](const SeenRequest&, httplib::Response& r) {
        release.wait();
        replyJson(r, "{}");
    });
    NetworkSession session;
    session.maximumTimeout = std::chrono::milliseconds(300);
    const auto error =
        testing::thrown<platform::HttpError>([&] { client(session).generateImage("p", "m"); });
    EXPECT_EQ(error.value().kind(), platform::HttpError::Kind::timedOut);
}

} // namespace
} // namespace lumivesper::generation
