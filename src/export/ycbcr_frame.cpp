#include "export/ycbcr_frame.h"

#include <algorithm>

namespace lumivesper::exporting {

namespace {

// 4:2:0 needs even sides, and the encoder at least one coding tree unit.
int codedSide(int value) {
    return std::max(PlanarFrame::codingTreeSize, value + (value & 1));
}

PlanarFrame emptyFrame(const platform::PixelImage& image, bool monochrome) {
    PlanarFrame frame;
    frame.width = image.width;
    frame.height = image.height;
    frame.codedWidth = codedSide(image.width);
    frame.codedHeight = codedSide(image.height);
    frame.monochrome = monochrome;
    frame.luma.resize(std::size_t(frame.codedWidth) * frame.codedHeight);
    if (!monochrome) {
        const std::size_t chroma = std::size_t(frame.codedWidth / 2) * (frame.codedHeight / 2);
        frame.blueDifference.resize(chroma);
        frame.redDifference.resize(chroma);
    }
    return frame;
}

// Coefficients scaled by 2^16; the offset rounds to nearest.
constexpr int scaleBits = 16;
constexpr int half = 1 << (scaleBits - 1);
constexpr int chromaHalf = 1 << (scaleBits + 1); // rounds a sum of four samples

std::uint8_t clampToByte(int value) {
    return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

std::uint8_t lumaOf(const std::uint8_t* rgb) {
    return clampToByte((19595 * rgb[0] + 38470 * rgb[1] + 7471 * rgb[2] + half) >> scaleBits);
}

} // namespace

bool isOpaque(const platform::PixelImage& image) {
    for (std::size_t i = 3; i < image.rgba.size(); i += 4)
        if (image.rgba[i] != 255)
            return false;
    return true;
}

PlanarFrame toYCbCr420(const platform::PixelImage& image) {
    PlanarFrame frame = emptyFrame(image, false);
    const int lastX = image.width - 1;
    const int lastY = image.height - 1;
    for (int y = 0; y < frame.codedHeight; ++y) {
        std::uint8_t* out = frame.luma.data() + std::size_t(y) * frame.codedWidth;
        const int sourceY = std::min(y, lastY);
        for (int x = 0; x < frame.codedWidth; ++x)
            out[x] = lumaOf(image.pixel(std::min(x, lastX), sourceY));
    }
    const int chromaWidth = frame.codedWidth / 2;
    for (int cy = 0; cy < frame.codedHeight / 2; ++cy) {
        const int top = std::min(2 * cy, lastY);
        const int bottom = std::min(2 * cy + 1, lastY);
        for (int cx = 0; cx < chromaWidth; ++cx) {
            const int left = std::min(2 * cx, lastX);
            const int right = std::min(2 * cx + 1, lastX);
            int sum[3] = {0, 0, 0};
            for (const std::uint8_t* p : {image.pixel(left, top), image.pixel(right, top),
                                          image.pixel(left, bottom), image.pixel(right, bottom)})
                for (int c = 0; c < 3; ++c)
                    sum[c] += p[c];
            // The sums are four times the mean: fold that into the shift.
            const int r = sum[0], g = sum[1], b = sum[2];
            const std::size_t at = std::size_t(cy) * chromaWidth + cx;
            frame.blueDifference[at] = clampToByte(
                128 + ((-11059 * r - 21709 * g + 32768 * b + chromaHalf) >> (scaleBits + 2)));
            frame.redDifference[at] = clampToByte(
                128 + ((32768 * r - 27439 * g - 5329 * b + chromaHalf) >> (scaleBits + 2)));
        }
    }
    return frame;
}

PlanarFrame alphaPlane(const platform::PixelImage& image) {
    PlanarFrame frame = emptyFrame(image, true);
    const int lastX = image.width - 1;
    const int lastY = image.height - 1;
    for (int y = 0; y < frame.codedHeight; ++y) {
        std::uint8_t* out = frame.luma.data() + std::size_t(y) * frame.codedWidth;
        for (int x = 0; x < frame.codedWidth; ++x)
            out[x] = image.pixel(std::min(x, lastX), std::min(y, lastY))[3];
    }
    return frame;
}

} // namespace lumivesper::exporting
