#pragma once

#include "export/upscale/image_upscaling_tool.h"
#include "platform/image_io.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

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
                 std::stop_token) const override {
        if (beforeUpscale)
            beforeUpscale(input);
        const auto source = platform::loadImage(input);
        platform::PixelImage result(source.width * scale, source.height * scale);
        for (int y = 0; y < result.height; ++y)
            for (int x = 0; x < result.width; ++x)
                std::copy_n(source.pixel(x / scale, y / scale), 4, result.pixel(x, y));
        platform::writePng(result, output);
        ++upscales;
    }

    mutable std::atomic<int> factorRequests = 0;
    mutable std::atomic<int> upscales = 0;
    std::function<void(const std::filesystem::path&)> beforeUpscale;

private:
    std::set<int> factors_;
};

} // namespace lumivesper::exporting::testing
