#pragma once

#include "export/upscale/dnnl_graph.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace lumivesper::upscale::onednn {

struct AlignedFree {
    void operator()(void* pointer) const { std::free(pointer); }
};
using Buffer = std::unique_ptr<void, AlignedFree>;

// Gives every tensor's root a buffer, reusing buffers of tensors that are dead by then.
class BufferAssigner {
public:
    // Allocates the buffers into `buffers`, which must outlive the assigner.
    BufferAssigner(const PlannedGraph& graph, const std::string& input,
                   std::vector<Buffer>& buffers);

    // The tensor whose buffer holds `name`, following aliases.
    static std::string root(const PlannedGraph& graph, std::string name);

    // The address of a tensor inside its root's buffer.
    void* address(const PlannedGraph& graph, const std::string& name) const;

private:
    static std::size_t distance(std::size_t a, std::size_t b) { return a > b ? a - b : b - a; }

    std::map<std::string, std::size_t> bufferOf_;
    const std::vector<Buffer>* buffers_ = nullptr;
};

} // namespace lumivesper::upscale::onednn
