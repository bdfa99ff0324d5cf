#pragma once

#include "platform/pixel_image.h"

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace lumivesper::platform {

class ImageIoError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ImageSize {
    int width = 0;
    int height = 0;
    bool operator==(const ImageSize&) const = default;
};

// Decodes the first page of any format libvips reads, turned upright by its orientation tag,
// converted to sRGB through its embedded ICC profile (or by colour space when it has none), as
// 8-bit RGBA. Throws ImageIoError when the file cannot be read or decoded.
PixelImage loadImage(const std::filesystem::path& path);

// The same, scaled down so that the long side is at most `maxSide` (never up): for display.
PixelImage loadPreview(const std::filesystem::path& path, int maxSide = 1024);
// The same from an encoded image held in memory (an answer of an image model).
PixelImage loadPreview(std::string_view encoded, int maxSide = 1024);

// The upright size of the first page, read from the header without decoding the pixels.
ImageSize readImageSize(const std::filesystem::path& path);

// `image` brought down to exactly width x height (each no larger than the image's) by Lanczos 3
// with its kernel widened by the shrink factor: what lies above the new Nyquist frequency is
// filtered out instead of folding back as moiré and jagged edges. Throws ImageIoError.
PixelImage shrinkLanczos(const PixelImage& image, int width, int height);

// Whether `bytes` are an image that decodes whole (every pixel read, so a truncated body fails
// too): what a downloaded "image" must pass before it is kept.
bool decodesAsImage(std::string_view bytes);

// Writes a PNG quickly (compression 1, the "up" filter): for frames that live for seconds.
void writePng(const PixelImage& image, const std::filesystem::path& path);

} // namespace lumivesper::platform
