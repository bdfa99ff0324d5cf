#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace lumivesper::testing {

// Sets (or unsets) one environment variable for the life of the object, then restores it.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
        if (const char* previous = std::getenv(name_.c_str()))
            previous_ = previous;
        if (value)
            ::setenv(name_.c_str(), value->c_str(), 1);
        else
            ::unsetenv(name_.c_str());
    }
    ~ScopedEnvironment() {
        if (previous_)
            ::setenv(name_.c_str(), previous_->c_str(), 1);
        else
            ::unsetenv(name_.c_str());
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

} // namespace lumivesper::testing
