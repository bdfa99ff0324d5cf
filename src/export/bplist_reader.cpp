#include "export/bplist_reader.h"

#include <bit>
#include <cstring>
#include <string>
#include <vector>

namespace lumivesper::exporting {

namespace {

constexpr std::size_t trailerSize = 32;
constexpr int maximumDepth = 64;

class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    PlistValue read() {
        if (bytes_.size() < 8 + trailerSize || std::memcmp(bytes_.data(), "bplist00", 8) != 0)
            throw PlistReadError("Not a binary property list");
        const std::size_t trailer = bytes_.size() - trailerSize;
        offsetSize_ = bytes_[trailer + 6];
        refSize_ = bytes_[trailer + 7];
        const std::uint64_t count = bigEndian(trailer + 8, 8);
        const std::uint64_t top = bigEndian(trailer + 16, 8);
        const std::uint64_t table = bigEndian(trailer + 24, 8);
        if (!validSize(offsetSize_) || !validSize(refSize_))
            throw PlistReadError("Property list trailer has invalid sizes");
        if (count == 0 || top >= count || table < 8 || table > trailer ||
            count > (trailer - table) / offsetSize_)
            throw PlistReadError("Property list trailer is out of range");
        offsets_.resize(count);
        for (std::uint64_t i = 0; i < count; ++i) {
            offsets_[i] = bigEndian(table + i * offsetSize_, offsetSize_);
            if (offsets_[i] < 8 || offsets_[i] >= table)
                throw PlistReadError("Property list object offset is out of range");
        }
        objectsEnd_ = table;
        visiting_.assign(count, false);
        return object(top, 0);
    }

private:
    static bool validSize(int size) { return size == 1 || size == 2 || size == 4 || size == 8; }

    std::uint64_t bigEndian(std::size_t at, std::size_t size) const {
        if (at > bytes_.size() || size > bytes_.size() - at)
            throw PlistReadError("Property list is truncated");
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i)
            value = (value << 8) | bytes_[at + i];
        return value;
    }

    void require(std::size_t at, std::uint64_t size) const {
        if (at > objectsEnd_ || size > objectsEnd_ - at)
            throw PlistReadError("Property list object runs past its end");
    }

    // The element count of a string or container, and where its contents begin.
    std::pair<std::uint64_t, std::size_t> countAt(std::size_t at) const {
        const std::uint8_t low = bytes_[at] & 0x0F;
        if (low != 0x0F)
            return {low, at + 1};
        require(at + 1, 1);
        const std::uint8_t marker = bytes_[at + 1];
        if ((marker & 0xF0) != 0x10 || (marker & 0x0F) > 3)
            throw PlistReadError("Property list has a malformed length");
        const std::size_t size = std::size_t{1} << (marker & 0x0F);
        require(at + 2, size);
        return {bigEndian(at + 2, size), at + 2 + size};
    }

