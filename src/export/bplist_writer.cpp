#include "export/bplist_writer.h"

#include <bit>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

namespace lumivesper::exporting {

namespace {

void appendBigEndian(std::vector<std::uint8_t>& out, std::uint64_t value, int bytes) {
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

int bytesNeeded(std::uint64_t value) {
    if (value <= 0xFF)
        return 1;
    if (value <= 0xFFFF)
        return 2;
    if (value <= 0xFFFFFFFFu)
        return 4;
    return 8;
}

void appendInteger(std::vector<std::uint8_t>& out, std::int64_t value) {
    // Readers take 1-, 2- and 4-byte integers as unsigned; only 8 bytes carry a sign.
    const int bytes = value < 0 ? 8 : bytesNeeded(static_cast<std::uint64_t>(value));
    out.push_back(static_cast<std::uint8_t>(0x10 | std::countr_zero(unsigned(bytes))));
    appendBigEndian(out, static_cast<std::uint64_t>(value), bytes);
}

void appendMarkerWithCount(std::vector<std::uint8_t>& out, std::uint8_t kind, std::size_t count) {
    if (count < 15) {
        out.push_back(static_cast<std::uint8_t>(kind | count));
        return;
    }
    out.push_back(static_cast<std::uint8_t>(kind | 0x0F));
    appendInteger(out, static_cast<std::int64_t>(count));
}

// UTF-8 to UTF-16 code units; invalid sequences are an error rather than silently altered text.
std::vector<std::uint16_t> toUtf16(const std::string& text) {
    std::vector<std::uint16_t> units;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        int length = lead < 0x80         ? 1
                     : (lead >> 5) == 6  ? 2
                     : (lead >> 4) == 14 ? 3
                     : (lead >> 3) == 30 ? 4
                                         : 0;
        if (length == 0 || i + length > text.size())
            throw std::invalid_argument("Property list string is not valid UTF-8");
        std::uint32_t code = length == 1 ? lead : lead & (0x7F >> length);
        for (int k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                throw std::invalid_argument("Property list string is not valid UTF-8");
            code = (code << 6) | (next & 0x3F);
        }
        i += length;
        if (code >= 0x10000) {
            code -= 0x10000;
            units.push_back(static_cast<std::uint16_t>(0xD800 | (code >> 10)));
            units.push_back(static_cast<std::uint16_t>(0xDC00 | (code & 0x3FF)));
        } else {
            units.push_back(static_cast<std::uint16_t>(code));
        }
    }
    return units;
}

std::vector<std::uint8_t> encodeScalar(const PlistValue& value) {
    std::vector<std::uint8_t> out;
    if (value.isInteger()) {
        appendInteger(out, value.integer());
    } else if (value.isReal()) {
        out.push_back(0x23);
        appendBigEndian(out, std::bit_cast<std::uint64_t>(value.real()), 8);
    } else if (value.isBoolean()) {
        out.push_back(value.boolean() ? 0x09 : 0x08);
    } else {
        const std::string& text = value.string();
        bool ascii = true;
        for (char c : text)
            ascii = ascii && static_cast<unsigned char>(c) < 0x80;
        if (ascii) {
            appendMarkerWithCount(out, 0x50, text.size());
            out.insert(out.end(), text.begin(), text.end());
        } else {
            const auto units = toUtf16(text);
            appendMarkerWithCount(out, 0x60, units.size());
            for (auto unit : units)
                appendBigEndian(out, unit, 2);
        }
    }
    return out;
}

// Objects in the order they will be written: the root first, then depth-first.
struct Node {
    std::vector<std::uint8_t> scalar;  // encoded bytes, for a scalar
    std::uint8_t containerKind = 0;    // 0xA0 array, 0xD0 dictionary
    std::vector<std::size_t> children; // dictionary: keys, then values
};

class Flattener {
public:
    std::size_t add(const PlistValue& value) {
        if (value.isArray() || value.isDictionary()) {
            const std::size_t index = nodes_.size();
            nodes_.emplace_back();
            std::vector<std::size_t> children;
            if (value.isArray()) {
                for (const auto& element : value.array())
                    children.push_back(add(element));
                nodes_[index].containerKind = 0xA0;
            } else {
                std::vector<std::size_t> values;
                for (const auto& entry : value.dictionary())
                    children.push_back(add(PlistValue(entry.key)));
                for (const auto& entry : value.dictionary())
                    values.push_back(add(entry.value));
                children.insert(children.end(), values.begin(), values.end());
                nodes_[index].containerKind = 0xD0;
            }
            nodes_[index].children = std::move(children);
            return index;
        }
        auto encoded = encodeScalar(value);
        if (auto found = unique_.find(encoded); found != unique_.end())
            return found->second;
        const std::size_t index = nodes_.size();
        unique_.emplace(encoded, index);
        nodes_.push_back(Node{std::move(encoded), 0, {}});
        return index;
    }

    const std::vector<Node>& nodes() const { return nodes_; }

private:
    std::vector<Node> nodes_;
    // Keyed by the encoded bytes, whose marker keeps integer 1 apart from real 1.0.
    std::map<std::vector<std::uint8_t>, std::size_t> unique_;
};

} // namespace

std::vector<std::uint8_t> writeBinaryPlist(const PlistValue& root) {
    Flattener flattener;
    flattener.add(root);
    const auto& nodes = flattener.nodes();
    const int refSize = bytesNeeded(nodes.size() - 1);

    std::vector<std::uint8_t> out = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
    std::vector<std::uint64_t> offsets;
    offsets.reserve(nodes.size());
    for (const auto& node : nodes) {
        offsets.push_back(out.size());
        if (node.containerKind == 0) {
            out.insert(out.end(), node.scalar.begin(), node.scalar.end());
            continue;
        }
        const std::size_t count =
            node.containerKind == 0xD0 ? node.children.size() / 2 : node.children.size();
        appendMarkerWithCount(out, node.containerKind, count);
        for (auto child : node.children)
            appendBigEndian(out, child, refSize);
    }

    const std::uint64_t offsetTableOffset = out.size();
    const int offsetSize = bytesNeeded(offsetTableOffset);
    for (auto offset : offsets)
        appendBigEndian(out, offset, offsetSize);

    // Trailer: 6 unused bytes, the two sizes, object count, root object, offset table position.
    out.insert(out.end(), 6, 0);
    out.push_back(static_cast<std::uint8_t>(offsetSize));
    out.push_back(static_cast<std::uint8_t>(refSize));
    appendBigEndian(out, nodes.size(), 8);
    appendBigEndian(out, 0, 8);
    appendBigEndian(out, offsetTableOffset, 8);
    return out;
}

} // namespace lumivesper::exporting
