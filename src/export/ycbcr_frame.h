#pragma once

#include "platform/pixel_image.h"

#include <cstdint>
#include <vector>

namespace lumivesper::exporting {

// The colour description every frame is encoded with and every file states: sRGB primaries and
// transfer, BT.601 matrix, full range. Readers that honour it all show the same colours.
struct ColourDescription {
    static constexpr std::uint16_t primaries = 1;  // BT.709, shared by sRGB
    static constexpr std::uint16_t transfer = 13;  // sRGB
    static constexpr std::uint16_t matrix = 6;     // BT.601
    static constexpr bool fullRange = true;
};

// Planes ready for the encoder. 4:2:0 sampling needs even sides and the encoder at least one
// coding tree unit a side, so the picture is padded at the right and bottom by repeating its last column
// and row; `width` and `height` stay the picture's own size, which the file crops back to.
struct PlanarFrame {
    static constexpr int codingTreeSize = 64;
    int width = 0;
    int height = 0;
    int codedWidth = 0;
    int codedHeight = 0;
    bool monochrome = false;
    std::vector<std::uint8_t> luma;          // codedWidth × codedHeight
    std::vector<std::uint8_t> blueDifference; // (codedWidth / 2) × (codedHeight / 2); empty if mono
    std::vector<std::uint8_t> redDifference;
};

// Full-range BT.601 Y′CbCr, chroma from the mean of each 2×2 block of colours.
PlanarFrame toYCbCr420(const platform::PixelImage& image);

// The alpha channel as a single plane, for the auxiliary image of a translucent frame.
PlanarFrame alphaPlane(const platform::PixelImage& image);

bool isOpaque(const platform::PixelImage& image);

} // namespace lumivesper::exporting
