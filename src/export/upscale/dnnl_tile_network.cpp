#include "export/upscale/dnnl_tile_network.h"

#include "export/upscale/dnnl_graph.h"
#include "export/upscale/dnnl_primitives.h"
#include "export/upscale/upscale_error.h"

namespace lumivesper::upscale {

using onednn::Dims;

DnnlTileNetwork::DnnlTileNetwork(const OnnxModel& model, int side, DnnlOptions options)
    : plan_(std::make_unique<onednn::Plan>()) {
    onednn::buildPrimitives(onednn::planGraph(model, side), model, options, *plan_);
}

DnnlTileNetwork::~DnnlTileNetwork() = default;

int DnnlTileNetwork::winogradConvolutions() const {
    return plan_->winograd;
}

int DnnlTileNetwork::convolutions() const {
    return plan_->convolutions;
}

platform::PixelImage DnnlTileNetwork::run(const platform::PixelImage& tile) {
    const Dims inputDims = plan_->input.get_desc().dims();
    if (tile.width != inputDims[3] || tile.height != inputDims[2])
        throw UpscaleError::invalidInputSize();
    tileToPlanes(tile, static_cast<float*>(plan_->input.get_data_handle()));
    for (auto& [primitive, args] : plan_->steps)
        primitive.execute(plan_->stream, args);
    plan_->stream.wait();
    const Dims& out = plan_->outputDims;
    if (out[1] != 3)
        throw UpscaleError::missingOutput();
    return planesToTile(static_cast<const float*>(plan_->output.get_data_handle()),
                        static_cast<int>(out[3]), static_cast<int>(out[2]));
}

} // namespace lumivesper::upscale
