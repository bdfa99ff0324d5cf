#pragma once

#include "export/upscale/dnnl_buffers.h"
#include "export/upscale/dnnl_graph.h"

#include <unordered_map>
#include <utility>
#include <vector>

namespace lumivesper::upscale::onednn {

// A planned network ready to run: its primitives in order with their arguments, bound to buffers
// the plan owns, and the constants they read.
struct Plan {
    dnnl::engine engine{dnnl::engine::kind::cpu, 0};
    dnnl::stream stream{engine};
    std::vector<Buffer> buffers;
    Buffer scratchpad;
    std::vector<std::pair<dnnl::primitive, std::unordered_map<int, memory>>> steps;
    std::vector<memory> constants; // weights and biases, kept alive for the steps
    memory input, output;
    Dims outputDims;
    int convolutions = 0;
    int winograd = 0;
};

// Makes the primitives of `graph` into `plan`: weights reordered into the layouts the chosen
// convolutions want, one shared scratchpad, and a planar output. Throws UnsupportedNetwork when
// oneDNN has no implementation for a step.
void buildPrimitives(PlannedGraph graph, const OnnxModel& model, DnnlOptions options, Plan& plan);

} // namespace lumivesper::upscale::onednn
