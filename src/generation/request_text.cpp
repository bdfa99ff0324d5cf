#include "generation/request_text.h"

#include <cctype>
#include <charconv>
#include <vector>

namespace lumivesper::generation {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::optional<double> parseDecimal(std::string_view text) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [ptr, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || ptr != end)
        return std::nullopt;
    return value;
}

std::string removeAll(std::string text, std::string_view needle) {
    for (auto at = text.find(needle); at != std::string::npos; at = text.find(needle, at))
        text.erase(at, needle.size());
    return text;
}

} // namespace

std::string trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return std::string(text);
}

std::string lowercased(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string combinedPrompt(const std::optional<std::string>& systemPrompt,
                           const std::string& prompt) {
    if (!systemPrompt || systemPrompt->empty())
        return prompt;
    if (prompt.empty())
        return *systemPrompt;
    return *systemPrompt + "\n" + prompt;
}

std::string modelNameAfterProvider(std::string_view model) {
    std::string name = trimmed(model);
    const auto slash = name.find('/');
    if (slash == std::string::npos)
        return name;
    return name.substr(slash + 1);
}

std::optional<std::string> normalizedImageSize(std::string_view aspectRatio,
                                               const std::optional<std::string>& imageSize) {
    const std::string requested = lowercased(trimmed(imageSize ? *imageSize : aspectRatio));
    if (requested.empty())
        return std::nullopt;
    if (requested == "auto" || requested == "1024x1024" || requested == "1024x1536" ||
        requested == "1536x1024")
        return requested;

    std::vector<std::string_view> pieces;
    std::string_view rest = requested;
    while (!rest.empty()) {
        const auto x = rest.find('x');
        const std::string_view piece = rest.substr(0, x);
        if (!piece.empty())
            pieces.push_back(piece);
        if (x == std::string_view::npos)
            break;
        rest.remove_prefix(x + 1);
    }
    if (pieces.size() != 2)
        return std::nullopt;
    const auto width = parseDecimal(pieces[0]);
    const auto height = parseDecimal(pieces[1]);
    if (!width || !height || !(*width > 0) || !(*height > 0))
        return std::nullopt;
    if (*width == *height)
        return "1024x1024";
    return *width > *height ? "1536x1024" : "1024x1536";
}

std::optional<DataURLContents> parseDataURL(std::string_view text) {
    if (!text.starts_with("data:"))
        return std::nullopt;
    const auto comma = text.find(',');
    if (comma == std::string_view::npos)
        return std::nullopt;
    const std::string header(text.substr(0, comma));
    if (header.find("base64") == std::string::npos)
        return std::nullopt;
    auto bytes = decodeBase64IgnoringUnknown(text.substr(comma + 1));
    if (!bytes)
        return std::nullopt;
    const std::string mimeType = removeAll(removeAll(header, "data:"), ";base64");
    DataURLContents contents{std::move(*bytes), std::nullopt};
    if (!mimeType.empty())
        contents.mimeType = mimeType;
    return contents;
}

std::string pngDataURL(const Bytes& bytes) {
    return "data:image/png;base64," + encodeBase64(bytes);
}

bool isParsableURL(std::string_view text) {
    const auto separator = text.find("://");
    if (separator == std::string_view::npos || separator == 0)
        return false;
    const std::string_view scheme = text.substr(0, separator);
    if (!std::isalpha(static_cast<unsigned char>(scheme.front())))
        return false;
    for (const char c : scheme)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.')
            return false;
    for (const char c : text)
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F || c == '"' || c == '<' ||
            c == '>' || c == '\\' || c == '^' || c == '`' || c == '{' || c == '|' || c == '}')
            return false;
    const std::string_view afterScheme = text.substr(separator + 3);
    const auto hostEnd = afterScheme.find_first_of("/?#");
    return hostEnd != 0 && !afterScheme.empty();
}

std::optional<std::string> utf8Text(std::string_view bytes) {
    std::size_t i = 0;
    while (i < bytes.size()) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        std::size_t length = 0;
        std::uint32_t codePoint = 0;
        if (lead < 0x80) {
            ++i;
            continue;
        }
        if ((lead & 0xE0) == 0xC0) {
            length = 2;
            codePoint = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            codePoint = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            codePoint = lead & 0x07;
        } else {
            return std::nullopt;
        }
        if (i + length > bytes.size())
            return std::nullopt;
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xC0) != 0x80)
                return std::nullopt;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        const bool overlong = (length == 2 && codePoint < 0x80) ||
                              (length == 3 && codePoint < 0x800) ||
                              (length == 4 && codePoint < 0x10000);
        if (overlong || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return std::nullopt;
        i += length;
    }
    return std::string(bytes);
}

} // namespace lumivesper::generation
