#include "export/base64.h"

namespace lumivesper::exporting {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(char c) {
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

} // namespace

std::string base64Encode(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        text += alphabet[(group >> 18) & 63];
        text += alphabet[(group >> 12) & 63];
        text += alphabet[(group >> 6) & 63];
        text += alphabet[group & 63];
    }
    if (const std::size_t rest = bytes.size() - i; rest > 0) {
        std::uint32_t group = bytes[i] << 16;
        if (rest == 2)
            group |= bytes[i + 1] << 8;
        text += alphabet[(group >> 18) & 63];
        text += alphabet[(group >> 12) & 63];
        text += rest == 2 ? alphabet[(group >> 6) & 63] : '=';
        text += '=';
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const int padding = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
        if (padding == 1 && text[i + 2] == '=')
            return std::nullopt; // "x=y=" is not padding
        std::uint32_t group = 0;
        for (int k = 0; k < 4; ++k) {
            const int value = k >= 4 - padding ? 0 : sextet(text[i + k]);
            if (value < 0)
                return std::nullopt;
            group = (group << 6) | std::uint32_t(value);
        }
        bytes.push_back(static_cast<std::uint8_t>(group >> 16));
        if (padding < 2)
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        if (padding < 1)
            bytes.push_back(static_cast<std::uint8_t>(group));
    }
    return bytes;
}

} // namespace lumivesper::exporting
