#pragma once

#include <string_view>

namespace lumivesper::platform {

// Diagnostics are plain lines on standard output; lines from different threads never interleave.
void consoleLine(std::string_view line);

} // namespace lumivesper::platform
