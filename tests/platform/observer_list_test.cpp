#include "platform/observer_list.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumivesper::platform {
namespace {

// An object that owns its observers' list, as a document or a view model does.
struct Owner {
    ObserverList<int> changed;
};

TEST(ObserverListTest, AnObserverMayDestroyTheListsOwnerWhileBeingNotified) {
    auto owner = std::make_unique<Owner>();
    std::vector<int> heard;
    Subscription first = owner->changed.subscribe([&](int value) {
        heard.push_back(value);
        owner.reset(); // e.g. a window closed by the change it was told about
    });
    Subscription second = owner->changed.subscribe([&](int value) { heard.push_back(-value); });

    owner->changed.notify(7);

    EXPECT_EQ(heard, (std::vector<int>{7})); // nobody hears from an owner that has gone
    first.reset(); // and ending a subscription afterwards is harmless
    second.reset();
}

TEST(ObserverListTest, UnsubscribingDuringANotificationTakesEffectAtOnce) {
    ObserverList<> list;
    std::vector<std::string> heard;
    std::optional<Subscription> self;
    std::optional<Subscription> later;
    self = list.subscribe([&] {
        heard.push_back("self");
        self.reset(); // destroys the very function that is running
        later.reset();
    });
    later = list.subscribe([&] { heard.push_back("later"); });
    Subscription added;
    bool subscribedMore = false;
    Subscription steady = list.subscribe([&] {
        heard.push_back("steady");
        if (!std::exchange(subscribedMore, true)) // heard from the next notification on
            added = list.subscribe([&] { heard.push_back("added"); });
    });

    list.notify();
    EXPECT_EQ(heard, (std::vector<std::string>{"self", "steady"}));
    heard.clear();
    list.notify();
    EXPECT_EQ(heard, (std::vector<std::string>{"steady", "added"}));
}

} // namespace
} // namespace lumivesper::platform
