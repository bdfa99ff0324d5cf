#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumivesper::platform {

// A decoded image: 8-bit RGBA, straight alpha, rows top to bottom without padding.
struct PixelImage {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;

    PixelImage() = default;
    PixelImage(int w, int h) : width(w), height(h), rgba(static_cast<std::size_t>(w) * h * 4, 0) {}

    bool empty() const { return width <= 0 || height <= 0; }
    std::size_t rowBytes() const { return static_cast<std::size_t>(width) * 4; }
    std::uint8_t* pixel(int x, int y) { return rgba.data() + y * rowBytes() + std::size_t(x) * 4; }
    const std::uint8_t* pixel(int x, int y) const {
        return rgba.data() + y * rowBytes() + std::size_t(x) * 4;
    }
};

} // namespace lumivesper::platform
