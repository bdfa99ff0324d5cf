#include "platform/cancellation.h"
#include "platform/main_thread.h"
#include "platform/task_group.h"
#include "platform/uuid.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <thread>

namespace lumivesper::platform {
namespace {

TEST(UuidTest, FormatsUpperCaseAndParsesEitherCase) {
    const auto parsed = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->toString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid::parse(parsed->toString()), parsed);
    EXPECT_TRUE(Uuid().isNil());
}

TEST(UuidTest, RejectsMalformedText) {
    for (const char* bad :
         {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
          "E621E1F8-C36C-495A-93FC-0C247A3E6E5G", "E621E1F8-C36C-495A-93F-C0C247A3E6E5F",
          " E621E1F8-C36C-495A-93FC-0C247A3E6E5"})
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
}

TEST(UuidTest, GeneratesDistinctVersion4Identifiers) {
    std::set<Uuid> seen;
    for (int i = 0; i < 1000; ++i) {
        const Uuid uuid = Uuid::generate();
        EXPECT_EQ(uuid.bytes()[6] >> 4, 4);
        EXPECT_EQ(uuid.bytes()[8] >> 6, 2);
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(TaskGroupTest, NeverRunsMoreThanTheLimitAndRunsEveryItem) {
    std::atomic<int> running{0};
    std::atomic<int> peak{0};
    std::vector<int> done(12, 0);
    forEachBounded(done.size(), 3, {}, [&](std::size_t index, std::stop_token) {
        const int now = ++running;
        int seen = peak.load();
        while (now > seen && !peak.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::yield();
        done[index] = 1;
        --running;
    });
    EXPECT_LE(peak.load(), 3);
    EXPECT_EQ(std::count(done.begin(), done.end(), 1), 12);
}

TEST(TaskGroupTest, FirstFailureStopsTheRestAndIsRethrown) {
    std::atomic<int> started{0};
    std::atomic<bool> sawStop{false};
    try {
        forEachBounded(50, 2, {}, [&](std::size_t index, std::stop_token stop) {
            ++started;
            if (index == 1)
                throw std::runtime_error("frame 1 failed");
            // Wait until the failure has stopped the group (bounded, in case it never does).
            for (int spin = 0; spin < 1'000'000 && !stop.stop_requested(); ++spin)
                std::this_thread::yield();
            if (stop.stop_requested())
                sawStop = true;
            throwIfCancelled(stop);
        });
        FAIL() << "expected the failure";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "frame 1 failed");
    }
    EXPECT_TRUE(sawStop.load());
    EXPECT_LT(started.load(), 50);
}

TEST(TaskGroupTest, OuterStopBecomesCancellation) {
    std::stop_source outer;
    EXPECT_THROW(forEachBounded(5, 2, outer.get_token(),
                                [&](std::size_t index, std::stop_token stop) {
                                    if (index == 0)
                                        outer.request_stop();
                                    throwIfCancelled(stop);
                                }),
                 CancellationError);
}

TEST(MainThreadTest, RunUntilRunsWorkPostedFromOtherThreads) {
    QueuedMainThread main;
    std::vector<int> order;
    std::jthread worker([&] {
        for (int i = 0; i < 5; ++i)
            main.post([&order, i] { order.push_back(i); });
    });
    EXPECT_TRUE(main.runUntil([&] { return order.size() == 5; }, std::chrono::seconds(10)));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_FALSE(main.runUntil([] { return false; }, std::chrono::milliseconds(10)));
}

} // namespace
} // namespace lumivesper::platform
