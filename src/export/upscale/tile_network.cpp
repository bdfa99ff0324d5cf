#include "export/upscale/tile_network.h"

#include <cmath>
#include <cstdint>

namespace lumivesper::upscale {

void tileToPlanes(const platform::PixelImage& tile, float* planes) {
    const std::size_t plane = static_cast<std::size_t>(tile.width) * tile.height;
    float* red = planes;
    float* green = red + plane;
    float* blue = green + plane;
    const std::uint8_t* source = tile.rgba.data();
    for (std::size_t i = 0; i < plane; ++i, source += 4) {
        red[i] = source[0] / 255.0f;
        green[i] = source[1] / 255.0f;
        blue[i] = source[2] / 255.0f;
    }
}

platform::PixelImage planesToTile(const float* planes, int width, int height) {
    platform::PixelImage tile(width, height);
    const std::size_t plane = static_cast<std::size_t>(width) * height;
    const float* red = planes;
    const float* green = red + plane;
    const float* blue = green + plane;
    auto toByte = [](float value) -> std::uint8_t {
        if (!(value > 0.0f)) // NaN included
            return 0;
        if (value >= 1.0f)
            return 255;
        return static_cast<std::uint8_t>(std::lround(value * 255.0f));
    };
    std::uint8_t* target = tile.rgba.data();
    for (std::size_t i = 0; i < plane; ++i, target += 4) {
        target[0] = toByte(red[i]);
        target[1] = toByte(green[i]);
        target[2] = toByte(blue[i]);
        target[3] = 255;
    }
    return tile;
}

} // namespace lumivesper::upscale
