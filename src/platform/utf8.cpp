#include "platform/utf8.h"

namespace lumivesper::platform {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

// The length of the well-formed sequence at the start of `text`, or the length of its maximal
// ill-formed prefix as a negative number.
int sequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return 1;
    int length = 0;
    unsigned char low = 0x80, high = 0xBF; // the allowed range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;  // no overlong forms
        high = lead == 0xED ? 0x9F : 0xBF; // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF; // nothing past U+10FFFF
    } else {
        return -1;
    }
    for (int i = 1; i < length; ++i) {
        if (static_cast<std::size_t>(i) >= text.size())
            return -i;
        const unsigned char next = byte(static_cast<std::size_t>(i));
        const bool fits = i == 1 ? next >= low && next <= high : next >= 0x80 && next <= 0xBF;
        if (!fits)
            return -i;
    }
    return length;
}

} // namespace

std::string validUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const int length = sequenceLength(text);
        if (length > 0) {
            result.append(text.substr(0, static_cast<std::size_t>(length)));
            text.remove_prefix(static_cast<std::size_t>(length));
        } else {
            result.append(replacement);
            text.remove_prefix(static_cast<std::size_t>(-length));
        }
    }
    return result;
}

} // namespace lumivesper::platform
