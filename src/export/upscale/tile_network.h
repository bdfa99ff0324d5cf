#pragma once

#include "platform/pixel_image.h"

#include <string>

namespace lumivesper::upscale {

// One loaded copy of the tile model with its working memory, run by one caller at a time.
class TileNetwork {
public:
    virtual ~TileNetwork() = default;

    // One RGBA tile of the network's input size through the network; the result is opaque.
    // Throws UpscaleError::missingOutput when the network's output is not a 3-channel image.
    virtual platform::PixelImage run(const platform::PixelImage& tile) = 0;
};

// The network's input for one RGBA tile: three planes R, G, B of floats in 0..1, written from
// `planes` on; alpha is not seen.
void tileToPlanes(const platform::PixelImage& tile, float* planes);

// Three planes R, G, B of `width` x `height` floats as an opaque RGBA image, clamped to 0..1.
platform::PixelImage planesToTile(const float* planes, int width, int height);

} // namespace lumivesper::upscale
