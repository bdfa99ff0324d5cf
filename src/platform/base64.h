#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::platform {

// Standard alphabet with "=" padding, on one line.
std::string encodeBase64(std::span<const std::uint8_t> bytes);

// Only the alphabet with correct padding; anything else (white space included) gives none.
std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text);

// For text from other programs: skips every character outside the alphabet (line breaks, blanks)
// and tolerates missing padding. Gives none when what remains cannot be whole bytes.
std::optional<std::vector<std::uint8_t>> decodeBase64IgnoringUnknown(std::string_view text);

} // namespace lumivesper::platform
