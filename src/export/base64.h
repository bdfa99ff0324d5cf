#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::exporting {

// Standard alphabet with "=" padding, on one line.
std::string base64Encode(std::span<const std::uint8_t> bytes);

// The bytes of standard, padded base64; none for anything else (white space included).
std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);

} // namespace lumivesper::exporting
