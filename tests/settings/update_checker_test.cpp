#include "loopback_feed.h"
#include "settings/update_checker.h"

#include <gtest/gtest.h>

namespace lumivesper::settings {
namespace {

using namespace std::chrono_literals;
using testing::appcastWith;
using testing::LoopbackFeed;
using testing::waitFor;

TEST(CompareVersions, OrdersReleasesAsPeopleNumberThem) {
    // Two versions and the sign of their comparison.
    const std::tuple<const char*, const char*, int> cases[] = {
        {"2", "1", 1},         {"10", "9", 1},        {"1.10", "1.9", 1},
        {"1.0.1", "1.0", 1},   {"1.0", "1.0b1", 1},   {"1.0b2", "1.0b1", 1},
        {"1.0.1", "1.0b5", 1}, {"0.2.0", "0.1.9", 1}, {"100000000000000000000", "99999999999", 1},
        {"1.0", "1.0.0", 0},   {"1-2", "1.2", 0},     {"007", "7", 0}};
    const auto sign = [](int value) { return (value > 0) - (value < 0); };
    for (const auto& [a, b, expected] : cases) {
        EXPECT_EQ(sign(compareVersions(a, b)), expected) << a << " vs " << b;
        EXPECT_EQ(sign(compareVersions(b, a)), -expected) << b << " vs " << a;
    }
}

constexpr const char* feed = R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:upd="urn:example:updates"><channel>
  <item><upd:releaseNotesLink> https://example.test/notes/1.2 </upd:releaseNotesLink>
    <enclosure url="https://example.test/1.2.tar.gz" upd:version="120" upd:shortVersionString="1.2"/>
  </item>
  <item><upd:version>130</upd:version><upd:shortVersionString>1.3</upd:shortVersionString></item>
  <item><title>No version at all</title></item><item><upd:version>90</upd:version></item>
</channel></rss>)";

TEST(Appcast, ReadsVersionsFromElementsOrEnclosureAndPicksTheNewest) {
    const auto items = parseAppcast(feed);
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].version, "120");
    EXPECT_EQ(items[0].displayVersion, "1.2");
    EXPECT_EQ(items[0].downloadURL, "https://example.test/1.2.tar.gz");
    EXPECT_EQ(items[0].releaseNotesURL, "https://example.test/notes/1.2");
    EXPECT_EQ(items[1].displayVersion, "1.3");
    EXPECT_EQ(items[2].displayVersion, "90"); // falls back on the version
    EXPECT_EQ(newestUpdate(items, "100")->version, "130");
    EXPECT_EQ(newestUpdate(items, "130"), std::nullopt);
}

TEST(Appcast, RejectsWhatIsNotAnRssChannel) {
    for (const char* text :
         {"", "not xml", "<rss><channel>", "<feed><entry/></feed>", "<rss version=\"2.0\"></rss>"})
        EXPECT_THROW(parseAppcast(text), AppcastError) << text;
    EXPECT_TRUE(parseAppcast("<rss><channel/></rss>").empty());
}

// Also the checker's delegate: hands out a new feed path at every check and records each verdict
// as text.
class UpdateCheckerTest : public ::testing::Test, public UpdaterDelegate {
protected:
    std::string feedURLString() override { return baseURL + "/check-" + std::to_string(++asked); }
    void didFindValidUpdate(const AppcastItem& item, UpdateCheckKind kind) override {
        record(kind, "found " + item.displayVersion + " (" + item.version + ")");
    }
    void didNotFindUpdate(UpdateCheckKind kind) override { record(kind, "none"); }
    void didAbortWithError(const UpdateCheckError& error, UpdateCheckKind kind) override {
        EXPECT_FALSE(error.description().empty());
        const char* names[] = {"unreachable", "bad status", "malformed"};
        record(kind, names[static_cast<int>(error.kind())]);
    }
    void record(UpdateCheckKind kind, const std::string& verdict) {
        outcomes.push_back((kind == UpdateCheckKind::background ? "background: " : "user: ") +
                           verdict);
    }

