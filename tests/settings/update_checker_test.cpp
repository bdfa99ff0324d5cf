#include "loopback_feed.h"
#include "settings/update_checker.h"

#include <gtest/gtest.h>

namespace lumivesper::settings {
namespace {

std::string appcastWith(const std::string& version, const std::string& displayVersion) {
    return R"(<?xml version="1.0"?><rss version="2.0" xmlns:u="urn:example:updates"><channel>)"
           "<item><title>Release</title><enclosure url=\"https://example.test/a.tar.gz\" "
           "u:version=\"" +
           version + "\" u:shortVersionString=\"" + displayVersion + "\"/></item></channel></rss>";
}

struct Outcome {
    UpdateCheckKind kind;
    std::optional<AppcastItem> update;
    std::optional<UpdateCheckError::Kind> failure;
};

class RecordingDelegate : public UpdaterDelegate {
public:
    std::string feedURLString() override {
        std::lock_guard lock(mutex);
        ++feedRequests;
        return feedURLs.size() > 1 ? take() : feedURLs.front();
    }
    void didFindValidUpdate(const AppcastItem& item, UpdateCheckKind kind) override {
        outcomes.push_back({kind, item, std::nullopt});
    }
    void didNotFindUpdate(UpdateCheckKind kind) override {
        outcomes.push_back({kind, std::nullopt, std::nullopt});
    }
    void didAbortWithError(const UpdateCheckError& error, UpdateCheckKind kind) override {
        EXPECT_FALSE(error.description().empty());
        outcomes.push_back({kind, std::nullopt, error.kind()});
    }

    std::mutex mutex;
    std::vector<std::string> feedURLs; // asked in turn; the last one stays
    int feedRequests = 0;
    std::vector<Outcome> outcomes; // main thread only

private:
    std::string take() {
        std::string url = feedURLs.front();
        feedURLs.erase(feedURLs.begin());
        return url;
    }
};

class UpdateCheckerTest : public ::testing::Test {
protected:
    UpdateCheckerTest() { delegate.feedURLs = {feed.baseURL() + "/api/updates/appcast.xml"}; }

    std::unique_ptr<UpdateChecker> makeChecker(const std::string& currentVersion = "120") {
        UpdateCheckerOptions options;
        options.timeout = std::chrono::seconds(5);
        return std::make_unique<UpdateChecker>(delegate, mainThread, currentVersion, options);
    }

    bool waitForOutcomes(std::size_t count) {
        return mainThread.runUntil([&] { return delegate.outcomes.size() >= count; },
                                   std::chrono::seconds(15));
    }

    testing::LoopbackFeed feed;
    RecordingDelegate delegate;
    platform::QueuedMainThread mainThread;
};

TEST_F(UpdateCheckerTest, NewerReleaseIsFound) {
    feed.serve(appcastWith("130", "1.3"));
    auto checker = makeChecker("120");
    checker->checkForUpdates();
    ASSERT_TRUE(waitForOutcomes(1));
    const Outcome& outcome = delegate.outcomes[0];
    EXPECT_EQ(outcome.kind, UpdateCheckKind::userInitiated);
    ASSERT_TRUE(outcome.update);
    EXPECT_EQ(outcome.update->displayVersion, "1.3");
    EXPECT_EQ(outcome.update->version, "130");
    EXPECT_EQ(feed.paths(), std::vector<std::string>{"/api/updates/appcast.xml"});
}

TEST_F(UpdateCheckerTest, SameOrOlderReleaseIsNotAnUpdate) {
    feed.serve(appcastWith("120", "1.2"));
    auto checker = makeChecker("120");
    checker->checkForUpdates();
    ASSERT_TRUE(waitForOutcomes(1));
    EXPECT_EQ(delegate.outcomes[0].update, std::nullopt);
    EXPECT_EQ(delegate.outcomes[0].failure, std::nullopt);
}

TEST_F(UpdateCheckerTest, FailuresAreReportedByKind) {
    const std::vector<std::pair<std::pair<std::string, int>, UpdateCheckError::Kind>> cases = {
        {{"<html><body>Maintenance</body></html>", 200}, UpdateCheckError::Kind::malformedFeed},
        {{"<rss><channel><item>", 200}, UpdateCheckError::Kind::malformedFeed},
        {{appcastWith("130", "1.3"), 404}, UpdateCheckError::Kind::badStatus},
    };
    auto checker = makeChecker();
    for (std::size_t i = 0; i < cases.size(); ++i) {
        feed.serve(cases[i].first.first, cases[i].first.second);
        checker->checkForUpdates();
        ASSERT_TRUE(waitForOutcomes(i + 1));
        EXPECT_EQ(delegate.outcomes[i].failure, cases[i].second) << cases[i].first.first;
        EXPECT_EQ(delegate.outcomes[i].update, std::nullopt);
    }
}

TEST_F(UpdateCheckerTest, UnreachableFeedIsReported) {
    std::string closedURL;
    {
        testing::LoopbackFeed gone;
        closedURL = gone.baseURL() + "/api/updates/appcast.xml";
    }
    delegate.feedURLs = {closedURL};
    auto checker = makeChecker();
    checker->checkForUpdatesInBackground();
    ASSERT_TRUE(waitForOutcomes(1));
    EXPECT_EQ(delegate.outcomes[0].failure, UpdateCheckError::Kind::feedUnreachable);
    EXPECT_EQ(delegate.outcomes[0].kind, UpdateCheckKind::background);
}

TEST_F(UpdateCheckerTest, FeedURLIsAskedForAtEveryCheck) {
    feed.serve(appcastWith("100", "1.0"));
    delegate.feedURLs = {feed.baseURL() + "/first.xml", feed.baseURL() + "/second.xml"};
    auto checker = makeChecker();
    checker->checkForUpdates();
    ASSERT_TRUE(waitForOutcomes(1));
    checker->checkForUpdates();
    ASSERT_TRUE(waitForOutcomes(2));
    EXPECT_EQ(feed.paths(), (std::vector<std::string>{"/first.xml", "/second.xml"}));
    EXPECT_EQ(delegate.feedRequests, 2);
}

TEST_F(UpdateCheckerTest, StartingChecksInTheBackgroundAtOnce) {
    feed.serve(appcastWith("130", "1.3"));
    auto checker = makeChecker();
    checker->startUpdater();
    ASSERT_TRUE(waitForOutcomes(1));
    EXPECT_EQ(delegate.outcomes[0].kind, UpdateCheckKind::background);
}

TEST_F(UpdateCheckerTest, ResetDropsTheRunningCheck) {
    feed.serve(appcastWith("130", "1.3"));
    feed.hold();
    auto checker = makeChecker();
    checker->checkForUpdatesInBackground();
    ASSERT_TRUE(feed.waitForRequests(1));

    checker->resetUpdateCycle();
    checker->checkForUpdates();
    feed.release();

    ASSERT_TRUE(waitForOutcomes(1));
    mainThread.drain();
    ASSERT_EQ(delegate.outcomes.size(), 1u);
    EXPECT_EQ(delegate.outcomes[0].kind, UpdateCheckKind::userInitiated);
}

TEST_F(UpdateCheckerTest, DestroyedCheckerReportsNothing) {
    feed.serve(appcastWith("130", "1.3"));
    feed.hold();
    auto checker = makeChecker();
    checker->checkForUpdates();
    ASSERT_TRUE(feed.waitForRequests(1));
    checker.reset();
    feed.release();
    mainThread.drain();
    EXPECT_TRUE(delegate.outcomes.empty());
}

} // namespace
} // namespace lumivesper::settings
