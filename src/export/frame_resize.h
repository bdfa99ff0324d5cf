#pragma once

#include "export/heic_frame.h"
#include "platform/pixel_image.h"

#include <cstdint>
#include <filesystem>

namespace lumivesper::exporting {

// Scales `image` with Lanczos so that it covers width x height (the larger of the two factors),
// then cuts the centred rectangle of exactly that size: the canvas is filled, never letterboxed
// and never stretched.
platform::PixelImage fillAndCrop(const platform::PixelImage& image, int width, int height);

// Adds at most 2% of noise per channel, composited over the frame and slightly darkening it, to
// break up banding in gradients. `seed` picks the noise field.
void dither(platform::PixelImage& image, std::uint64_t seed);

// The final render of a preprocessed frame: reads `input`, fills and crops it to `target`
// (rounded to whole pixels), dithers it when asked, and writes `output` as PNG. Failures are
// HeicGeneratorError.
void resizeFrame(const std::filesystem::path& input, const std::filesystem::path& output,
                 FrameSize target, bool enableDither);

} // namespace lumivesper::exporting
