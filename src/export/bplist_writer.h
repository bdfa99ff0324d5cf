#pragma once

#include "export/property_list.h"

#include <cstdint>
#include <vector>

namespace lumivesper::exporting {

// Serialises `root` as a binary property list ("bplist00"). Integers become integer objects
// (non-negative ones in the fewest of 1, 2, 4 bytes, negative ones in 8), every real an 8-byte
// double (marker 0x23) whatever its value, booleans only where the value is a boolean. Equal
// scalars of the same kind are stored once; an integer and a real of equal value never share an
// object.
std::vector<std::uint8_t> writeBinaryPlist(const PlistValue& root);

} // namespace lumivesper::exporting
