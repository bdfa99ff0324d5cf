#include "export/upscale/tile_upscaler.h"

#include "export/upscale/upscale_error.h"
#include "platform/cancellation.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace lumivesper::upscale {

namespace {

platform::PixelImage cropTile(const platform::PixelImage& image, TileOrigin origin, int size) {
    platform::PixelImage tile(size, size);
    for (int row = 0; row < size; ++row)
        std::memcpy(tile.pixel(0, row), image.pixel(origin.x, origin.y + row), tile.rowBytes());
    return tile;
}

void drawTile(platform::PixelImage& target, const platform::PixelImage& tile, int x, int y) {
    for (int row = 0; row < tile.height; ++row)
        std::memcpy(target.pixel(x, y + row), tile.pixel(0, row), tile.rowBytes());
}

} // namespace

std::vector<TileOrigin> tileOrigins(int width, int height, const TileGeometry& geometry) {
    std::vector<TileOrigin> origins;
    const int size = geometry.tileSize;
    for (int y = 0; y < height; y += geometry.stride()) {
        for (int x = 0; x < width; x += geometry.stride())
            origins.push_back({std::min(x, width - size), std::min(y, height - size)});
    }
    return origins;
}

platform::PixelImage upscaleTiled(const platform::PixelImage& image, const TileRunner& runTile,
                                  const TileGeometry& geometry, std::stop_token stop) {
    // No padding: images smaller than a tile never reach the network.
    if (image.width < geometry.tileSize || image.height < geometry.tileSize)
        throw UpscaleError::invalidInputSize();

    const int outputTile = geometry.tileSize * geometry.scale;
    platform::PixelImage target;
    try {
        target = platform::PixelImage(image.width * geometry.scale, image.height * geometry.scale);
    } catch (const std::bad_alloc&) {
        throw UpscaleError::imageCreateFailed();
    }

    for (const TileOrigin origin : tileOrigins(image.width, image.height, geometry)) {
        // A large frame takes minutes on a CPU: a cancelled export must not wait for all of it.
        platform::throwIfCancelled(stop);
        const platform::PixelImage result = runTile(cropTile(image, origin, geometry.tileSize));
        if (result.width != outputTile || result.height != outputTile ||
            result.rgba.size() != static_cast<std::size_t>(outputTile) * outputTile * 4)
            throw UpscaleError::missingOutput();
        drawTile(target, result, origin.x * geometry.scale, origin.y * geometry.scale);
    }
    return target;
}

} // namespace lumivesper::upscale
