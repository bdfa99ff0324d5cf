#include "export/heif_box_writer.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace lumivesper::exporting {

namespace {

using Bytes = std::vector<std::uint8_t>;

// Appends big-endian fields and nested boxes, patching each box's size when it closes.
class BoxBuilder {
public:
    void u8(std::uint64_t value) { bytes_.push_back(static_cast<std::uint8_t>(value)); }
    void u16(std::uint64_t value) { unsignedOf(value, 2); }
    void u32(std::uint64_t value) { unsignedOf(value, 4); }
    void u64(std::uint64_t value) { unsignedOf(value, 8); }
    void unsignedOf(std::uint64_t value, int size) {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
            u8(value >> shift);
    }
    void fourCc(const char (&code)[5]) { bytes_.insert(bytes_.end(), code, code + 4); }
    void text(const std::string& value) { // zero-terminated
        bytes_.insert(bytes_.end(), value.begin(), value.end());
        u8(0);
    }
    void raw(const Bytes& value) { bytes_.insert(bytes_.end(), value.begin(), value.end()); }

    void open(const char (&type)[5]) {
        starts_.push_back(bytes_.size());
        u32(0);
        fourCc(type);
    }
    void openFull(const char (&type)[5], int version, std::uint32_t flags) {
        open(type);
        u8(version);
        unsignedOf(flags, 3);
    }
    void close() {
        const std::size_t start = starts_.back();
        starts_.pop_back();
        const std::uint64_t size = bytes_.size() - start;
        for (int i = 0; i < 4; ++i)
            bytes_[start + i] = static_cast<std::uint8_t>(size >> (8 * (3 - i)));
    }

    Bytes take() { return std::move(bytes_); }
    std::size_t size() const { return bytes_.size(); }

private:
    Bytes bytes_;
    std::vector<std::size_t> starts_;
};

struct Association {
    int property = 0; // 1-based index into ipco
    bool essential = false;
};

struct Item {
    std::uint32_t id = 0;
    char type[5] = {};
    std::string contentType; // for 'mime' items
    std::uint64_t offset = 0; // within the mdat payload
    std::uint64_t length = 0;
    std::vector<Association> associations;
};

// ipco's children, each stored once however many items use it.
class PropertyTable {
public:
    int add(Bytes box) {
        const auto found = std::find(boxes_.begin(), boxes_.end(), box);
        if (found != boxes_.end())
            return static_cast<int>(found - boxes_.begin()) + 1;
        boxes_.push_back(std::move(box));
        return static_cast<int>(boxes_.size());
    }
    const std::vector<Bytes>& boxes() const { return boxes_; }

private:
    std::vector<Bytes> boxes_;
};

Bytes hvcCBox(const HevcImage& image) {
    BoxBuilder box;
    box.open("hvcC");
    box.raw(image.decoderConfiguration);
    box.close();
    return box.take();
}

Bytes ispeBox(int width, int height) {
    BoxBuilder box;
    box.openFull("ispe", 0, 0);
    box.u32(static_cast<std::uint32_t>(width));
    box.u32(static_cast<std::uint32_t>(height));
    box.close();
    return box.take();
}

Bytes nclxBox() {
    BoxBuilder box;
    box.open("colr");
    box.fourCc("nclx");
    box.u16(ColourDescription::primaries);
    box.u16(ColourDescription::transfer);
    box.u16(ColourDescription::matrix);
    box.u8(ColourDescription::fullRange ? 0x80 : 0);
    box.close();
    return box.take();
}

Bytes pixiBox(int channels) {
    BoxBuilder box;
    box.openFull("pixi", 0, 0);
    box.u8(channels);
    for (int c = 0; c < channels; ++c)
        box.u8(8);
    box.close();
    return box.take();
}

Bytes alphaAuxBox() {
    BoxBuilder box;
    box.openFull("auxC", 0, 0);
    box.text("urn:mpeg:mpegB:cicp:systems:auxiliary:alpha");
    box.close();
    return box.take();
}

// Crops the padded coded picture back to the picture's size, anchored at the top left: the
// aperture's centre lies half a sample left of / above the coded picture's per padded side.
Bytes clapBox(const CodedFrame& frame) {
    BoxBuilder box;
    box.open("clap");
    for (int size : {frame.width, frame.height}) {
        box.u32(static_cast<std::uint32_t>(size));
        box.u32(1);
    }
    for (int padding : {frame.codedWidth - frame.width, frame.codedHeight - frame.height}) {
        box.u32(static_cast<std::uint32_t>(-padding)); // signed, two's complement
        box.u32(2);
    }
    box.close();
    return box.take();
}

std::vector<Association> imageAssociations(PropertyTable& properties, const CodedFrame& frame,
                                           const HevcImage& image, bool alpha) {
    std::vector<Association> associations{
        {properties.add(hvcCBox(image)), true},
        {properties.add(ispeBox(frame.codedWidth, frame.codedHeight)), false},
    };
    if (alpha) {
        associations.push_back({properties.add(pixiBox(1)), false});
        associations.push_back({properties.add(alphaAuxBox()), true});
    } else {
        associations.push_back({properties.add(nclxBox()), false});
        associations.push_back({properties.add(pixiBox(3)), false});
    }
    // Transformations come after every descriptive property.
    if (frame.width != frame.codedWidth || frame.height != frame.codedHeight)
        associations.push_back({properties.add(clapBox(frame)), true});
    return associations;
}

void writeFtyp(BoxBuilder& out) {
    out.open("ftyp");
    out.fourCc("heic");
    out.u32(0);
    out.fourCc("mif1");
    out.fourCc("heic");
    out.close();
}

void writeInfe(BoxBuilder& out, const Item& item) {
    out.openFull("infe", 2, 0);
    out.u16(item.id);
    out.u16(0); // no protection
    out.raw(Bytes(item.type, item.type + 4));
    out.text(""); // no name
    if (!item.contentType.empty())
        out.text(item.contentType);
    out.close();
}

struct Reference {
    char type[5] = {};
    std::uint32_t from = 0;
    std::uint32_t to = 0;
};

void writeMeta(BoxBuilder& out, const std::vector<Item>& items,
               const std::vector<Reference>& references, const PropertyTable& properties,
               std::uint64_t payloadStart, int offsetSize) {
    out.openFull("meta", 0, 0);

    out.openFull("hdlr", 0, 0);
    out.u32(0);
    out.fourCc("pict");
    for (int i = 0; i < 3; ++i)
        out.u32(0);
    out.text("");
    out.close();

    out.openFull("pitm", 0, 0);
    out.u16(items.front().id);
    out.close();

    out.openFull("iinf", 0, 0);
    out.u16(items.size());
    for (const auto& item : items)
        writeInfe(out, item);
    out.close();

    if (!references.empty()) {
        out.openFull("iref", 0, 0);
        for (const auto& reference : references) {
            out.open(reference.type);
            out.u16(reference.from);
            out.u16(1);
            out.u16(reference.to);
            out.close();
        }
        out.close();
    }

    out.openFull("iloc", 0, 0);
    out.u8((offsetSize << 4) | 4); // offset and length sizes
    out.u8(0);                     // no base offset
    out.u16(items.size());
    for (const auto& item : items) {
        out.u16(item.id);
        out.u16(0); // this file
        out.u16(1); // one extent
        out.unsignedOf(payloadStart + item.offset, offsetSize);
        out.u32(item.length);
    }
    out.close();

    // Indices fit in 7 bits unless there are more than 127 properties.
    const bool wideIndices = properties.boxes().size() > 127;
    out.open("iprp");
    out.open("ipco");
    for (const auto& box : properties.boxes())
        out.raw(box);
    out.close();
    out.openFull("ipma", 0, wideIndices ? 1 : 0);
    std::uint32_t associated = 0;
    for (const auto& item : items)
        associated += item.associations.empty() ? 0 : 1;
    out.u32(associated);
    for (const auto& item : items) {
        if (item.associations.empty())
            continue;
        out.u16(item.id);
        out.u8(item.associations.size());
        for (const auto& [property, essential] : item.associations) {
            if (wideIndices)
                out.u16((essential ? 0x8000 : 0) | property);
            else
                out.u8((essential ? 0x80 : 0) | property);
        }
    }
    out.close();
    out.close();

    out.close();
}

} // namespace

