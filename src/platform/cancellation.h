#pragma once

#include <stdexcept>
#include <stop_token>

namespace lumivesper::platform {

// Thrown where long work notices that its stop token was triggered.
class CancellationError : public std::runtime_error {
public:
    CancellationError() : std::runtime_error("The operation was cancelled.") {}
};

inline void throwIfCancelled(const std::stop_token& token) {
    if (token.stop_requested())
        throw CancellationError();
}

} // namespace lumivesper::platform
