#pragma once

// Builds dynamic wallpapers the way other programs write them, with libheif: the primary
// anywhere, any XMP text, 10-bit and ICC-profiled images, and grid images assembled from tiles
// that libheif encoded (libheif of this age writes no grids of its own).

#include "export/bplist_writer.h"
#include "export/property_list.h"
#include "export/wallpaper_metadata.h"
#include "platform/base64.h"
#include "platform/pixel_image.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <libheif/heif.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::exporting::testing {

using Bytes = std::vector<std::uint8_t>;

inline void heifCheck(heif_error error) {
    if (error.code != heif_error_Ok)
        throw std::runtime_error(std::string("libheif: ") + error.message);
}

// One picture to encode: 8-bit RGB, or 10-bit when `tenBit`, optionally tagged with an ICC profile.
struct Picture {
    int width = 64;
    int height = 64;
    std::uint8_t red = 0, green = 0, blue = 0;
    bool tenBit = false;
    Bytes icc;
};

inline Picture picture(int width, int height, std::uint8_t red = 0, std::uint8_t green = 0,
                       std::uint8_t blue = 0) {
    Picture result;
    result.width = width, result.height = height;
    result.red = red, result.green = green, result.blue = blue;
    return result;
}

inline heif_image* makeImage(const Picture& picture) {
    heif_image* image = nullptr;
    const auto chroma =
        picture.tenBit ? heif_chroma_interleaved_RRGGBB_LE : heif_chroma_interleaved_RGB;
    heifCheck(
        heif_image_create(picture.width, picture.height, heif_colorspace_RGB, chroma, &image));
    heifCheck(heif_image_add_plane(image, heif_channel_interleaved, picture.width, picture.height,
                                   picture.tenBit ? 10 : 8));
    int stride = 0;
    std::uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const std::uint8_t rgb[3] = {picture.red, picture.green, picture.blue};
            for (int c = 0; c < 3; ++c) {
                if (!picture.tenBit) {
                    plane[y * stride + x * 3 + c] = rgb[c];
                    continue;
                }
                const int value = rgb[c] * 1023 / 255;
                plane[y * stride + x * 6 + c * 2] = static_cast<std::uint8_t>(value & 0xFF);
                plane[y * stride + x * 6 + c * 2 + 1] = static_cast<std::uint8_t>(value >> 8);
            }
        }
    if (!picture.icc.empty())
        heifCheck(heif_image_set_raw_color_profile(image, "prof", picture.icc.data(),
                                                   picture.icc.size()));
    return image;
}

// Encodes the pictures as top-level images in order; the image at `primary` becomes the primary
// and carries `xmp` (none when empty).
inline void writeHeif(const std::filesystem::path& path, const std::vector<Picture>& pictures,
                      std::size_t primary, const std::string& xmp) {
    std::unique_ptr<heif_context, void (*)(heif_context*)> context(heif_context_alloc(),
                                                                   heif_context_free);
    heif_encoder* encoder = nullptr;
    heifCheck(heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &encoder));
    heif_encoder_set_lossy_quality(encoder, 90);
    for (std::size_t n = 0; n < pictures.size(); ++n) {
        heif_image* image = makeImage(pictures[n]);
        heif_image_handle* handle = nullptr;
        heifCheck(heif_context_encode_image(context.get(), image, encoder, nullptr, &handle));
        heif_image_release(image);
        if (n == primary) {
            heifCheck(heif_context_set_primary_image(context.get(), handle));
            if (!xmp.empty())
                heifCheck(heif_context_add_XMP_metadata(context.get(), handle, xmp.data(),
                                                        static_cast<int>(xmp.size())));
        }
        heif_image_handle_release(handle);
    }
    heif_encoder_release(encoder);
    heifCheck(heif_context_write_to_file(context.get(), path.c_str()));
}

// The base64 value of a document, as a property value.
inline std::string metadataValue(const PlistValue& document) {
    return platform::encodeBase64(writeBinaryPlist(document));
}

// The XMP packet of another writer: the property as an element in an xpacket.
inline std::string elementXmp(const std::string& name, const std::string& value) {
    return "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
           "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"Other Writer\">\n"
           " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
           "  <rdf:Description rdf:about=\"\" "
           "xmlns:apple_desktop=\"http://ns.apple.com/namespace/1.0/\">\n"
           "   <apple_desktop:" +
           name + ">" + value + "</apple_desktop:" + name +
           ">\n"
           "  </rdf:Description>\n </rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"w\"?>";
}