HeifLayout::HeifLayout(const std::vector<CodedFrame>& frames, const std::string& xmp,
                       std::size_t xmpFrame) {
    if (frames.empty() || xmpFrame >= frames.size())
        throw std::invalid_argument("a HEIF file needs at least one image");
    constexpr std::uint32_t maxItems = 0xFFFF;
    std::vector<Item> items;
    std::vector<Reference> references;
    PropertyTable properties;
    std::uint64_t payload = 0;
    auto addItem = [&](const char (&type)[5], std::uint64_t length) -> Item& {
        if (items.size() >= maxItems)
            throw std::invalid_argument("too many images for one file");
        Item item;
        item.id = static_cast<std::uint32_t>(items.size() + 1);
        std::copy(type, type + 5, item.type);
        item.offset = payload;
        item.length = length;
        payload += length;
        return items.emplace_back(std::move(item));
    };

    std::vector<std::uint32_t> frameIds;
    for (const auto& frame : frames) {
        Item& colour = addItem("hvc1", frame.colour.data.size());
        colour.associations = imageAssociations(properties, frame, frame.colour, false);
        frameIds.push_back(colour.id);
        if (frame.alpha) {
            Item& alpha = addItem("hvc1", frame.alpha->data.size());
            alpha.associations = imageAssociations(properties, frame, *frame.alpha, true);
            references.push_back({"auxl", alpha.id, frameIds.back()});
        }
    }
    if (!xmp.empty()) {
        Item& metadata = addItem("mime", xmp.size());
        metadata.contentType = "application/rdf+xml";
        references.push_back({"cdsc", metadata.id, frameIds[xmpFrame]});
    }
    std::stable_sort(references.begin(), references.end(), [](const Reference& a, const Reference& b) {
        return std::string_view(a.type) < std::string_view(b.type);
    });

    // Field widths do not depend on the values, so a first pass with zero offsets gives the size.
    auto build = [&](std::uint64_t payloadStart, int offsetSize, bool largeMdat) {
        BoxBuilder out;
        writeFtyp(out);
        writeMeta(out, items, references, properties, payloadStart, offsetSize);
        if (largeMdat) {
            out.u32(1);
            out.fourCc("mdat");
            out.u64(16 + payload);
        } else {
            out.u32(8 + payload);
            out.fourCc("mdat");
        }
        return out.take();
    };
    const bool largeMdat = payload + 8 > 0xFFFFFFFFull;
    const std::size_t headerSize = build(0, 4, largeMdat).size();
    const int offsetSize = headerSize + payload > 0xFFFFFFFFull ? 8 : 4;
    header_ = build(0, offsetSize, largeMdat);
    header_ = build(header_.size(), offsetSize, largeMdat);
    fileSize_ = header_.size() + payload;
}

} // namespace lumivesper::exporting
