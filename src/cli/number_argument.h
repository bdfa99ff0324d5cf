#pragma once

#include <optional>
#include <string_view>

namespace lumivesper::cli {

// A finite decimal number that makes up the whole text; none for anything else ("12abc", "nan").
std::optional<double> parseNumber(std::string_view text);

} // namespace lumivesper::cli
