#pragma once

#include "export/property_list.h"

#include <cstdint>
#include <span>
#include <stdexcept>

namespace lumivesper::exporting {

// The bytes are not a binary property list we can read; the text says where they went wrong.
class PlistReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses a "bplist00" document of integers, reals (4 or 8 bytes), booleans, strings (ASCII or
// UTF-16), arrays and dictionaries. Kinds the wallpaper documents never use, so that keys of other
// writers can be skipped, are mapped onto these: dates to reals (seconds since 2001), data to byte
// strings, sets to arrays, UIDs to integers, null to the integer 0. Every offset and count is
// checked against the buffer, and a container that contains itself is refused, so hostile input
// fails with PlistReadError.
PlistValue readBinaryPlist(std::span<const std::uint8_t> bytes);

} // namespace lumivesper::exporting
