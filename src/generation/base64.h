#pragma once

#include "platform/base64.h"

#include <cstdint>
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

using platform::decodeBase64IgnoringUnknown;
using platform::encodeBase64;

} // namespace lumivesper::generation