// ---- Grid images, assembled box by box ----

struct CodedTile {
    Bytes configuration; // the whole hvcC box
    Bytes data;          // the coded picture
};

inline std::uint32_t readU32(const Bytes& bytes, std::size_t at) {
    return std::uint32_t(bytes[at]) << 24 | std::uint32_t(bytes[at + 1]) << 16 |
           std::uint32_t(bytes[at + 2]) << 8 | bytes[at + 3];
}

// A tile as libheif codes it: a file of one image, whose hvcC box and mdat are taken apart.
inline CodedTile encodeTile(const Picture& picture) {
    const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                       ("lumivesper-tile-" + std::to_string(::getpid()) + ".heic");
    writeHeif(path, {picture}, 0, "");
    std::ifstream in(path, std::ios::binary);
    const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::filesystem::remove(path);
    CodedTile tile;
    for (std::size_t at = 4; at + 4 <= file.size(); ++at)
        if (std::memcmp(&file[at], "hvcC", 4) == 0) {
            const auto size = readU32(file, at - 4);
            tile.configuration.assign(file.begin() + at - 4, file.begin() + at - 4 + size);
            break;
        }
    for (std::size_t at = 0; at + 8 <= file.size();) {
        const auto size = readU32(file, at);
        if (std::memcmp(&file[at + 4], "mdat", 4) == 0)
            tile.data.assign(file.begin() + at + 8, file.begin() + at + size);
        at += size;
    }
    if (tile.configuration.empty() || tile.data.empty())
        throw std::runtime_error("libheif wrote a tile we cannot take apart");
    return tile;
}

class BoxWriter {
public:
    void u8(unsigned v) { bytes.push_back(static_cast<std::uint8_t>(v)); }
    void u16(unsigned v) { u8(v >> 8), u8(v); }
    void u32(std::uint32_t v) { u16(v >> 16), u16(v & 0xFFFF); }
    void text(const std::string& s) { bytes.insert(bytes.end(), s.begin(), s.end()); }
    void append(const Bytes& b) { bytes.insert(bytes.end(), b.begin(), b.end()); }
    static Bytes box(const char* type, const Bytes& payload) {
        BoxWriter w;
        w.u32(static_cast<std::uint32_t>(payload.size() + 8));
        w.text(type);
        w.append(payload);
        return w.bytes;
    }
    static Bytes fullBox(const char* type, unsigned version, unsigned flags, const Bytes& payload) {
        BoxWriter w;
        w.u32((version << 24) | flags);
        w.append(payload);
        return box(type, w.bytes);
    }
    Bytes bytes;
};

