#include "export/frame_resize.h"

#include "export/heic_generator_error.h"
#include "platform/image_io.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <random>

namespace lumivesper::exporting {

platform::PixelImage fillAndCrop(const platform::PixelImage& image, int width, int height) {
    if (image.empty() || width <= 0 || height <= 0)
        throw HeicGeneratorError::processingFailed("Invalid image extent.");
    const double scale = std::max(double(width) / image.width, double(height) / image.height);
    // Never below the canvas, whatever the rounding did.
    const int scaledWidth = std::max(width, static_cast<int>(std::lround(image.width * scale)));
    const int scaledHeight = std::max(height, static_cast<int>(std::lround(image.height * scale)));

    const cv::Mat source(image.height, image.width, CV_8UC4,
                         const_cast<std::uint8_t*>(image.rgba.data()));
    cv::Mat scaled;
    platform::PixelImage shrunk;
    if (scaledWidth == image.width && scaledHeight == image.height) {
        scaled = source;
    } else if (scale < 1.0) {
        // OpenCV's Lanczos keeps its kernel at 8 taps whatever the factor, so a shrink by more
        // than a little aliases; shrinking takes the widened kernel instead.
        try {
            shrunk = platform::shrinkLanczos(image, scaledWidth, scaledHeight);
        } catch (const platform::ImageIoError&) {
            throw HeicGeneratorError::processingFailed("Failed to render resized image.");
        }
        scaled = cv::Mat(shrunk.height, shrunk.width, CV_8UC4, shrunk.rgba.data());
    } else {
        cv::resize(source, scaled, cv::Size(scaledWidth, scaledHeight), 0, 0, cv::INTER_LANCZOS4);
    }

    platform::PixelImage result(width, height);
    const cv::Rect centre((scaledWidth - width) / 2, (scaledHeight - height) / 2, width, height);
    cv::Mat target(height, width, CV_8UC4, result.rgba.data());
    scaled(centre).copyTo(target);
    return result;
}

void dither(platform::PixelImage& image, std::uint64_t seed) {
    // Premultiplied source-over of a noise field scaled by 0.02 in every channel, alpha too:
    // out = noise * 0.02 + frame * (1 - 0.02 * noiseAlpha).
    std::mt19937_64 random(seed);
    constexpr double amount = 0.02;
    for (std::size_t i = 0; i + 3 < image.rgba.size(); i += 4) {
        const std::uint64_t bits = random();
        const double noise[4] = {
            double(bits & 0xFFFF) / 65535.0, double((bits >> 16) & 0xFFFF) / 65535.0,
            double((bits >> 32) & 0xFFFF) / 65535.0, double((bits >> 48) & 0xFFFF) / 65535.0};
        const double keep = 1.0 - amount * noise[3];
        const double alpha = image.rgba[i + 3] / 255.0;
        const double outAlpha = amount * noise[3] + alpha * keep;
        for (int c = 0; c < 3; ++c) {
            // Work premultiplied, then store straight again.
            // The noise field counts as premultiplied already, like a random generator's output.
            const double premultiplied =
                amount * noise[c] + (image.rgba[i + c] / 255.0) * alpha * keep;
            const double straight = outAlpha > 0 ? premultiplied / outAlpha : 0.0;
            image.rgba[i + c] =
                static_cast<std::uint8_t>(std::clamp(std::lround(straight * 255.0), 0L, 255L));
        }
        image.rgba[i + 3] =
            static_cast<std::uint8_t>(std::clamp(std::lround(outAlpha * 255.0), 0L, 255L));
    }
}

void resizeFrame(const std::filesystem::path& input, const std::filesystem::path& output,
                 FrameSize target, bool enableDither) {
    platform::PixelImage source;
    try {
        source = platform::loadImage(input);
    } catch (const platform::ImageIoError&) {
        throw HeicGeneratorError::imageLoadFailed(input.string());
    }
    if (source.empty())
        throw HeicGeneratorError::processingFailed("Invalid image extent.");
    const int width = std::max(1, static_cast<int>(std::lround(target.width)));
    const int height = std::max(1, static_cast<int>(std::lround(target.height)));
    auto result = fillAndCrop(source, width, height);
    source = {}; // release the source before encoding the PNG: frames in flight add up
    if (enableDither)
        dither(result, std::random_device()() ^ (std::uint64_t(std::random_device()()) << 32));
    try {
        platform::writePng(result, output);
    } catch (const platform::ImageIoError&) {
        throw HeicGeneratorError::processingFailed("Failed to render resized image.");
    }
}

} // namespace lumivesper::exporting
