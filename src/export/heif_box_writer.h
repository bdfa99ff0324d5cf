#pragma once

#include "export/hevc_frame_encoder.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::exporting {

// One frame of the file, compressed.
struct CodedFrame {
    int width = 0; // the picture's size; the coded size may be one larger (see PlanarFrame)
    int height = 0;
    int codedWidth = 0;
    int codedHeight = 0;
    HevcImage colour;
    std::optional<HevcImage> alpha;
};

// The layout of a HEIF file of still images: ftyp, meta, then one mdat that holds every frame's
// coded data in frame order (colour, then its alpha) followed by the XMP packet. The first frame
// is the primary image; the XMP describes the frame at `xmpFrame`. Properties with the same bytes are stored once,
// so a file of equally sized frames has a handful of them whatever the frame count.
class HeifLayout {
public:
    HeifLayout(const std::vector<CodedFrame>& frames, const std::string& xmp, std::size_t xmpFrame = 0);

    // ftyp, meta and the mdat header; the payloads follow in the order given above.
    const std::vector<std::uint8_t>& header() const { return header_; }
    std::uint64_t fileSize() const { return fileSize_; }

private:
    std::vector<std::uint8_t> header_;
    std::uint64_t fileSize_ = 0;
};

} // namespace lumivesper::exporting
