#pragma once

#include "export/upscale/onnx_model.h"
#include "export/upscale/tile_network.h"

#include <memory>
#include <stdexcept>

namespace lumivesper::upscale {

namespace onednn {
struct Plan;
}

// A model that uses an operator, attribute or shape this engine does not run.
class UnsupportedNetwork : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Runs a convolutional ONNX tile model on the CPU with oneDNN. The whole graph is planned once:
// activations with a channel count divisible by 16 stay in oneDNN's 16-channel blocked layout,
// where channel concatenation of such tensors costs nothing (each producer writes straight into
// its slice of the joined buffer), activations after a convolution are folded into it, and
// buffers are reused once their tensors are dead. 3x3 convolutions use Winograd's F(4x4, 3x3)
// where oneDNN has it, which on AVX-512 roughly halves their time; the results stay within
// float rounding of a direct convolution.
//
// Operators: Conv, Relu, LeakyRelu, PRelu, Clip, Sigmoid, Add, Sub, Mul (of two tensors, or of
// a tensor and a scalar or per-channel constant), Concat on channels, DepthToSpace, Identity.
struct DnnlOptions {
    bool winograd = true;
};

class DnnlTileNetwork final : public TileNetwork {
public:
    // Plans the network for the model's fixed 1x3xHxW input, or 1x3x`side`x`side` where the
    // model leaves the size open. Throws UnsupportedNetwork.
    explicit DnnlTileNetwork(const OnnxModel& model, int side = 512, DnnlOptions options = {});
    ~DnnlTileNetwork() override;
    DnnlTileNetwork(const DnnlTileNetwork&) = delete;
    DnnlTileNetwork& operator=(const DnnlTileNetwork&) = delete;

    platform::PixelImage run(const platform::PixelImage& tile) override;

    // How many 3x3 convolutions run as Winograd, of how many convolutions.
    int winogradConvolutions() const;
    int convolutions() const;

private:
    std::unique_ptr<onednn::Plan> plan_;
};

} // namespace lumivesper::upscale
