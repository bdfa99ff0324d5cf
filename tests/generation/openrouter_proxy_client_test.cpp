#include "../support/temporary_folder.h"
#include "generation/openrouter_proxy_client.h"
#include "generation/proxy_error.h"
#include "generation/request_text.h"
#include "platform/cancellation.h"
#include "provider_fixture.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumivesper::generation {
namespace {

using testing::Gate;
using testing::RecordingServer;
using testing::replyJson;
using testing::SeenRequest;
using Json = nlohmann::json;

constexpr const char* proxyPath = "/api/proxy/chat/completions";

class ProxyClientTest : public ::testing::Test {
protected:
    // `proxy` answers the proxy path; the token and download paths are answered here.
    void answer(std::function<void(const SeenRequest&, httplib::Response&)> proxy) {
        server.respond([this, proxy](const SeenRequest& seen, httplib::Response& r) {
            if (seen.path == "/api/token")
                return replyJson(r, R"({"token":"T1","expiresIn":3600})");
            if (seen.path == "/files/x.png") {
                r.status = 404; // a download's status is not looked at
                return r.set_content("DOWNLOADED", "image/png");
            }
            proxy(seen, r);
        });
    }
    void answerWith(const std::string& body, int status = 200) {
        answer([body, status](const SeenRequest&, httplib::Response& r) {
            replyJson(r, body, status);
        });
    }
    std::vector<SeenRequest> proxyRequests() const {
        std::vector<SeenRequest> found;
        for (auto& seen : server.seen())
            if (seen.path == proxyPath)
                found.push_back(seen);
        return found;
    }
    std::string fileURL() const { return server.url() + "/files/x.png"; }

