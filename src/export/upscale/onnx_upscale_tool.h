#pragma once

#include "export/upscale/compute_target.h"
#include "export/upscale/image_upscaling_tool.h"
#include "export/upscale/tile_time_cache.h"
#include "platform/pixel_image.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace lumivesper::upscale {

class TileNetworkPool;

// Upscales by 4 with a Real-ESRGAN-style ONNX network that takes fixed 512x512 RGB tiles and
// returns 2048x2048 ones. It runs on an OpenCL GPU through OpenCV's DNN module when there is
// one, else on the CPU with oneDNN, which runs such networks several times faster than OpenCV's
// CPU path; a model with operators oneDNN is not given falls back to OpenCV.
// Safe to share between threads: each call borrows a network from a small pool for the whole
// image, and waits (cancellably) when none is free.
class OnnxUpscaleTool final : public ImageUpscalingTool {
public:
    static constexpr int tileSize = 512;
    static constexpr int overlap = 32;
    static constexpr int scaleFactor = 4;
    static constexpr const char* modelName = "realesrgan512";
    // Frames in flight share one network in turn. On a CPU one forward pass already uses every
    // core: measured on 2 cores, three callers with a network each were no faster than three
    // taking one network in turn, and needed more than twice the memory.
    static constexpr std::size_t defaultMaxNetworks = 1;

    // Loads the model from the first place findUpscaleModel() knows, and keeps the time its
    // tiles take in the standard tile-time cache; throws UpscaleError::modelLoadFailed when there
    // is none or it cannot be loaded.
    OnnxUpscaleTool();
    // Loads the model at `modelPath`. `maxNetworks` bounds how many calls run at once (each needs
    // its own network's memory); further callers wait. With `tileTimes`, every upscaled image
    // records its mean time per tile there.
    explicit OnnxUpscaleTool(const std::filesystem::path& modelPath,
                             ComputeTarget target = ComputeTarget::automatic,
                             std::size_t maxNetworks = defaultMaxNetworks,
                             std::optional<TileTimeCache> tileTimes = std::nullopt);
    ~OnnxUpscaleTool() override;
    OnnxUpscaleTool(const OnnxUpscaleTool&) = delete;
    OnnxUpscaleTool& operator=(const OnnxUpscaleTool&) = delete;

    std::set<int> supportedScaleFactors() const override { return {scaleFactor}; }

    void upscale(const std::filesystem::path& input, const std::filesystem::path& output, int scale,
                 std::stop_token stop = {}, const TileProgress& progress = {}) const override;

    // The tiling over a decoded image: 4 times larger on both axes. Transparency, which the
    // network does not see, is carried over by resizing the source's alpha.
    platform::PixelImage upscaleImage(const platform::PixelImage& image, std::stop_token stop = {},
                                      const TileProgress& progress = {}) const;

    // Runs one tile of a textured test picture through the network and returns its seconds,
    // recorded in the tile-time cache when the tool has one: the measurement an estimate needs
    // where no export has run yet.
    double measureTileSeconds(std::stop_token stop = {}) const;

    // What the tile-time cache holds for this model, engine and computer; none without a cache.
    std::optional<double> measuredSecondsPerTile() const;

    // One tileSize x tileSize RGBA tile through the network.
    platform::PixelImage upscaleTile(const platform::PixelImage& tile) const;

    const std::filesystem::path& modelPath() const { return modelPath_; }
    bool usesGpu() const { return usesGpu_; }
    // Which engine runs the model, and on what: "oneDNN on the CPU", "OpenCV DNN on the CPU" or
    // "OpenCV DNN on the OpenCL device NAME".
    const std::string& engineDescription() const { return engine_; }

private:
    void recordTileTime(double seconds) const;

    std::filesystem::path modelPath_;
    std::optional<TileTimeCache> tileTimes_;
    std::string tileTimeKey_;
    bool usesGpu_ = false;
    std::string engine_;
    std::unique_ptr<TileNetworkPool> networks_;
};

// The key under which OnnxUpscaleTool() keeps the tile times of the model at `model` on this
// computer: it runs on the OpenCL GPU when there is one, else on the processor's threads.
std::string standardTileTimeKey(const std::filesystem::path& model);

} // namespace lumivesper::upscale
