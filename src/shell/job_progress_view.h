#pragma once

#include <functional>
#include <string>

namespace lumivesper::shell {

// Where a long command shows that it runs: a title, a bar, the latest step and a Cancel button.
// The window shows a modal progress dialog; tests record the calls.
class JobProgressView {
public:
    virtual ~JobProgressView() = default;
    // `cancel` is what the Cancel button does; the view stays until hide().
    virtual void show(const std::string& title, std::function<void()> cancel) = 0;
    virtual void update(int current, int total, const std::string& message) = 0;
    virtual void hide() = 0;
};

} // namespace lumivesper::shell
