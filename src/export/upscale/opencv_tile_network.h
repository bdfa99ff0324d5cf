#pragma once

#include "export/upscale/tile_network.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::upscale {

// The model run by OpenCV's DNN module: on the CPU, or through OpenCL on whatever device
// OpenCV's default OpenCL device is (a GPU, or a CPU OpenCL driver).
class OpenCvTileNetwork final : public TileNetwork {
public:
    // Throws UpscaleError::modelLoadFailed when OpenCV cannot read the model.
    OpenCvTileNetwork(const std::vector<char>& modelBytes, bool openCl);
    ~OpenCvTileNetwork() override;
    OpenCvTileNetwork(const OpenCvTileNetwork&) = delete;
    OpenCvTileNetwork& operator=(const OpenCvTileNetwork&) = delete;

    platform::PixelImage run(const platform::PixelImage& tile) override;

private:
    struct Net; // keeps OpenCV's headers out of this one
    std::unique_ptr<Net> net_;
};

// The name of OpenCV's default OpenCL device, when there is one and, with `gpuOnly`, when it
// is a GPU.
std::optional<std::string> openClDevice(bool gpuOnly);

} // namespace lumivesper::upscale