    // Runs a text-only request and gives the bytes, or the failure's case, with the console.
    struct Outcome {
        std::optional<std::string> bytes;
        std::optional<ProxyError::Case> failure;
        std::string console;
    };
    Outcome run(const std::string& model = "openrouter/google/gemini-3-pro-image-preview") {
        Outcome outcome;
        ::testing::internal::CaptureStdout();
        try {
            outcome.bytes = toText(client().generateImage("a lake", model));
        } catch (const ProxyError& error) {
            outcome.failure = error.kind();
        }
        outcome.console = ::testing::internal::GetCapturedStdout();
        return outcome;
    }
    OpenRouterProxyClient client(NetworkSession session = {}) {
        return OpenRouterProxyClient(server.url(), defaults, session);
    }

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    RecordingServer server;
};

struct ShapeCase {
    const char* name;
    std::string body; // "{files}" stands for the download URL
    std::optional<std::string> bytes;
    std::string consoleLine;
};

class ProxyResponseShapeTest : public ProxyClientTest,
                               public ::testing::WithParamInterface<ShapeCase> {};

TEST_P(ProxyResponseShapeTest, ExtractsImageOrFails) {
    std::string body = GetParam().body;
    if (const auto at = body.find("{files}"); at != std::string::npos)
        body.replace(at, 7, fileURL());
    answerWith(body);
    const auto outcome = run();
    EXPECT_EQ(outcome.bytes, GetParam().bytes);
    if (!GetParam().bytes) {
        EXPECT_EQ(outcome.failure, ProxyError::Case::invalidImageResponse);
    }
    EXPECT_NE(outcome.console.find(GetParam().consoleLine), std::string::npos) << outcome.console;
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ProxyResponseShapeTest,
    ::testing::Values(
        ShapeCase{
            "DataURLInImages",
            R"({"choices":[{"message":{"images":[{"image_url":{"url":"data:image/png;base64,QUJD"}}]}}]})",
            "ABC", "✅ Extracted image from message.images[].image_url.url (base64 data URL)\n"},
        ShapeCase{"B64JsonInImages",
                  R"({"choices":[{"message":{"images":[{"b64_json":"QUJD"}]}}]})", "ABC",
                  "✅ Extracted image from message.images[].b64_json\n"},
        ShapeCase{"HttpURLInImages",
                  R"({"choices":[{"message":{"images":[{"image_url":{"url":"{files}"}}]}}]})",
                  "DOWNLOADED", "🌐 Downloading image from URL: http://127.0.0.1:"},
        ShapeCase{"URLInContent", R"({"choices":[{"message":{"content":"{files}"}}]})",
                  "DOWNLOADED", "🌐 Downloading image from URL: http://127.0.0.1:"},
        ShapeCase{"DataWithoutChoices", R"({"data":[{"url":"{files}"}]})", std::nullopt,
                  "❌ Missing choices or message in response\n📄 Response structure:\n{\n"},
        ShapeCase{"ContentTextThenData",
                  R"({"choices":[{"message":{"content":"sorry"}}],"data":[{"url":"{files}"}]})",
                  "DOWNLOADED",
                  "📝 Message content: sorry...\n🌐 Downloading image from data[].url: "},
        ShapeCase{
            "DataURLWithoutCommaFallsThrough",
            R"({"choices":[{"message":{"images":[{"image_url":{"url":"data:image/png;base64"},"b64_json":"QUJD"}]}}]})",
            "ABC", "📝 Found image_url.url: data:image/png;base64...\n"},
        ShapeCase{"NoChoices", R"({"choices":[]})", std::nullopt,
                  "❌ Missing choices or message in response\n"},
        ShapeCase{"NothingUsable", R"({"choices":[{"message":{"content":"sorry","role":"x"}}]})",
                  std::nullopt,
                  "💬 Message keys: content, role\n📝 Message content: sorry...\n❌ Could not "
                  "extract image from any known format\n"},
        ShapeCase{"LooseBase64IsRefused",
                  R"({"choices":[{"message":{"images":[{"b64_json":"QU JD"}]}}]})", std::nullopt,
                  "❌ Could not extract image from any known format\n"},
        ShapeCase{"NotJson", "<html>", std::nullopt, "❌ Failed to parse JSON response\n"}),
    [](const ::testing::TestParamInfo<ShapeCase>& shape) { return std::string(shape.param.name); });

TEST_F(ProxyClientTest, RequestFormsAndModelIds) {
    answerWith(R"({"choices":[{"message":{"images":[{"b64_json":"QUJD"}]}}]})");
    const Bytes reference = toBytes("REF");
    const Bytes current = toBytes("CUR");
    client().generateImage("a lake", "openrouter/x");
    client().generateImage("relight", reference, "OpenRouter/x");
    client().editImage("fix", reference, current, "local/openrouter/x");

    const auto seen = proxyRequests();
    ASSERT_EQ(seen.size(), 3u);
    for (const auto& request : seen) {
        EXPECT_EQ(request.authorization, "Bearer T1");
        EXPECT_EQ(request.contentType, "application/json");
    }
    EXPECT_EQ(Json::parse(seen[0].body), Json::parse(R"({"model":"x","messages":[{"role":"user",
        "content":"a lake"}],"modalities":["image","text"]})"));
    EXPECT_EQ(Json::parse(seen[1].body),
              Json::parse(R"({"model":"OpenRouter/x","messages":[{"role":"user",
        "content":[{"type":"text","text":"relight"},{"type":"image_url","image_url":{"url":")" +
                          pngDataURL(reference) + R"("}}]}],
        "modalities":["image","text"]})"));
    EXPECT_EQ(Json::parse(seen[2].body),
              Json::parse(R"({"model":"local/openrouter/x","messages":[{"role":"user",
        "content":[{"type":"text","text":"fix"},
          {"type":"image_url","image_url":{"url":")" +
                          pngDataURL(reference) + R"(","detail":"high"}},
          {"type":"image_url","image_url":{"url":")" +
                          pngDataURL(current) + R"(","detail":"high"}}]}],
        "modalities":["image","text"]})"));
    EXPECT_EQ(seen[0].body.find('\n'), std::string::npos); // not pretty-printed
}

