#pragma once

#include "export/upscale/compute_target.h"
#include "platform/pixel_image.h"

#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <opencv2/dnn.hpp>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::upscale {

// Networks for the tile model, lent to one caller at a time: a cv::dnn::Net must not run two
// forward passes at once. Up to `maxNets` are made on demand from the model bytes read at
// construction; a caller beyond that waits for one to come back. Each network keeps its own
// activation buffers, which for a real 4x model at 512 tiles run to gigabytes.
class OnnxNetPool {
public:
    // Throws UpscaleError::modelLoadFailed when the file cannot be read or parsed.
    OnnxNetPool(const std::filesystem::path& modelPath, ComputeTarget target, std::size_t maxNets);

    class Lease {
    public:
        Lease(OnnxNetPool& pool, std::unique_ptr<cv::dnn::Net> net)
            : pool_(&pool), net_(std::move(net)) {}
        Lease(Lease&& other) noexcept = default;
        Lease& operator=(Lease&&) = delete;
        ~Lease();

        cv::dnn::Net& net() { return *net_; }

    private:
        OnnxNetPool* pool_;
        std::unique_ptr<cv::dnn::Net> net_;
    };

    // Waits for a free network; throws platform::CancellationError if `stop` fires meanwhile.
    Lease acquire(std::stop_token stop = {});

    bool usesGpu() const { return useGpu_; }
    // The OpenCL device's name, or "CPU".
    const std::string& deviceName() const { return deviceName_; }
    std::size_t maxNets() const { return maxNets_; }

private:
    std::unique_ptr<cv::dnn::Net> makeNet() const;
    void giveBack(std::unique_ptr<cv::dnn::Net> net);

    std::vector<char> modelBytes_;
    bool useGpu_ = false;
    std::string deviceName_ = "CPU";
    std::size_t maxNets_;

    std::mutex mutex_;
    std::condition_variable_any returned_;
    std::vector<std::unique_ptr<cv::dnn::Net>> idle_;
    std::size_t made_ = 0;
};

// The network's input for one RGBA tile: 1x3xHxW float RGB in 0..1; alpha is not seen.
cv::Mat tileToBlob(const platform::PixelImage& tile);

// The network's 1x3xSxS output as an opaque RGBA tile. Throws UpscaleError::missingOutput for any
// other shape, so a model of the wrong factor is reported rather than drawn.
platform::PixelImage blobToTile(const cv::Mat& blob, int expectedSide);

} // namespace lumivesper::upscale
