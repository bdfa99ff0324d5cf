#include "export/upscale/onnx_upscale_tool.h"

#include "export/upscale/model_location.h"
#include "export/upscale/onnx_net_pool.h"
#include "export/upscale/tile_upscaler.h"
#include "export/upscale/upscale_error.h"
#include "platform/console.h"
#include "platform/image_io.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace lumivesper::upscale {

namespace {

std::filesystem::path locatedModel() {
    if (auto found = findUpscaleModel())
        return *found;
    std::string tried;
    for (const auto& candidate : upscaleModelCandidates())
        tried += (tried.empty() ? "" : ", ") + candidate.string();
    platform::consoleLine("❌ Upscaling model not found; looked for " + tried);
    throw UpscaleError::modelLoadFailed();
}

bool hasTransparency(const platform::PixelImage& image) {
    for (std::size_t i = 3; i < image.rgba.size(); i += 4) {
        if (image.rgba[i] != 255)
            return true;
    }
    return false;
}

// The network sees colour only; the alpha channel is scaled on its own.
void carryAlpha(const platform::PixelImage& source, platform::PixelImage& upscaled) {
    cv::Mat sourceAlpha(source.height, source.width, CV_8UC1);
    for (int y = 0; y < source.height; ++y) {
        for (int x = 0; x < source.width; ++x)
            sourceAlpha.at<std::uint8_t>(y, x) = source.pixel(x, y)[3];
    }
    cv::Mat alpha;
    cv::resize(sourceAlpha, alpha, cv::Size(upscaled.width, upscaled.height), 0, 0,
               cv::INTER_CUBIC);
    for (int y = 0; y < upscaled.height; ++y) {
        const std::uint8_t* row = alpha.ptr<std::uint8_t>(y);
        for (int x = 0; x < upscaled.width; ++x)
            upscaled.pixel(x, y)[3] = row[x];
    }
}

} // namespace

OnnxUpscaleTool::OnnxUpscaleTool() : OnnxUpscaleTool(locatedModel()) {}

OnnxUpscaleTool::OnnxUpscaleTool(const std::filesystem::path& modelPath, ComputeTarget target,
                                 std::size_t maxNetworks)
    : modelPath_(modelPath) {
    try {
        networks_ = std::make_unique<OnnxNetPool>(modelPath, target, maxNetworks);
    } catch (const UpscaleError&) {
        platform::consoleLine("❌ Upscaling model could not be loaded from " + modelPath.string());
        throw;
    }
    platform::consoleLine("🔧 Upscaler: " + modelPath.string() + " runs on " +
                          (networks_->usesGpu()
                               ? "the OpenCL GPU " + networks_->deviceName()
                               : std::string("the CPU (no OpenCL GPU device found)")));
}

OnnxUpscaleTool::~OnnxUpscaleTool() = default;

bool OnnxUpscaleTool::usesGpu() const {
    return networks_->usesGpu();
}

platform::PixelImage OnnxUpscaleTool::upscaleTile(const platform::PixelImage& tile) const {
    OnnxNetPool::Lease lease = networks_->acquire();
    lease.net().setInput(tileToBlob(tile));
    // The output lives in the network's buffers: read it before the next caller runs.
    return blobToTile(lease.net().forward(), tile.width * scaleFactor);
}

platform::PixelImage OnnxUpscaleTool::upscaleImage(const platform::PixelImage& image,
                                                   std::stop_token stop) const {
    if (image.width < tileSize || image.height < tileSize)
        throw UpscaleError::invalidInputSize();
    // One network serves all tiles of an image, which run in sequence anyway. Holding it for the
    // whole image lets frames finish one after another, and a waiting frame allocates nothing.
    OnnxNetPool::Lease lease = networks_->acquire(stop);
    const TileRunner runTile = [&](const platform::PixelImage& tile) {
        lease.net().setInput(tileToBlob(tile));
        return blobToTile(lease.net().forward(), tileSize * scaleFactor);
    };
    platform::PixelImage result =
        upscaleTiled(image, runTile, TileGeometry{tileSize, overlap, scaleFactor}, stop);
    if (hasTransparency(image))
        carryAlpha(image, result);
    return result;
}

void OnnxUpscaleTool::upscale(const std::filesystem::path& input,
                              const std::filesystem::path& output, int scale,
                              std::stop_token stop) const {
    if (scale != scaleFactor)
        throw UpscaleError::unsupportedScale(scale);
    platform::PixelImage source;
    try {
        source = platform::loadImage(input);
    } catch (const platform::ImageIoError&) {
        throw UpscaleError::imageLoadFailed(input.string());
    }
    const platform::PixelImage result = upscaleImage(source, stop);
    try {
        platform::writePng(result, output);
    } catch (const platform::ImageIoError&) {
        throw UpscaleError::outputWriteFailed();
    }
}

} // namespace lumivesper::upscale
