#include "export/upscale/onnx_upscale_tool.h"

#include "export/upscale/dnnl_tile_network.h"
#include "export/upscale/model_location.h"
#include "export/upscale/onnx_model.h"
#include "export/upscale/opencv_tile_network.h"
#include "export/upscale/tile_network_pool.h"
#include "export/upscale/tile_upscaler.h"
#include "export/upscale/upscale_error.h"
#include "platform/console.h"
#include "platform/image_io.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <opencv2/imgproc.hpp>
#include <thread>

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

std::vector<char> readModelBytes(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        throw UpscaleError::modelLoadFailed();
    const auto size = std::filesystem::file_size(path, error);
    if (error || size == 0)
        throw UpscaleError::modelLoadFailed();
    std::vector<char> bytes(size);
    std::ifstream file(path, std::ios::binary);
    if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        throw UpscaleError::modelLoadFailed();
    return bytes;
}

// The model must take the tile the tiling cuts: 1x3x512x512, or a size it leaves open.
void checkTileInput(const OnnxModel& model, const std::filesystem::path& path) {
    const auto& shape = model.inputShape;
    const bool fits = shape.size() == 4 && (shape[0] == 1 || shape[0] < 0) && shape[1] == 3 &&
                      std::all_of(shape.begin() + 2, shape.end(), [](std::int64_t side) {
                          return side < 0 || side == OnnxUpscaleTool::tileSize;
                      });
    if (fits)
        return;
    platform::consoleLine("❌ " + path.string() + " does not take 1x3x512x512 RGB tiles");
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

OnnxUpscaleTool::OnnxUpscaleTool()
    : OnnxUpscaleTool(locatedModel(), ComputeTarget::automatic, defaultMaxNetworks,
                      TileTimeCache(TileTimeCache::standardLocation())) {}

OnnxUpscaleTool::OnnxUpscaleTool(const std::filesystem::path& modelPath, ComputeTarget target,
                                 std::size_t maxNetworks, std::optional<TileTimeCache> tileTimes)
    : modelPath_(modelPath), tileTimes_(std::move(tileTimes)) {
    try {
        auto bytes = std::make_shared<const std::vector<char>>(readModelBytes(modelPath));
        OnnxModel model;
        try {
            model = parseOnnxModel(*bytes);
        } catch (const OnnxFormatError&) {
            throw UpscaleError::modelLoadFailed();
        }
        checkTileInput(model, modelPath);

        std::optional<std::string> device;
        if (target == ComputeTarget::automatic || target == ComputeTarget::openCl)
            device = openClDevice(target == ComputeTarget::automatic);
        if (target == ComputeTarget::openCl && !device) {
            platform::consoleLine("❌ No OpenCL device to run the upscaler on");
            throw UpscaleError::modelLoadFailed();
        }
        TileNetworkPool::Factory make;
        if (device) {
            usesGpu_ = true;
            engine_ = "OpenCV DNN on the OpenCL device " + *device;
            make = [bytes] { return std::make_unique<OpenCvTileNetwork>(*bytes, true); };
        } else if (target != ComputeTarget::openCvCpu) {
            try {
                // Planning the first network checks every operator; the pool takes that one first.
                auto shared = std::make_shared<const OnnxModel>(std::move(model));
                auto first = std::make_shared<std::unique_ptr<TileNetwork>>(
                    std::make_unique<DnnlTileNetwork>(*shared, tileSize));
                engine_ = "oneDNN on the CPU";
                make = [shared, first]() -> std::unique_ptr<TileNetwork> {
                    if (*first)
                        return std::move(*first);
                    return std::make_unique<DnnlTileNetwork>(*shared, tileSize);
                };
            } catch (const UnsupportedNetwork& reason) {
                platform::consoleLine(std::string("🔧 oneDNN cannot run this model (") +
                                      reason.what() + "); OpenCV runs it instead");
            }
        }
        if (!make) {
            engine_ = "OpenCV DNN on the CPU";
            make = [bytes] { return std::make_unique<OpenCvTileNetwork>(*bytes, false); };
        }
        networks_ = std::make_unique<TileNetworkPool>(std::move(make), maxNetworks);
    } catch (const UpscaleError&) {
        platform::consoleLine("❌ Upscaling model could not be loaded from " + modelPath.string());
        throw;
    }
    tileTimeKey_ =
        tileTimeKey(modelPath, usesGpu_ ? engine_ : "cpu", std::thread::hardware_concurrency());
    platform::consoleLine("🔧 Upscaler: " + modelPath.string() + " runs with " + engine_);
}

OnnxUpscaleTool::~OnnxUpscaleTool() = default;

platform::PixelImage OnnxUpscaleTool::upscaleTile(const platform::PixelImage& tile) const {
    TileNetworkPool::Lease lease = networks_->acquire();
    return lease.net().run(tile);
}

platform::PixelImage OnnxUpscaleTool::upscaleImage(const platform::PixelImage& image,
                                                   std::stop_token stop,
                                                   const TileProgress& progress) const {
    if (image.width < tileSize || image.height < tileSize)
        throw UpscaleError::invalidInputSize();
    // One network serves all tiles of an image, which run in sequence anyway. Holding it for the
    // whole image lets frames finish one after another, and a waiting frame allocates nothing.
    TileNetworkPool::Lease lease = networks_->acquire(stop);
    // A tile takes seconds on a CPU: each one is reported, with what is left of the image.
    const std::size_t tiles = tileOrigins(image.width, image.height).size();
    std::size_t done = 0;
    const auto start = std::chrono::steady_clock::now();
    const TileRunner runTile = [&](const platform::PixelImage& tile) {
        platform::PixelImage upscaled = lease.net().run(tile);
        ++done;
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double perTile = seconds / static_cast<double>(done);
        char line[160];
        std::snprintf(
            line, sizeof line,
            "   Upscaled tile %zu/%zu of a %dx%d image (%.1f s a tile, about %.0f s left)", done,
            tiles, image.width, image.height, perTile, perTile * static_cast<double>(tiles - done));
        platform::consoleLine(line);
        if (progress)
            progress(done, tiles);
        return upscaled;
    };
    platform::PixelImage result =
        upscaleTiled(image, runTile, TileGeometry{tileSize, overlap, scaleFactor}, stop);
    // The mean over a whole image, the first tile of a fresh network included, as an export
    // would see it.
    recordTileTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
                   static_cast<double>(tiles));
    if (hasTransparency(image))
        carryAlpha(image, result);
    return result;
}

