#include "../support/temporary_folder.h"
#include "generation/base64.h"
#include "generation/bundled_resources.h"
#include "generation/prompt_manager.h"
#include "generation/token_manager.h"
#include "loopback_server.h"
#include "platform/cancellation.h"
#include "platform/uuid.h"

#include <atomic>
#include <future>
#include <nlohmann/json.hpp>

namespace lumivesper::generation {
namespace {

std::string promptsJson(const std::string& version, const std::string& letter) {
    return R"({"version":")" + version + R"(","updated":"2026-01-01","templates":{"original":")" +
           letter + R"( {userPrompt}","relight":")" + letter + R"( {phaseDescription}"}})";
}

class ServerCacheTest : public ::testing::Test {
protected:
    ServerCacheTest() {
        // Numbers its tokens "T1", "T2", ... in the order the requests arrive.
        server.respond([this](const testing::SeenRequest&, httplib::Response& r) {
            const nlohmann::json answer{{"token", "T" + std::to_string(++posts)},
                                        {"expiresIn", expiresIn.load()}};
            if (holdResponses)
                release.wait();
            testing::replyJson(r, answer.dump(), status);
        });
    }
    ~ServerCacheTest() override { release.open(); }

    TokenManager tokenManager() {
        return TokenManager(server.url(), defaults, {}, [this] { return clock.now(); });
    }
    // Three callers that each read the clock under the lock before the one fetch is answered;
    // the first may be told to give up.
    std::vector<std::future<std::string>> threeCallers(TokenManager& manager,
                                                       std::stop_token first = {}) {
        holdResponses = true;
        std::vector<std::future<std::string>> callers;
        for (std::stop_token stop : {first, std::stop_token(), std::stop_token()})
            callers.push_back(std::async(std::launch::async,
                                         [&manager, stop] { return manager.validToken(stop); }));
        EXPECT_TRUE(clock.waitForReads(3));
        return callers;
    }
    PromptManager promptManager() {
        const auto bundled = [] { return std::optional(promptsJson("b1", "B")); };
        return PromptManager(server.url(), defaults, {}, bundled, [this] { return clock.now(); });
    }
    nlohmann::json lastBody() const { return nlohmann::json::parse(server.seen().back().body); }

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    testing::TestClock clock;
    testing::Gate release;
    std::atomic<int> posts{0}, status{200}, expiresIn{3600};
    std::atomic<bool> holdResponses{false};
    testing::RecordingServer server; // last: stopped first
};

