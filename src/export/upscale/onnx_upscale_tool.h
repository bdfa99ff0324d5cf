#pragma once

#include "export/upscale/compute_target.h"
#include "export/upscale/image_upscaling_tool.h"
#include "platform/pixel_image.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace lumivesper::upscale {

class OnnxNetPool;

// Upscales by 4 with a Real-ESRGAN-style ONNX network that takes fixed 512x512 RGB tiles and
// returns 2048x2048 ones, run by OpenCV's DNN module on an OpenCL GPU when there is one.
// Safe to share between threads: each concurrent call borrows its own network.
class OnnxUpscaleTool final : public ImageUpscalingTool {
public:
    static constexpr int tileSize = 512;
    static constexpr int overlap = 32;
    static constexpr int scaleFactor = 4;
    static constexpr const char* modelName = "realesrgan512";
    // The export preprocessor keeps at most this many frames in flight.
    static constexpr std::size_t defaultMaxNetworks = 3;

    // Loads the model from the first place findUpscaleModel() knows; throws
    // UpscaleError::modelLoadFailed when there is none or it cannot be loaded.
    OnnxUpscaleTool();
    // Loads the model at `modelPath`. `maxNetworks` bounds how many calls run at once (each needs
    // its own network's memory); further callers wait.
    explicit OnnxUpscaleTool(const std::filesystem::path& modelPath,
                             ComputeTarget target = ComputeTarget::automatic,
                             std::size_t maxNetworks = defaultMaxNetworks);
    ~OnnxUpscaleTool() override;
    OnnxUpscaleTool(const OnnxUpscaleTool&) = delete;
    OnnxUpscaleTool& operator=(const OnnxUpscaleTool&) = delete;

    std::set<int> supportedScaleFactors() const override { return {scaleFactor}; }

    void upscale(const std::filesystem::path& input, const std::filesystem::path& output, int scale,
                 std::stop_token stop = {}) const override;

    // The tiling over a decoded image: 4 times larger on both axes. Transparency, which the
    // network does not see, is carried over by resizing the source's alpha.
    platform::PixelImage upscaleImage(const platform::PixelImage& image,
                                      std::stop_token stop = {}) const;

    // One tileSize x tileSize RGBA tile through the network.
    platform::PixelImage upscaleTile(const platform::PixelImage& tile) const;

    const std::filesystem::path& modelPath() const { return modelPath_; }
    bool usesGpu() const;

private:
    std::filesystem::path modelPath_;
    std::unique_ptr<OnnxNetPool> networks_;
};

} // namespace lumivesper::upscale
