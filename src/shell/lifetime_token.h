#pragma once

#include <memory>

namespace lumivesper::shell {

// Lets deferred callbacks (panel completions, prompt continuations) find out whether the object
// that scheduled them still exists: they hold a weak reference and do nothing once it has gone.
class LifetimeToken {
public:
    std::weak_ptr<void> weak() const { return alive_; }

private:
    std::shared_ptr<void> alive_ = std::make_shared<char>();
};

} // namespace lumivesper::shell
