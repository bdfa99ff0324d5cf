#pragma once

#include "export/upscale/dnnl_tile_network.h"
#include "export/upscale/onnx_model.h"

#include <map>
#include <oneapi/dnnl/dnnl.hpp>
#include <optional>
#include <string>
#include <vector>

// The tile network's graph as oneDNN runs it: ONNX nodes turned into operations over named
// values, with their layouts chosen. Shared by the graph planner, the buffer assignment and the
// primitive building of DnnlTileNetwork.
namespace lumivesper::upscale::onednn {

using dnnl::algorithm;
using dnnl::memory;
using Dims = memory::dims;
using Tag = memory::format_tag;
constexpr auto f32 = memory::data_type::f32;
constexpr memory::dim blockChannels = 16;

[[noreturn]] inline void unsupported(const std::string& what) {
    throw UnsupportedNetwork(what);
}

struct Value {
    Dims dims; // N, C, H, W
    memory::desc desc;
    std::string aliasOf; // the tensor whose buffer holds this one, from aliasOffset bytes on
    std::size_t aliasOffset = 0;
};

struct PostOp {
    algorithm kind;
    float alpha = 0;
    float beta = 0;
};

enum class OpKind { convolution, eltwise, binary, prelu, concat, reorder };

struct Op {
    OpKind kind = OpKind::reorder;
    std::vector<std::string> inputs;
    std::string output;
    // Convolution.
    const OnnxTensor* weights = nullptr;
    const OnnxTensor* bias = nullptr;
    Dims strides, dilations, padBegin, padEnd;
    std::vector<PostOp> postOps;
    float weightScale = 1; // a following constant factor, folded into the weights and bias
    // Eltwise and binary.
    algorithm function = algorithm::undef;
    float alpha = 0;
    float beta = 0;
    const OnnxTensor* constant = nullptr; // binary and prelu: the second operand, when constant
    // Reorder: views of the source and target buffers; unset means the values' own layouts.
    std::optional<memory::desc> sourceView, targetView;
    bool elided = false; // a concatenation its inputs already wrote in place
};

inline Op makeOp(OpKind kind, std::vector<std::string> inputs) {
    Op op;
    op.kind = kind;
    op.inputs = std::move(inputs);
    return op;
}

inline Value makeValue(const Dims& dims, const memory::desc& desc) {
    Value value;
    value.dims = dims;
    value.desc = desc;
    return value;
}

// Channels divisible by 16 live in the blocked layout the AVX-512 kernels use; the rest (the
// colour planes at either end) stay planar.
inline memory::desc layoutFor(const Dims& dims) {
    return {dims, f32, dims[1] % blockChannels == 0 ? Tag::nChw16c : Tag::nchw};
}

inline bool isPlanar(const memory::desc& desc, const Dims& dims) {
    return desc == memory::desc(dims, f32, Tag::nchw);
}

// The planned graph: every activation by name, the operations in running order, and the name of
// the network's result.
struct PlannedGraph {
    std::map<std::string, Value> values;
    std::vector<Op> ops;
    std::string output;
};

// Plans the model for its fixed 1x3xHxW input, or 1x3x`side`x`side` where it leaves the size
// open. Constants stay in `model`, which must outlive the result. Throws UnsupportedNetwork.
PlannedGraph planGraph(const OnnxModel& model, int side);

} // namespace lumivesper::upscale::onednn
