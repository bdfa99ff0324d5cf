#include "../support/temporary_folder.h"
#include "document/json_coding.h"
#include "generation/token_manager.h"
#include "loopback_server.h"
#include "platform/cancellation.h"
#include "platform/uuid.h"
#include "test_clock.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumivesper::generation {
namespace {

using testing::Gate;
using testing::LoopbackServer;
using testing::TestClock;

class TokenManagerTest : public ::testing::Test {
protected:
    TokenManagerTest() {
        server.server.Post(
            "/api/token", [this](const httplib::Request& request, httplib::Response& response) {
                const int number = ++posts;
                {
                    std::lock_guard lock(mutex);
                    bodies.push_back(request.body);
                }
                if (holdResponses)
                    release.wait();
                if (status != 200) {
                    response.status = status;
                    return response.set_content("no", "text/plain");
                }
                response.set_content(R"({"token":"T)" + std::to_string(number) +
                                         R"(","expiresIn":)" + std::to_string(expiresIn) + "}",
                                     "application/json");
            });
        server.start();
    }
    ~TokenManagerTest() override { release.open(); }

    TokenManager makeManager() {
        return TokenManager(server.url(), defaults, {}, clock.function());
    }
    std::string lastBody() {
        std::lock_guard lock(mutex);
        return bodies.back();
    }

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    TestClock clock;
    Gate release;
    std::atomic<int> posts{0};
    std::atomic<bool> holdResponses{false};
    std::atomic<int> status{200};
    std::atomic<int> expiresIn{3600};
    std::mutex mutex;
    std::vector<std::string> bodies;
    LoopbackServer server; // last: stopped first
};

TEST_F(TokenManagerTest, ConcurrentCallersShareOneFetch) {
    holdResponses = true;
    auto manager = makeManager();
    std::vector<std::future<std::string>> callers;
    for (int i = 0; i < 3; ++i)
        callers.push_back(std::async(std::launch::async, [&] { return manager.validToken(); }));
    // Each caller reads the clock under the lock, just before it joins the fetch in flight.
    ASSERT_TRUE(clock.waitForReads(3));
    release.open();
    for (auto& caller : callers)
        EXPECT_EQ(caller.get(), "T1");
    EXPECT_EQ(posts, 1);
    EXPECT_EQ(manager.validToken(), "T1");
    EXPECT_EQ(posts, 1);
}

TEST_F(TokenManagerTest, ConcurrentCallersShareOneFailure) {
    holdResponses = true;
    status = 500;
    auto manager = makeManager();
    std::vector<std::future<std::string>> callers;
    for (int i = 0; i < 3; ++i)
        callers.push_back(std::async(std::launch::async, [&] { return manager.validToken(); }));
    ASSERT_TRUE(clock.waitForReads(3));
    release.open();
    for (auto& caller : callers) {
        try {
            caller.get();
            ADD_FAILURE() << "no failure";
        } catch (const TokenError& error) {
            EXPECT_EQ(error.kind(), TokenError::Case::serverError);
            EXPECT_EQ(error.description(), "Server error: 500");
        }
    }
    EXPECT_EQ(posts, 1);

    status = 200; // a failure is not cached: the next call fetches afresh
    EXPECT_EQ(manager.validToken(), "T2");
}

TEST_F(TokenManagerTest, TokenInsideTheBufferIsFetchedAtEveryCall) {
    expiresIn = 600;
    auto manager = makeManager();
    EXPECT_EQ(manager.validToken(), "T1");
    EXPECT_EQ(manager.validToken(), "T2");
    EXPECT_EQ(posts, 2);
}

TEST_F(TokenManagerTest, CacheLastsUntilTenMinutesBeforeExpiry) {
    auto manager = makeManager();
    EXPECT_EQ(manager.validToken(), "T1");
    clock.advance(std::chrono::seconds(2999));
    EXPECT_EQ(manager.validToken(), "T1");
    clock.advance(std::chrono::seconds(2));
    EXPECT_EQ(manager.validToken(), "T2");
    EXPECT_EQ(posts, 2);
}

TEST_F(TokenManagerTest, RequestCarriesPersistentDeviceId) {
    makeManager().validToken();
    const auto first = nlohmann::json::parse(lastBody());
    EXPECT_EQ(first.size(), 3u);
    EXPECT_EQ(first.at("bundleId"), "com.lumivesper.app");
    EXPECT_EQ(first.at("version"), LUMIVESPER_VERSION);
    const std::string id = first.at("deviceId");
    const auto parsed = platform::Uuid::parse(id);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->toString(), id); // upper case, hyphenated

    // A second run of the program reads the same store from disk.
    settings::Defaults reopened(folder.path() / "defaults.json");
    EXPECT_EQ(reopened.string(TokenManager::deviceIdKey), id);
    TokenManager(server.url(), reopened).validToken();
    EXPECT_EQ(nlohmann::json::parse(lastBody()).at("deviceId"), id);
}

TEST_F(TokenManagerTest, CancelledCallerLeavesTheFetchToOthers) {
    holdResponses = true;
    auto manager = makeManager();
    std::stop_source giveUp;
    auto impatient =
        std::async(std::launch::async, [&] { return manager.validToken(giveUp.get_token()); });
    auto patient = std::async(std::launch::async, [&] { return manager.validToken(); });
    ASSERT_TRUE(clock.waitForReads(2));
    giveUp.request_stop();
    ASSERT_EQ(impatient.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_THROW(impatient.get(), platform::CancellationError);

    release.open();
    EXPECT_EQ(patient.get(), "T1");
    EXPECT_EQ(manager.validToken(), "T1");
    EXPECT_EQ(posts, 1);
}

TEST_F(TokenManagerTest, BadAddressAndBadBody) {
    TokenManager broken("not a server", defaults);
    try {
        broken.validToken();
        FAIL();
    } catch (const TokenError& error) {
        EXPECT_EQ(error.kind(), TokenError::Case::invalidURL);
        EXPECT_EQ(error.description(), "Invalid server URL");
    }
    EXPECT_EQ(posts, 0);

    LoopbackServer garbled;
    garbled.server.Post("/api/token", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(R"({"token":"x"})", "application/json");
    });
    garbled.start();
    EXPECT_THROW(TokenManager(garbled.url(), defaults).validToken(), document::DecodingError);
}

} // namespace
} // namespace lumivesper::generation
