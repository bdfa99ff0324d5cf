#pragma once

#include "platform/pixel_image.h"

#include <functional>
#include <stop_token>
#include <vector>

namespace lumivesper::upscale {

// The fixed tile of the network: tiles overlap by `overlap` pixels and each is `scale` times
// larger after the network.
struct TileGeometry {
    int tileSize = 512;
    int overlap = 32;
    int scale = 4;

    int stride() const { return tileSize - overlap; }
};

struct TileOrigin {
    int x = 0;
    int y = 0;
    bool operator==(const TileOrigin&) const = default;
};

// Every tile's top-left corner, in drawing order: rows from the top, left to right. Positions step
// by the stride and are moved back inside at the right and bottom edges, so every tile is whole;
// a stepped position past the edge repeats the edge tile rather than being skipped.
std::vector<TileOrigin> tileOrigins(int width, int height, const TileGeometry& geometry = {});

// Turns one tileSize x tileSize RGBA tile into its upscaled RGBA tile.
using TileRunner = std::function<platform::PixelImage(const platform::PixelImage& tile)>;

// Upscales `image` tile by tile, strictly in sequence, and lays each result into one image of
// `scale` times the size. Later tiles overwrite the overlap of earlier ones, without blending.
// Throws UpscaleError::invalidInputSize for an image smaller than a tile, missingOutput when a
// tile comes back at the wrong size, imageCreateFailed when the result cannot be allocated, and
// platform::CancellationError when `stop` fires between tiles.
platform::PixelImage upscaleTiled(const platform::PixelImage& image, const TileRunner& runTile,
                                  const TileGeometry& geometry = {}, std::stop_token stop = {});

} // namespace lumivesper::upscale
