#include "export/upscale/onnx_net_pool.h"

#include "export/upscale/upscale_error.h"
#include "platform/cancellation.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <opencv2/core/ocl.hpp>
#include <optional>

namespace lumivesper::upscale {

namespace {

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

// The name of the default OpenCL device when it is a GPU; none otherwise.
std::optional<std::string> openClGpu() {
    try {
        if (!cv::ocl::haveOpenCL())
            return std::nullopt;
        cv::ocl::setUseOpenCL(true);
        const cv::ocl::Device& device = cv::ocl::Device::getDefault();
        if (!device.available() || (device.type() & cv::ocl::Device::TYPE_GPU) == 0)
            return std::nullopt;
        return device.name();
    } catch (const cv::Exception&) {
        return std::nullopt; // a broken OpenCL installation is the same as none
    }
}

} // namespace

OnnxNetPool::OnnxNetPool(const std::filesystem::path& modelPath, ComputeTarget target,
                         std::size_t maxNets)
    : modelBytes_(readModelBytes(modelPath)), maxNets_(std::max<std::size_t>(maxNets, 1)) {
    if (target == ComputeTarget::automatic) {
        if (auto gpu = openClGpu()) {
            useGpu_ = true;
            deviceName_ = *gpu;
        }
    }
    // Parsing the first network now is what tells a usable model from a broken one.
    idle_.push_back(makeNet());
    made_ = 1;
}

std::unique_ptr<cv::dnn::Net> OnnxNetPool::makeNet() const {
    try {
        auto net = std::make_unique<cv::dnn::Net>(
            cv::dnn::readNetFromONNX(modelBytes_.data(), modelBytes_.size()));
        if (net->empty())
            throw UpscaleError::modelLoadFailed();
        net->setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        net->setPreferableTarget(useGpu_ ? cv::dnn::DNN_TARGET_OPENCL : cv::dnn::DNN_TARGET_CPU);
        return net;
    } catch (const cv::Exception&) {
        throw UpscaleError::modelLoadFailed();
    }
}

OnnxNetPool::Lease OnnxNetPool::acquire(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    if (!returned_.wait(lock, stop, [&] { return !idle_.empty() || made_ < maxNets_; }))
        throw platform::CancellationError();
    if (!idle_.empty()) {
        auto net = std::move(idle_.back());
        idle_.pop_back();
        return Lease(*this, std::move(net));
    }
    ++made_;
    lock.unlock();
    try {
        return Lease(*this, makeNet());
    } catch (...) {
        std::lock_guard relock(mutex_);
        --made_;
        returned_.notify_one();
        throw;
    }
}

void OnnxNetPool::giveBack(std::unique_ptr<cv::dnn::Net> net) {
    {
        std::lock_guard lock(mutex_);
        idle_.push_back(std::move(net));
    }
    returned_.notify_one();
}

OnnxNetPool::Lease::~Lease() {
    if (net_)
        pool_->giveBack(std::move(net_));
}

cv::Mat tileToBlob(const platform::PixelImage& tile) {
    const int shape[] = {1, 3, tile.height, tile.width};
    cv::Mat blob(4, shape, CV_32F);
    const std::size_t plane = static_cast<std::size_t>(tile.width) * tile.height;
    float* red = blob.ptr<float>();
    float* green = red + plane;
    float* blue = green + plane;
    const std::uint8_t* source = tile.rgba.data();
    for (std::size_t i = 0; i < plane; ++i, source += 4) {
        red[i] = source[0] / 255.0f;
        green[i] = source[1] / 255.0f;
        blue[i] = source[2] / 255.0f;
    }
    return blob;
}

platform::PixelImage blobToTile(const cv::Mat& blob, int expectedSide) {
    if (blob.empty() || blob.dims != 4 || blob.type() != CV_32F || blob.size[0] != 1 ||
        blob.size[1] != 3 || blob.size[2] != expectedSide || blob.size[3] != expectedSide ||
        !blob.isContinuous())
        throw UpscaleError::missingOutput();
    platform::PixelImage tile(expectedSide, expectedSide);
    const std::size_t plane = static_cast<std::size_t>(expectedSide) * expectedSide;
    const float* red = blob.ptr<float>();
    const float* green = red + plane;
    const float* blue = green + plane;
    auto toByte = [](float value) -> std::uint8_t {
        if (!(value > 0.0f)) // NaN included
            return 0;
        if (value >= 1.0f)
            return 255;
        return static_cast<std::uint8_t>(std::lround(value * 255.0f));
    };
    std::uint8_t* target = tile.rgba.data();
    for (std::size_t i = 0; i < plane; ++i, target += 4) {
        target[0] = toByte(red[i]);
        target[1] = toByte(green[i]);
        target[2] = toByte(blue[i]);
        target[3] = 255;
    }
    return tile;
}

} // namespace lumivesper::upscale