    void makeChecker() {
        checker = std::make_unique<UpdateChecker>(*this, mainThread, "120",
                                                  UpdateCheckerOptions{24h, 5s});
    }
    bool waitForOutcomes(std::size_t count) {
        return mainThread.runUntil([&] { return outcomes.size() >= count; }, 15s);
    }
    // A background check whose answer waits at the feed until the test lets it go.
    void startHeldCheck() {
        feed.answer("/check-1", appcastWith("130", "1.3"));
        feed.answer("/check-2", appcastWith("130", "1.3"));
        feed.holding = true;
        makeChecker();
        checker->checkForUpdatesInBackground();
        ASSERT_TRUE(waitFor([this] { return feed.requests == 1; }));
    }

    LoopbackFeed feed;
    std::string baseURL = feed.baseURL(); // changed only before the checker starts
    std::atomic<int> asked = 0;
    std::vector<std::string> outcomes; // main thread only
    platform::QueuedMainThread mainThread;
    std::unique_ptr<UpdateChecker> checker;
};

TEST_F(UpdateCheckerTest, ComparesTheFeedWithThisBuildAndAsksForItsURLEveryTime) {
    // The feed's body (none: 404), whether the check runs in the background, the verdict.
    const std::tuple<std::string, bool, std::string> cases[] = {
        {appcastWith("130", "1.3"), false, "user: found 1.3 (130)"},
        {appcastWith("120", "1.2"), false, "user: none"},
        {appcastWith("110", "1.1"), true, "background: none"},
        {"<html><body>Maintenance</body></html>", false, "user: malformed"},
        {"", false, "user: bad status"},
    };
    std::vector<std::string> expected;
    for (const auto& [body, background, outcome] : cases) {
        expected.push_back(outcome);
        if (!body.empty())
            feed.answer("/check-" + std::to_string(expected.size()), body);
    }
    makeChecker();
    for (const auto& [body, background, outcome] : cases) {
        background ? checker->checkForUpdatesInBackground() : checker->checkForUpdates();
        ASSERT_TRUE(waitForOutcomes(outcomes.size() + 1)) << outcome;
    }
    EXPECT_EQ(outcomes, expected);
}

TEST_F(UpdateCheckerTest, StartingChecksAtOnceAndReportsAnUnreachableFeed) {
    baseURL = LoopbackFeed().baseURL(); // closed again at once
    makeChecker();
    checker->startUpdater();
    ASSERT_TRUE(waitForOutcomes(1));
    EXPECT_EQ(outcomes, std::vector<std::string>{"background: unreachable"});
}

TEST_F(UpdateCheckerTest, ResetDropsTheRunningCheck) {
    startHeldCheck();
    checker->resetUpdateCycle();
    checker->checkForUpdates();
    feed.holding = false;
    ASSERT_TRUE(waitForOutcomes(1));
    mainThread.drain();
    EXPECT_EQ(outcomes, std::vector<std::string>{"user: found 1.3 (130)"});
}

TEST_F(UpdateCheckerTest, CancelledUserCheckReportsNothingWhileBackgroundChecksGoOn) {
    for (const char* path : {"/check-1", "/check-2", "/check-3"})
        feed.answer(path, appcastWith("130", "1.3"));
    feed.holding = true;
    makeChecker();
    checker->checkForUpdates();
    ASSERT_TRUE(waitFor([this] { return feed.requests == 1; }));
    checker->cancelUserCheck();
    checker->cancelUserCheck(); // nothing left to cancel
    feed.holding = false;
    checker->checkForUpdatesInBackground();
    checker->cancelUserCheck(); // not the user's check
    ASSERT_TRUE(waitForOutcomes(1));
    checker->checkForUpdates();
    ASSERT_TRUE(waitForOutcomes(2));
    mainThread.drain();
    EXPECT_EQ(outcomes,
              (std::vector<std::string>{"background: found 1.3 (130)", "user: found 1.3 (130)"}));
}

TEST_F(UpdateCheckerTest, DestroyedCheckerReportsNothing) {
    startHeldCheck();
    checker.reset();
    feed.holding = false;
    mainThread.drain();
    EXPECT_TRUE(outcomes.empty());
}

} // namespace
} // namespace lumivesper::settings
