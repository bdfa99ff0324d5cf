#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::generation {

// Encoded image bytes as they travel to and from the image services.
using Bytes = std::vector<std::uint8_t>;

inline Bytes toBytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}
inline std::string toText(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

// Standard alphabet, with padding, without line breaks.
std::string encodeBase64(const Bytes& bytes);

// Skips every character outside the alphabet (line breaks, blanks, stray punctuation). Gives none
// when what remains is not a whole number of groups.
std::optional<Bytes> decodeBase64IgnoringUnknown(std::string_view text);

// Accepts only the alphabet with correct padding; anything else gives none.
std::optional<Bytes> decodeBase64Strict(std::string_view text);

} // namespace lumivesper::generation
