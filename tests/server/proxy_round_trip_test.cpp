// The program's own proxy client against the real server and a stand-in for OpenRouter.

#include "generation/client_side_image_generator.h"
#include "generation/proxy_error.h"
#include "generation/request_text.h"
#include "server_fixture.h"

#include <atomic>
#include <fstream>
#include <httplib.h>

namespace lumivesper::server::testing {
namespace {

using namespace std::chrono_literals;
using generation::ProxyError;
using generation::testing::capturedStdout;
using generation::testing::failureText;
using generation::testing::Gate;
using generation::testing::replyJson;
using generation::testing::thrown;

std::string imageAnswer(const std::string& bytes) {
    return R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
           generation::pngDataURL(generation::toBytes(bytes)) + R"("}}]}}]})";
}

class ProxyRoundTrip : public ServerTest {
protected:
    void answerWithImages() {
        provider.respond([this](const auto&, httplib::Response& response) {
            replyJson(response, imageAnswer("img:" + std::to_string(++answered)));
        });
    }
    std::atomic<int> answered{0};
};

TEST_F(ProxyRoundTrip, FetchesOneTokenAndPassesEveryAnswerShapeThroughWithTheOperatorsKey) {
    start();
    const std::string download = provider.url() + "/files/frame.png";
    const std::vector<std::pair<std::string, std::string>> shapes = {
        {R"({"choices":[{"message":{"images":[{"image_url":{"url":"data:image/png;base64,QUJD"}}]}}]})",
         "ABC"},
        {R"({"choices":[{"message":{"images":[{"b64_json":"REVG"}]}}]})", "DEF"},
        {R"({"choices":[{"message":{"content":")" + download + R"("}}]})",
         generation::testing::tinyPng()},
    };
    std::atomic<std::size_t> shape{0};
    provider.respond([&](const generation::testing::SeenRequest& seen, httplib::Response& r) {
        if (seen.path == "/files/frame.png")
            return r.set_content(generation::testing::tinyPng(), "image/png");
        replyJson(r, shapes.at(shape++).first);
    });

    const auto proxy = client();
    for (const auto& [answer, image] : shapes)
        EXPECT_EQ(generation::toText(proxy->generateImage("a lake", "openrouter/vendor/model")),
                  image);

    expectStatuses("/api/token", {200});
    expectStatuses(proxyPath, std::vector<int>(3, 200));
    const auto forwarded = provider.seen(providerPath);
    ASSERT_EQ(forwarded.size(), 3u);
    for (const auto& request : forwarded) {
        EXPECT_EQ(request.authorization, std::string("Bearer ") + operatorKey);
        EXPECT_EQ(request.title, "Lumivesper AI");
        EXPECT_EQ(nlohmann::json::parse(request.body)["model"], "vendor/model");
    }
}

TEST_F(ProxyRoundTrip, RunsAWholeTimelineWithTheOperatorsPromptsAndLogsNoSecrets) {
    const auto promptsFile = folder.path() / "prompts.json";
    std::ofstream(promptsFile) << R"({"version":"op-7","updated":"today","templates":{
        "original":"OPERATOR {userPrompt}","relight":"RELIGHT {phaseDescription}"}})";
    start([&](ServerOptions& options) { options.promptsFile = promptsFile; });
    answerWithImages();

    generation::ClientSideImageGenerator generator(server->url(), defaults);
    const auto images = generator.generateTimeline("a lake", "openrouter/vendor/model", {});

    ASSERT_EQ(images.size(), 11u);
    const auto forwarded = provider.seen(providerPath);
    ASSERT_EQ(forwarded.size(), 11u);
    EXPECT_EQ(nlohmann::json::parse(forwarded[0].body)["messages"][0]["content"],
              "OPERATOR a lake");
    const std::string baseFrame = generation::pngDataURL(images[0].data);
    for (std::size_t i = 1; i < forwarded.size(); ++i) {
        const auto content = nlohmann::json::parse(forwarded[i].body)["messages"][0]["content"];
        EXPECT_TRUE(content[0]["text"].get<std::string>().starts_with("RELIGHT ")) << i;
        EXPECT_EQ(content[1]["image_url"]["url"], baseFrame) << i;
    }
    // Three requests at once shared one token fetch.
    expectStatuses("/api/token", {200});
    expectStatuses("/api/prompts", {200});
    expectStatuses(proxyPath, std::vector<int>(11, 200));

    const std::string token = generator.proxyClient.tokenManager->validToken();
    const std::string imageText = generation::encodeBase64(images[0].data);
    for (const auto& line : logLines()) {
        EXPECT_EQ(line.find(operatorKey), std::string::npos) << line;
        EXPECT_EQ(line.find(token), std::string::npos) << line;
        EXPECT_EQ(line.find(imageText), std::string::npos) << line;
        EXPECT_EQ(line.find(tokenSecret), std::string::npos) << line;
    }
}

TEST_F(ProxyRoundTrip, ATokenThatExpiresInFlightIsRenewedByTheClientsOneRetry) {
    // A lifetime inside the client's renewal margin: the retry fetches a fresh token.
    start([](ServerOptions& options) { options.tokenLifetime = 300s; });
    answerWithImages();
    clock.stepAfterNextRead(400s); // the first token has aged past its end when it is shown

    std::string image;
    const auto output = capturedStdout(
        [&] { image = generation::toText(client()->generateImage("a lake", "vendor/model")); });

    EXPECT_EQ(image, "img:1");
    EXPECT_NE(output.find("Token expired, retrying with fresh token"), std::string::npos);
    expectStatuses("/api/token", {200, 200});
    expectStatuses(proxyPath, {401, 200});
    EXPECT_EQ(requestsTo(proxyPath)[0]["auth"], "expired");
}