// A file whose first top-level image (the primary, carrying `xmp`) is a columns × rows grid of
// `tiles` (row by row, each tileSize square), followed by `others` as plain images.
inline Bytes gridWallpaper(const std::vector<CodedTile>& tiles, int columns, int rows, int tileSize,
                           const std::vector<CodedTile>& others, int otherSize,
                           const std::string& xmp) {
    // Items: 1 the grid, then the tiles, then the other images, then the XMP.
    const unsigned gridId = 1, firstTile = 2;
    const unsigned firstOther = firstTile + unsigned(tiles.size());
    const unsigned xmpId = firstOther + unsigned(others.size());
    BoxWriter gridData;
    gridData.u8(0), gridData.u8(0), gridData.u8(rows - 1), gridData.u8(columns - 1);
    gridData.u16(columns * tileSize), gridData.u16(rows * tileSize);

    std::vector<std::pair<unsigned, Bytes>> payloads{{gridId, gridData.bytes}};
    for (std::size_t n = 0; n < tiles.size(); ++n)
        payloads.push_back({firstTile + unsigned(n), tiles[n].data});
    for (std::size_t n = 0; n < others.size(); ++n)
        payloads.push_back({firstOther + unsigned(n), others[n].data});
    payloads.push_back({xmpId, Bytes(xmp.begin(), xmp.end())});

    auto ispe = [](int width, int height) {
        BoxWriter w;
        w.u32(width), w.u32(height);
        return BoxWriter::fullBox("ispe", 0, 0, w.bytes);
    };
    auto meta = [&](std::uint32_t dataStart) {
        BoxWriter hdlr;
        hdlr.u32(0), hdlr.text("pict"), hdlr.u32(0), hdlr.u32(0), hdlr.u32(0), hdlr.u8(0);
        BoxWriter pitm;
        pitm.u16(gridId);

        BoxWriter iinf;
        iinf.u16(static_cast<unsigned>(payloads.size()));
        auto infe = [&](unsigned id, const char* type, unsigned flags,
                        const std::string& contentType) {
            BoxWriter w;
            w.u16(id), w.u16(0), w.text(type), w.u8(0);
            if (!contentType.empty())
                w.text(contentType), w.u8(0);
            iinf.append(BoxWriter::fullBox("infe", 2, flags, w.bytes));
        };
        infe(gridId, "grid", 0, "");
        for (std::size_t n = 0; n < tiles.size(); ++n)
            infe(firstTile + unsigned(n), "hvc1", 1, ""); // hidden
        for (std::size_t n = 0; n < others.size(); ++n)
            infe(firstOther + unsigned(n), "hvc1", 0, "");
        infe(xmpId, "mime", 0, "application/rdf+xml");

        BoxWriter dimg, cdsc;
        dimg.u16(gridId), dimg.u16(static_cast<unsigned>(tiles.size()));
        for (std::size_t n = 0; n < tiles.size(); ++n)
            dimg.u16(firstTile + unsigned(n));
        cdsc.u16(xmpId), cdsc.u16(1), cdsc.u16(gridId);
        BoxWriter iref;
        iref.append(BoxWriter::box("dimg", dimg.bytes));
        iref.append(BoxWriter::box("cdsc", cdsc.bytes));

        // Properties: 1 the tiles' size, 2 the grid's size, 3 the others' size, then each coded
        // image's configuration.
        BoxWriter ipco, ipma;
        ipco.append(ispe(tileSize, tileSize));
        ipco.append(ispe(columns * tileSize, rows * tileSize));
        ipco.append(ispe(otherSize, otherSize));
        unsigned property = 4;
        ipma.u32(static_cast<std::uint32_t>(1 + tiles.size() + others.size()));
        ipma.u16(gridId), ipma.u8(1), ipma.u8(2);
        auto coded = [&](unsigned id, const CodedTile& tile, unsigned size) {
            ipco.append(tile.configuration);
            ipma.u16(id), ipma.u8(2), ipma.u8(0x80 | property++), ipma.u8(size);
        };
        for (std::size_t n = 0; n < tiles.size(); ++n)
            coded(firstTile + unsigned(n), tiles[n], 1);
        for (std::size_t n = 0; n < others.size(); ++n)
            coded(firstOther + unsigned(n), others[n], 3);
        BoxWriter iprp;
        iprp.append(BoxWriter::box("ipco", ipco.bytes));
        iprp.append(BoxWriter::fullBox("ipma", 0, 0, ipma.bytes));

        BoxWriter iloc;
        iloc.u8(0x44), iloc.u8(0x00), iloc.u16(static_cast<unsigned>(payloads.size()));
        std::uint32_t offset = dataStart;
        for (const auto& [id, data] : payloads) {
            iloc.u16(id), iloc.u16(0), iloc.u16(1), iloc.u32(offset);
            iloc.u32(static_cast<std::uint32_t>(data.size()));
            offset += static_cast<std::uint32_t>(data.size());
        }
        BoxWriter content;
        content.append(BoxWriter::fullBox("hdlr", 0, 0, hdlr.bytes));
        content.append(BoxWriter::fullBox("pitm", 0, 0, pitm.bytes));
        content.append(BoxWriter::fullBox("iinf", 0, 0, iinf.bytes));
        content.append(BoxWriter::fullBox("iref", 0, 0, iref.bytes));
        content.append(BoxWriter::box("iprp", iprp.bytes));
        content.append(BoxWriter::fullBox("iloc", 0, 0, iloc.bytes));
        return BoxWriter::fullBox("meta", 0, 0, content.bytes);
    };
    BoxWriter ftyp;
    ftyp.text("heic"), ftyp.u32(0), ftyp.text("mif1"), ftyp.text("heic");
    const Bytes head = BoxWriter::box("ftyp", ftyp.bytes);
    const auto metaSize = meta(0).size(); // offsets have a fixed width, so the size is known
    BoxWriter mdat;
    for (const auto& payload : payloads)
        mdat.append(payload.second);
    BoxWriter file;
    file.append(head);
    file.append(meta(static_cast<std::uint32_t>(head.size() + metaSize + 8)));
    file.append(BoxWriter::box("mdat", mdat.bytes));
    return file.bytes;
}

} // namespace lumivesper::exporting::testing