TEST_F(ServerCacheTest, TokenConcurrentCallersShareOneFetchThatOneOfThemMayLeave) {
    auto manager = tokenManager();
    std::stop_source giveUp;
    auto callers = threeCallers(manager, giveUp.get_token());
    giveUp.request_stop();
    ASSERT_EQ(callers[0].wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_THROW(callers[0].get(), platform::CancellationError);
    release.open();
    EXPECT_EQ(callers[1].get() + callers[2].get(), "T1T1");
    EXPECT_EQ(manager.validToken(), "T1");
    EXPECT_EQ(posts, 1);
}

TEST_F(ServerCacheTest, TokenConcurrentCallersShareOneFailure) {
    status = 500;
    auto manager = tokenManager();
    auto callers = threeCallers(manager);
    release.open();
    for (auto& caller : callers)
        EXPECT_EQ(testing::failureText<TokenError>([&] { caller.get(); }), "Server error: 500");
    EXPECT_EQ(posts, 1);
    status = 200; // a failure is not cached: the next call fetches afresh
    EXPECT_EQ(manager.validToken(), "T2");
}

TEST_F(ServerCacheTest, TokenCacheLastsUntilTenMinutesBeforeExpiry) {
    auto manager = tokenManager();
    EXPECT_EQ(manager.validToken(), "T1");
    clock.advance(std::chrono::seconds(2999));
    EXPECT_EQ(manager.validToken(), "T1");
    clock.advance(std::chrono::seconds(2));
    EXPECT_EQ(manager.validToken(), "T2");

    expiresIn = 600; // expired on arrival: fetched at every call
    clock.advance(std::chrono::seconds(3001));
    EXPECT_EQ(manager.validToken(), "T3");
    EXPECT_EQ(manager.validToken(), "T4");
}

TEST_F(ServerCacheTest, TokenRequestCarriesPersistentDeviceId) {
    tokenManager().validToken();
    const std::string id = lastBody().value("deviceId", "");
    EXPECT_EQ(platform::Uuid::parse(id).value().toString(), id); // upper case, hyphenated
    EXPECT_EQ(lastBody(), (nlohmann::json{{"bundleId", "com.lumivesper.app"},
                                          {"version", LUMIVESPER_VERSION},
                                          {"deviceId", id}}));

    // A second run of the program reads the same store from disk.
    settings::Defaults reopened(folder.path() / "defaults.json");
    TokenManager(server.url(), reopened).validToken();
    EXPECT_EQ(lastBody().at("deviceId"), id);

    EXPECT_EQ(testing::failureText<TokenError>(
                  [&] { TokenManager("not a server", defaults).validToken(); }),
              "Invalid server URL");
    EXPECT_EQ(posts, 2);
}

TEST_F(ServerCacheTest, PromptsFromDefaultsCopyThenServerThenBundledCopy) {
    defaults.setData(PromptManager::cacheKey, toBytes(promptsJson("5", "D")));
    server.answerWith(promptsJson("7", "S"));
    auto manager = promptManager();
    EXPECT_EQ(manager.prompts().version, "5"); // fresh at start
    clock.advance(std::chrono::seconds(3599));
    EXPECT_EQ(manager.prompts().version, "5");
    EXPECT_TRUE(server.seen().empty());
    clock.advance(std::chrono::seconds(2));
    EXPECT_EQ(manager.prompts().templates.relight, "S {phaseDescription}");
    EXPECT_EQ(server.seen().at(0).method + " " + server.seen().at(0).path, "GET /api/prompts");
    EXPECT_EQ(defaults.data(PromptManager::cacheKey), toBytes(promptsJson("7", "S")));

    server.answerWith("down", 503);
    clock.advance(std::chrono::seconds(3599));
    EXPECT_EQ(manager.prompts().version, "7");
    clock.advance(std::chrono::seconds(2));
    EXPECT_EQ(manager.prompts().version, "b1"); // a stale copy loses to the bundled one
    EXPECT_EQ(server.seen().size(), 2u);
}

TEST_F(ServerCacheTest, PromptsAnswerWithoutTemplatesFallsToBundledCopy) {
    server.answerWith(R"({"version":"2"})");
    auto manager = promptManager();
    const auto console =
        testing::capturedStdout([&] { EXPECT_EQ(manager.prompts().version, "b1"); });
    EXPECT_NE(console.find("⚠️  Failed to fetch prompts from server: "), std::string::npos);
    EXPECT_NE(console.find("✅ Using bundled prompts (vb1)"), std::string::npos);
    EXPECT_FALSE(defaults.data(PromptManager::cacheKey));
    manager.prompts(); // a failure caches nothing: the server is asked again
    EXPECT_EQ(server.seen().size(), 2u);
}

TEST(PromptTemplatesTest, ShippedFileDecodesWithBothPlaceholdersAndRenders) {
    const auto templates = decodePromptTemplates(bundledDefaultPrompts().value());
    EXPECT_NE(templates.templates.original.find("{userPrompt}"), std::string::npos);
    EXPECT_NE(templates.templates.relight.find("{phaseDescription}"), std::string::npos);
    EXPECT_EQ(decodePromptTemplates(std::string(embeddedDefaultPrompts())), templates);
    EXPECT_EQ(render("{a}{a} {b}", {{"a", "{b}"}}), "{b}{b} {b}"); // one literal pass
}

} // namespace
} // namespace lumivesper::generation
