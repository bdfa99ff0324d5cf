#include "export/tween_generator.h"

#include "export/heic_generator_error.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <opencv2/imgproc.hpp>
#include <system_error>

namespace lumivesper::exporting {

namespace {

const char* describe(TweenGeneratorError::Case errorCase) {
    switch (errorCase) {
    case TweenGeneratorError::Case::imageLoadFailed:
        return "Failed to load images for tweening";
    case TweenGeneratorError::Case::invalidImageCount:
        return "Invalid tween count";
    case TweenGeneratorError::Case::processingFailed:
        return "Failed to process tween frames";
    }
    return "Failed to process tween frames";
}

bool fileExists(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

// Stretches `image` to exactly width x height, each axis by its own factor.
platform::PixelImage stretch(const platform::PixelImage& image, int width, int height) {
    if (image.width == width && image.height == height)
        return image;
    platform::PixelImage result(width, height);
    const cv::Mat source(image.height, image.width, CV_8UC4,
                         const_cast<std::uint8_t*>(image.rgba.data()));
    cv::Mat target(height, width, CV_8UC4, result.rgba.data());
    cv::resize(source, target, target.size(), 0, 0, cv::INTER_LINEAR);
    return result;
}

std::string rectangleText(const platform::PixelImage& image) {
    char text[96];
    std::snprintf(text, sizeof text, "(0.0, 0.0, %d.0, %d.0)", image.width, image.height);
    return text;
}

} // namespace

TweenGeneratorError::TweenGeneratorError(Case errorCase)
    : std::runtime_error(describe(errorCase)), case_(errorCase) {}

double TweenGenerator::easedFraction(int i, int count) {
    const double u = static_cast<double>(i) / static_cast<double>(count + 1);
    return u * u * (3.0 - 2.0 * u);
}

platform::PixelImage dissolve(const platform::PixelImage& from, const platform::PixelImage& to,
                              double t) {
    platform::PixelImage result(from.width, from.height);
    const std::size_t size = std::min(from.rgba.size(), to.rgba.size());
    for (std::size_t i = 0; i < size; ++i) {
        const double mixed = (1.0 - t) * from.rgba[i] + t * to.rgba[i];
        result.rgba[i] = static_cast<std::uint8_t>(std::clamp(std::lround(mixed), 0L, 255L));
    }
    return result;
}

std::vector<platform::PixelImage>
TweenGenerator::generateTweens(const std::filesystem::path& fromPath,
                               const std::filesystem::path& toPath, int count,
                               const TweenProgress& progress, std::stop_token stop) const {
    using Case = TweenGeneratorError::Case;
    if (count < 1)
        throw TweenGeneratorError(Case::invalidImageCount);
    if (!fileExists(fromPath) || !fileExists(toPath))
        throw TweenGeneratorError(Case::imageLoadFailed);
    platform::PixelImage from;
    platform::PixelImage to;
    try {
        from = platform::loadImage(fromPath);
        to = platform::loadImage(toPath);
    } catch (const platform::ImageIoError&) {
        throw TweenGeneratorError(Case::imageLoadFailed);
    }
    if (from.empty())
        throw TweenGeneratorError(Case::processingFailed);
    if (!to.empty())
        to = stretch(to, from.width, from.height);
    else
        throw TweenGeneratorError(Case::processingFailed);

    std::vector<platform::PixelImage> tweens;
    tweens.reserve(static_cast<std::size_t>(count));
    for (int i = 1; i <= count; ++i) {
        platform::throwIfCancelled(stop);
        tweens.push_back(dissolve(from, to, easedFraction(i, count)));
        if (progress)
            progress(i, count);
    }
    return tweens;
}

std::vector<std::filesystem::path> TweenGenerator::generateAndSaveTweens(
    const std::filesystem::path& fromPath, const std::filesystem::path& toPath, int count,
    const std::filesystem::path& outputDirectory, const std::string& baseName,
    const TweenProgress& progress, std::stop_token stop) const {
    std::error_code ignored; // a folder that is really missing makes the first write fail
    std::filesystem::create_directories(outputDirectory, ignored);
    const auto tweens = generateTweens(fromPath, toPath, count, progress, stop);
    std::vector<std::filesystem::path> paths;
    for (std::size_t n = 0; n < tweens.size(); ++n) {
        platform::throwIfCancelled(stop);
        auto path = outputDirectory / (baseName + "_tween_" + std::to_string(n + 1) + ".png");
        platform::writePng(tweens[n], path);
        paths.push_back(std::move(path));
    }
    return paths;
}

HeicFrameSource TweenGenerator::blendFrame(const HeicFrameSource& previous,
                                           const HeicFrameSource& next,
                                           const document::WallpaperImage& image, int index,
                                           const std::filesystem::path& outputDirectory,
                                           double t) const {
    auto load = [](const std::filesystem::path& path) {
        try {
            return platform::loadImage(path);
        } catch (const platform::ImageIoError&) {
            throw HeicGeneratorError::imageLoadFailed(path.string());
        }
    };
    const auto from = load(previous.url);
    const auto to = load(next.url);
    if (from.width != to.width || from.height != to.height)
        throw HeicGeneratorError::processingFailed(
            "Source images have different sizes: " + rectangleText(from) + " vs " +
            rectangleText(to));
    char name[32];
    std::snprintf(name, sizeof name, "tween_%04d.png", index);
    const auto path = outputDirectory / name;
    try {
        platform::writePng(dissolve(from, to, t), path);
    } catch (const platform::ImageIoError&) {
        throw HeicGeneratorError::fileWriteFailed();
    }
    return HeicFrameSource{image, path, FrameSize{double(from.width), double(from.height)}};
}

} // namespace lumivesper::exporting