void OnnxUpscaleTool::upscale(const std::filesystem::path& input,
                              const std::filesystem::path& output, int scale, std::stop_token stop,
                              const TileProgress& progress) const {
    if (scale != scaleFactor)
        throw UpscaleError::unsupportedScale(scale);
    platform::PixelImage source;
    try {
        source = platform::loadImage(input);
    } catch (const platform::ImageIoError&) {
        throw UpscaleError::imageLoadFailed(input.string());
    }
    const platform::PixelImage result = upscaleImage(source, stop, progress);
    try {
        platform::writePng(result, output);
    } catch (const platform::ImageIoError&) {
        throw UpscaleError::outputWriteFailed();
    }
}

double OnnxUpscaleTool::measureTileSeconds(std::stop_token stop) const {
    // The time of a convolutional network does not depend on what the tile shows; a gradient
    // with some texture keeps every value ordinary.
    platform::PixelImage tile(tileSize, tileSize);
    for (int y = 0; y < tileSize; ++y) {
        for (int x = 0; x < tileSize; ++x) {
            std::uint8_t* pixel = tile.pixel(x, y);
            pixel[0] = static_cast<std::uint8_t>(x / 2);
            pixel[1] = static_cast<std::uint8_t>(y / 2);
            pixel[2] = static_cast<std::uint8_t>((x * 7 + y * 13) % 256);
            pixel[3] = 255;
        }
    }
    TileNetworkPool::Lease lease = networks_->acquire(stop);
    const auto start = std::chrono::steady_clock::now();
    lease.net().run(tile);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    recordTileTime(seconds);
    return seconds;
}

std::optional<double> OnnxUpscaleTool::measuredSecondsPerTile() const {
    if (!tileTimes_)
        return std::nullopt;
    return tileTimes_->secondsPerTile(tileTimeKey_);
}

void OnnxUpscaleTool::recordTileTime(double seconds) const {
    if (tileTimes_)
        tileTimes_->record(tileTimeKey_, seconds);
}

std::string standardTileTimeKey(const std::filesystem::path& model) {
    const auto device = openClDevice(true);
    return tileTimeKey(model, device ? "OpenCV DNN on the OpenCL device " + *device : "cpu",
                       std::thread::hardware_concurrency());
}

} // namespace lumivesper::upscale
