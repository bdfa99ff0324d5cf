#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace lumivesper::platform {

// Ends an observation when destroyed; safe to outlive the observed object.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, {})) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            reset();
            cancel_ = std::exchange(other.cancel_, {});
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }

    void reset() {
        if (auto cancel = std::exchange(cancel_, {}))
            cancel();
    }

private:
    std::function<void()> cancel_;
};

// Observers of one kind of change, used on one thread. During a notification an observer may
// subscribe or unsubscribe anyone, itself included, and may even destroy the list's owner: the
// walk holds the entries by a reference of its own and never touches the list object again.
template <typename... Args> class ObserverList {
public:
    using Observer = std::function<void(Args...)>;

    [[nodiscard]] Subscription subscribe(Observer observer) {
        const auto id = nextId_++;
        entries_->push_back({id, std::make_shared<Observer>(std::move(observer))});
        std::weak_ptr<std::vector<Entry>> weakEntries = entries_;
        return Subscription([weakEntries, id] {
            if (auto entries = weakEntries.lock())
                std::erase_if(*entries, [id](const Entry& entry) { return entry.id == id; });
        });
    }

    void notify(Args... args) const {
        // Keeps the entries alive even if an observer destroys this list's owner.
        const std::shared_ptr<std::vector<Entry>> entries = entries_;
        const auto walk = *entries; // observers present when the notification began
        for (const auto& entry : walk) {
            const bool stillSubscribed =
                std::any_of(entries->begin(), entries->end(),
                            [&](const Entry& current) { return current.id == entry.id; });
            if (stillSubscribed)
                (*entry.observer)(args...);
        }
    }

    ~ObserverList() {
        // Whoever still walks the entries sees an empty list: nobody hears from a dead owner.
        entries_->clear();
    }

private:
    struct Entry {
        unsigned long id;
        std::shared_ptr<Observer> observer;
    };
    std::shared_ptr<std::vector<Entry>> entries_ = std::make_shared<std::vector<Entry>>();
    unsigned long nextId_ = 0;
};

} // namespace lumivesper::platform