TEST_F(ProxyRoundTrip, AnExpiredTokenTheClientStillTrustsEndsInUnauthorized) {
    start();
    answerWithImages();
    clock.stepAfterNextRead(3700s);

    EXPECT_EQ(failureText<ProxyError>([&] { client()->generateImage("a lake", "vendor/model"); }),
              "Unauthorized - token expired");
    expectStatuses("/api/token", {200});
    expectStatuses(proxyPath, {401, 401});
    EXPECT_TRUE(provider.seen(providerPath).empty());
}

TEST_F(ProxyRoundTrip, RefusesForgedAndMissingTokensWithoutAskingTheProvider) {
    start();
    answerWithImages();
    const DeviceTokenSigner ours(tokenSecret, 3600s);
    const DeviceTokenSigner theirs(std::string(40, 'x'), 3600s);
    const std::string genuine = ours.issue("DEVICE-1");
    const std::string otherPayload = ours.issue("DEVICE-2").substr(0, genuine.find('.'));
    const std::string signature = genuine.substr(genuine.find('.'));

    httplib::Client http("127.0.0.1", server->port());
    const std::string body = R"({"model":"m","messages":[{"role":"user","content":"x"}]})";
    const std::vector<std::string> refused = {
        "",
        "Basic " + genuine,
        "Bearer ",
        "Bearer nonsense",
        "Bearer " + theirs.issue("DEVICE-1"),
        "Bearer " + otherPayload + signature,
        "Bearer " + genuine + "A",
    };
    for (const auto& authorization : refused) {
        httplib::Headers headers;
        if (!authorization.empty())
            headers.emplace("Authorization", authorization);
        const auto result = http.Post(proxyPath, headers, body, "application/json");
        ASSERT_TRUE(result) << authorization;
        EXPECT_EQ(result->status, 401) << authorization;
    }
    EXPECT_TRUE(provider.seen(providerPath).empty());

    const auto accepted =
        http.Post(proxyPath, {{"Authorization", "Bearer " + genuine}}, body, "application/json");
    ASSERT_TRUE(accepted);
    EXPECT_EQ(accepted->status, 200);
}

TEST_F(ProxyRoundTrip, ABurstBeyondTheDeviceLimitGets429WithRetryAfter) {
    start([](ServerOptions& options) {
        options.proxyBurst = 3;
        options.proxyPerHour = 2;
    });
    answerWithImages();
    const auto proxy = client();
    for (int i = 0; i < 3; ++i)
        proxy->generateImage("a lake", "vendor/model");

    const auto refused =
        thrown<ProxyError>([&] { proxy->generateImage("a lake", "vendor/model"); });
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status(), 429);
    EXPECT_NE(refused->body().find("try again in"), std::string::npos) << refused->body();

    httplib::Client http("127.0.0.1", server->port());
    const auto raw =
        http.Post(proxyPath, {{"Authorization", "Bearer " + proxy->tokenManager->validToken()}},
                  "{}", "application/json");
    ASSERT_TRUE(raw);
    EXPECT_EQ(raw->status, 429);
    const int retryAfter = std::stoi(raw->get_header_value("Retry-After"));
    EXPECT_GE(retryAfter, 1);
    EXPECT_LE(retryAfter, 1800); // one request every half hour

    // The limit is the device's: another device still gets through.
    lumivesper::testing::TemporaryFolder otherFolder;
    settings::Defaults otherDefaults(otherFolder.path() / "defaults.json");
    generation::OpenRouterProxyClient otherDevice(server->url(), otherDefaults);
    EXPECT_EQ(generation::toText(otherDevice.generateImage("a lake", "vendor/model")), "img:4");
    EXPECT_EQ(provider.seen(providerPath).size(), 4u);
}

TEST_F(ProxyRoundTrip, ProviderFailuresReachTheClientAsServerErrorsItCanShow) {
    start([](ServerOptions& options) { options.providerTimeout = 300ms; });
    Gate release;
    struct Case {
        const char* what;
        std::function<void(httplib::Response&)> answer;
        int status;
        const char* says;
    };
    const Case cases[] = {
        {"provider failure", [](auto& r) { replyJson(r, "upstream exploded", 500); }, 502,
         "The image provider failed (status 500): upstream exploded"},
        {"operator's key refused", [](auto& r) { replyJson(r, R"({"error":{}})", 401); }, 502,
         "refused this server's account"},
        {"bad request",
         [](auto& r) { replyJson(r, R"({"error":{"message":"no such model"}})", 400); }, 400,
         "rejected the request: no such model"},
        {"error inside a 200", [](auto& r) { replyJson(r, R"({"error":{"message":"policy"}})"); },
         502, "reported an error: policy"},
        {"time-out",
         [&](auto& r) {
             release.wait();
             replyJson(r, imageAnswer("late"));
         },
         504, "did not answer within 1 seconds"},
    };
    const auto proxy = client();
    for (const auto& c : cases) {
        provider.respond([&](const auto&, httplib::Response& r) { c.answer(r); });
        const auto error = thrown<ProxyError>([&] { proxy->generateImage("a lake", "m/x"); });
        ASSERT_TRUE(error) << c.what;
        EXPECT_EQ(error->kind(), ProxyError::Case::serverError) << c.what;
        EXPECT_EQ(error->status(), c.status) << c.what;
        EXPECT_NE(error->description().find(c.says), std::string::npos) << error->description();
    }
    release.open();
    // No case was retried: the provider's 401 is not the device's.
    EXPECT_EQ(statusesOf(proxyPath, std::size(cases)).size(), std::size(cases));
}

} // namespace
} // namespace lumivesper::server::testing
