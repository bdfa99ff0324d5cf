#include "platform/base64.h"

#include <array>

namespace lumivesper::platform {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int, 256> makeDecodeTable() {
    std::array<int, 256> table{};
    for (auto& entry : table)
        entry = -1;
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<int>(i);
    return table;
}

constexpr std::array<int, 256> decodeTable = makeDecodeTable();

// Alphabet characters only, followed by `padding` "=" characters.
std::optional<std::vector<std::uint8_t>> decodeSymbols(std::string_view symbols,
                                                       std::size_t padding) {
    if ((symbols.size() + padding) % 4 != 0 || padding > 2 || symbols.size() % 4 == 1)
        return std::nullopt;
    std::vector<std::uint8_t> bytes;
    bytes.reserve(symbols.size() * 3 / 4);
    std::uint32_t buffer = 0;
    int bits = 0;
    for (const char c : symbols) {
        buffer =
            (buffer << 6) | static_cast<std::uint32_t>(decodeTable[static_cast<unsigned char>(c)]);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<std::uint8_t>((buffer >> bits) & 0xFF));
        }
    }
    return bytes;
}

} // namespace

std::string encodeBase64(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
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

std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text) {
    std::size_t padding = 0;
    while (padding < text.size() && text[text.size() - 1 - padding] == '=')
        ++padding;
    const std::string_view symbols = text.substr(0, text.size() - padding);
    for (const char c : symbols)
        if (decodeTable[static_cast<unsigned char>(c)] < 0)
            return std::nullopt;
    return decodeSymbols(symbols, padding);
}

std::optional<std::vector<std::uint8_t>> decodeBase64IgnoringUnknown(std::string_view text) {
    std::string symbols;
    symbols.reserve(text.size());
    std::size_t padding = 0;
    for (const char c : text) {
        if (c == '=') {
            ++padding;
            continue;
        }
        if (decodeTable[static_cast<unsigned char>(c)] < 0)
            continue;
        if (padding > 0)
            return std::nullopt; // data after padding
        symbols += c;
    }
    if (padding == 0)
        padding = (4 - symbols.size() % 4) % 4;
    return decodeSymbols(symbols, padding);
}

} // namespace lumivesper::platform
