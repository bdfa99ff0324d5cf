#pragma once

#include "document/wallpaper_image.h"
#include "export/upscale/image_upscaling_tool.h"
#include "platform/image_io.h"

#include <atomic>
#include <functional>
#include <string>

namespace lumivesper::exporting::testing {

// Enlarges by pixel repetition: cheap, exact, and shared by the frames in flight like the real one.
class FakeUpscaler : public upscale::ImageUpscalingTool {
public:
    explicit FakeUpscaler(std::set<int> factors) : factors_(std::move(factors)) {}

    std::set<int> supportedScaleFactors() const override {
        ++factorRequests;
        return factors_;
    }

    void upscale(const std::filesystem::path& input, const std::filesystem::path& output, int scale,
                 std::stop_token, const upscale::TileProgress& progress) const override {
        if (beforeUpscale)
            beforeUpscale(input);
        const auto source = platform::loadImage(input);
        platform::PixelImage result(source.width * scale, source.height * scale);
        for (int y = 0; y < result.height; ++y)
            for (int x = 0; x < result.width; ++x)
                std::copy_n(source.pixel(x / scale, y / scale), 4, result.pixel(x, y));
        platform::writePng(result, output);
        for (int tile = 1; tile <= tilesPerUpscale && progress; ++tile)
            progress(tile, tilesPerUpscale);
        ++upscales;
    }

    mutable std::atomic<int> factorRequests = 0, upscales = 0;
    int tilesPerUpscale = 0; // tiles reported by each upscale
    std::function<void(const std::filesystem::path&)> beforeUpscale;

private:
    std::set<int> factors_;
};

// A solid PNG, `value` in every colour channel, and the image that refers to it.
inline document::WallpaperImage solidImage(const std::filesystem::path& folder,
                                           const std::string& name, int width, int height,
                                           std::uint8_t value = 0) {
    platform::PixelImage pixels(width, height);
    for (std::size_t i = 0; i < pixels.rgba.size(); ++i)
        pixels.rgba[i] = i % 4 == 3 ? 255 : value;
    document::WallpaperImage image;
    image.fileName = name;
    image.sourcePath = folder / name;
    platform::writePng(pixels, *image.sourcePath);
    return image;
}

// The description of the Error that `call` throws, or "no error".
template <typename Error, typename Call> std::string failure(Call&& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.description();
    }
    return "no error";
}

} // namespace lumivesper::exporting::testing
