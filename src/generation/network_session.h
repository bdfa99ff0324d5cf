#pragma once

#include "platform/http_client.h"

#include <chrono>
#include <optional>

namespace lumivesper::generation {

// What every client of this folder sends through: the HTTP client and an optional ceiling on the
// per-request idle time-outs (the protocol's are 60 and 180 seconds of nothing moving; a ceiling
// lets a caller that must not wait that long, such as a health probe or a test, cut them short).
struct NetworkSession {
    platform::HttpClient http;
    std::optional<std::chrono::milliseconds> maximumTimeout;

    std::chrono::milliseconds timeout(std::chrono::milliseconds wanted) const {
        if (maximumTimeout && *maximumTimeout < wanted)
            return *maximumTimeout;
        return wanted;
    }
};

} // namespace lumivesper::generation
