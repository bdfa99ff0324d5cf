#include "export/upscale/opencv_tile_network.h"

#include "export/upscale/upscale_error.h"

#include <opencv2/core/ocl.hpp>
#include <opencv2/dnn.hpp>

namespace lumivesper::upscale {

struct OpenCvTileNetwork::Net {
    cv::dnn::Net net;
};

OpenCvTileNetwork::OpenCvTileNetwork(const std::vector<char>& modelBytes, bool openCl)
    : net_(std::make_unique<Net>()) {
    try {
        net_->net = cv::dnn::readNetFromONNX(modelBytes.data(), modelBytes.size());
        if (net_->net.empty())
            throw UpscaleError::modelLoadFailed();
        net_->net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        net_->net.setPreferableTarget(openCl ? cv::dnn::DNN_TARGET_OPENCL
                                             : cv::dnn::DNN_TARGET_CPU);
    } catch (const cv::Exception&) {
        throw UpscaleError::modelLoadFailed();
    }
}

OpenCvTileNetwork::~OpenCvTileNetwork() = default;

platform::PixelImage OpenCvTileNetwork::run(const platform::PixelImage& tile) {
    const int shape[] = {1, 3, tile.height, tile.width};
    cv::Mat blob(4, shape, CV_32F);
    tileToPlanes(tile, blob.ptr<float>());
    net_->net.setInput(blob);
    // The output lives in the network's buffers: it is read before the next run.
    cv::Mat out;
    try {
        out = net_->net.forward();
    } catch (const cv::Exception&) {
        throw UpscaleError::missingOutput();
    }
    if (out.empty() || out.dims != 4 || out.type() != CV_32F || out.size[0] != 1 ||
        out.size[1] != 3 || !out.isContinuous())
        throw UpscaleError::missingOutput();
    return planesToTile(out.ptr<float>(), out.size[3], out.size[2]);
}

std::optional<std::string> openClDevice(bool gpuOnly) {
    try {
        if (!cv::ocl::haveOpenCL())
            return std::nullopt;
        cv::ocl::setUseOpenCL(true);
        const cv::ocl::Device& device = cv::ocl::Device::getDefault();
        if (!device.available() || (gpuOnly && (device.type() & cv::ocl::Device::TYPE_GPU) == 0))
            return std::nullopt;
        return device.name();
    } catch (const cv::Exception&) {
        return std::nullopt; // a broken OpenCL installation is the same as none
    }
}

} // namespace lumivesper::upscale