TEST_F(ProxyClientTest, RetriesOnceAfter401) {
    std::atomic<int> calls{0};
    answer([&](const SeenRequest&, httplib::Response& r) {
        if (++calls == 1)
            return replyJson(r, "expired", 401);
        replyJson(r, R"({"choices":[{"message":{"images":[{"b64_json":"QUJD"}]}}]})");
    });
    const auto outcome = run();
    EXPECT_EQ(outcome.bytes, "ABC");
    EXPECT_EQ(proxyRequests().size(), 2u);
    EXPECT_NE(outcome.console.find("⚠️  Token expired, retrying with fresh token...\n"),
              std::string::npos);
}

TEST_F(ProxyClientTest, Second401IsFinal) {
    answerWith("expired", 401);
    const auto outcome = run();
    EXPECT_EQ(outcome.failure, ProxyError::Case::unauthorized);
    EXPECT_EQ(proxyRequests().size(), 2u);
    EXPECT_EQ(ProxyError::unauthorized().description(), "Unauthorized - token expired");
}

TEST_F(ProxyClientTest, ServerErrorKeepsBodyAndIsNotRetried) {
    answerWith("Bad gateway: upstream timed out", 502);
    ::testing::internal::CaptureStdout();
    try {
        client().generateImage("a lake", "m");
        FAIL();
    } catch (const ProxyError& error) {
        EXPECT_EQ(error.kind(), ProxyError::Case::serverError);
        EXPECT_EQ(error.status(), 502);
        EXPECT_EQ(error.description(), "Server error 502: Bad gateway: upstream timed out");
    }
    const auto console = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(console.find("❌ Proxy error (502): Bad gateway: upstream timed out\n"),
              std::string::npos);
    EXPECT_EQ(proxyRequests().size(), 1u);

    answerWith(R"({"choices":[{"message":{"images":[{"b64_json":"QUJD"}]}}]})", 201);
    EXPECT_EQ(run().failure, ProxyError::Case::serverError); // only 200 is success
}

TEST_F(ProxyClientTest, BadAddressSendsNothing) {
    OpenRouterProxyClient broken("not a url", defaults);
    try {
        broken.generateImage("p", "m");
        FAIL();
    } catch (const ProxyError& error) {
        EXPECT_EQ(error.description(), "Invalid server URL");
    }
}

TEST_F(ProxyClientTest, TokenFailurePassesThroughAndSendsNothing) {
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, "down", 503); });
    EXPECT_THROW(client().generateImage("p", "m"), TokenError);
    EXPECT_TRUE(proxyRequests().empty());
}

class SlowProxyTest : public ProxyClientTest {
protected:
    SlowProxyTest() {
        answer([this](const SeenRequest&, httplib::Response& r) {
            arrived.open();
            release.wait();
            replyJson(r, "{}");
        });
    }
    ~SlowProxyTest() override { release.open(); }
    Gate arrived;
    Gate release;
};

TEST_F(SlowProxyTest, TimesOut) {
    NetworkSession session;
    session.maximumTimeout = std::chrono::milliseconds(300);
    auto slow = client(session);
    try {
        slow.generateImage("p", "m");
        FAIL();
    } catch (const platform::HttpError& error) {
        EXPECT_EQ(error.kind(), platform::HttpError::Kind::timedOut);
    }
}

TEST_F(SlowProxyTest, StopCancelsTheRequest) {
    auto proxy = client();
    std::stop_source stop;
    auto call = std::async(std::launch::async,
                           [&] { return proxy.generateImage("p", "m", stop.get_token()); });
    ASSERT_TRUE(arrived.wait());
    stop.request_stop();
    ASSERT_EQ(call.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_THROW(call.get(), platform::CancellationError);
}

} // namespace
} // namespace lumivesper::generation