    PlistValue object(std::uint64_t index, int depth) {
        if (depth > maximumDepth)
            throw PlistReadError("Property list is nested too deeply");
        const std::size_t at = offsets_[index];
        const std::uint8_t marker = bytes_[at];
        const std::uint8_t low = marker & 0x0F;
        switch (marker >> 4) {
        case 0x0:
            if (marker == 0x08 || marker == 0x09)
                return PlistValue(marker == 0x09);
            if (marker == 0x00 || marker == 0x0F)
                return PlistValue(); // null and fill: only ever under keys we ignore
            break;
        case 0x1: {
            if (low > 3)
                break;
            const std::size_t size = std::size_t{1} << low;
            require(at + 1, size);
            const std::uint64_t raw = bigEndian(at + 1, size);
            return PlistValue(static_cast<std::int64_t>(raw));
        }
        case 0x2: {
            if (low != 2 && low != 3)
                break;
            const std::size_t size = std::size_t{1} << low;
            require(at + 1, size);
            const std::uint64_t raw = bigEndian(at + 1, size);
            if (size == 4)
                return PlistValue(double(std::bit_cast<float>(static_cast<std::uint32_t>(raw))));
            return PlistValue(std::bit_cast<double>(raw));
        }
        case 0x3: {
            if (marker != 0x33)
                break;
            require(at + 1, 8);
            return PlistValue(std::bit_cast<double>(bigEndian(at + 1, 8)));
        }
        case 0x4:
        case 0x5: {
            auto [count, start] = countAt(at);
            require(start, count);
            return PlistValue(std::string(bytes_.begin() + start, bytes_.begin() + start + count));
        }
        case 0x6: {
            auto [count, start] = countAt(at);
            if (count > objectsEnd_)
                break;
            require(start, count * 2);
            return PlistValue(utf16ToUtf8(start, count));
        }
        case 0x8: {
            const std::size_t size = std::size_t{low} + 1;
            require(at + 1, size);
            return PlistValue(static_cast<std::int64_t>(bigEndian(at + 1, size)));
        }
        case 0xA:
        case 0xC:
        case 0xD: {
            if (visiting_[index])
                throw PlistReadError("Property list contains itself");
            auto [count, start] = countAt(at);
            const bool isDictionary = (marker >> 4) == 0xD;
            const std::uint64_t refs = isDictionary ? count * 2 : count;
            if (count > objectsEnd_)
                break;
            require(start, refs * refSize_);
            visiting_[index] = true;
            auto child = [&](std::uint64_t k) {
                const std::uint64_t ref = bigEndian(start + k * refSize_, refSize_);
                if (ref >= offsets_.size())
                    throw PlistReadError("Property list reference is out of range");
                return object(ref, depth + 1);
            };
            PlistValue result;
            if (isDictionary) {
                PlistValue::Dictionary entries;
                for (std::uint64_t k = 0; k < count; ++k) {
                    PlistValue key = child(k);
                    if (!key.isString())
                        throw PlistReadError("Property list dictionary key is not a string");
                    entries.push_back({key.string(), child(count + k)});
                }
                result = PlistValue(std::move(entries));
            } else {
                PlistValue::Array elements;
                for (std::uint64_t k = 0; k < count; ++k)
                    elements.push_back(child(k));
                result = PlistValue(std::move(elements));
            }
            visiting_[index] = false;
            return result;
        }
        default:
            break;
        }
        throw PlistReadError("Property list has an object of an unsupported kind (marker 0x" +
                             hex(marker) + ")");
    }

    static std::string hex(std::uint8_t byte) {
        const char* digits = "0123456789ABCDEF";
        return {digits[byte >> 4], digits[byte & 0x0F]};
    }

    std::string utf16ToUtf8(std::size_t start, std::uint64_t count) const {
        std::string text;
        for (std::uint64_t i = 0; i < count; ++i) {
            std::uint32_t code = static_cast<std::uint32_t>(bigEndian(start + i * 2, 2));
            if (code >= 0xD800 && code < 0xDC00 && i + 1 < count) {
                const auto low = static_cast<std::uint32_t>(bigEndian(start + (i + 1) * 2, 2));
                if (low >= 0xDC00 && low < 0xE000) {
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
            if (code < 0x80) {
                text += static_cast<char>(code);
            } else if (code < 0x800) {
                text += static_cast<char>(0xC0 | (code >> 6));
                text += static_cast<char>(0x80 | (code & 0x3F));
            } else if (code < 0x10000) {
                text += static_cast<char>(0xE0 | (code >> 12));
                text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                text += static_cast<char>(0x80 | (code & 0x3F));
            } else {
                text += static_cast<char>(0xF0 | (code >> 18));
                text += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
                text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                text += static_cast<char>(0x80 | (code & 0x3F));
            }
        }
        return text;
    }

    std::span<const std::uint8_t> bytes_;
    int offsetSize_ = 0;
    int refSize_ = 0;
    std::vector<std::uint64_t> offsets_;
    std::uint64_t objectsEnd_ = 0;
    std::vector<bool> visiting_;
};

} // namespace

PlistValue readBinaryPlist(std::span<const std::uint8_t> bytes) {
    return Reader(bytes).read();
}

} // namespace lumivesper::exporting
