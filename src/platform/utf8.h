#pragma once

#include <string>
#include <string_view>

namespace lumivesper::platform {

// `text` with every byte sequence that is not well-formed UTF-8 (stray continuation bytes,
// truncated or overlong sequences, surrogates, values past U+10FFFF) replaced by U+FFFD, one
// replacement for each maximal ill-formed part, as Unicode recommends.
std::string validUtf8(std::string_view text);

} // namespace lumivesper::platform
