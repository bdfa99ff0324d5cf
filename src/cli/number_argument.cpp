#include "cli/number_argument.h"

#include <charconv>
#include <cmath>

namespace lumivesper::cli {

std::optional<double> parseNumber(std::string_view text) {
    double value = 0;
    const char* end = text.data() + text.size();
    auto [ptr, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || ptr != end || !std::isfinite(value))
        return std::nullopt;
    return value;
}

} // namespace lumivesper::cli
