#include "export/upscale/dnnl_buffers.h"

#include "export/upscale/upscale_error.h"

#include <algorithm>
#include <optional>

namespace lumivesper::upscale::onednn {

BufferAssigner::BufferAssigner(const PlannedGraph& graph, const std::string& input,
                               std::vector<Buffer>& buffers) {
    const auto& ops = graph.ops;
    std::map<std::string, std::pair<std::size_t, std::size_t>> life; // root: first, last
    auto touch = [&](const std::string& name, std::size_t step) {
        auto [it, fresh] = life.try_emplace(root(graph, name), step, step);
        it->second.first = std::min(it->second.first, step);
        it->second.second = std::max(it->second.second, step);
    };
    touch(input, 0); // written before the first operation, which is step 1
    for (std::size_t step = 0; step < ops.size(); ++step) {
        for (const std::string& operand : ops[step].inputs)
            touch(operand, step + 1);
        touch(ops[step].output, step + 1);
    }
    touch(graph.output, ops.size() + 1);                    // read after the last step
    std::vector<std::pair<std::size_t, std::size_t>> sizes; // buffer size, free from step
    for (std::size_t step = 0; step <= ops.size() + 1; ++step) {
        for (const auto& [name, span] : life) {
            if (span.first != step)
                continue;
            const std::size_t size = graph.values.at(name).desc.get_size();
            // Best fit among buffers free by now; a smaller one grows.
            std::optional<std::size_t> chosen;
            for (std::size_t b = 0; b < sizes.size(); ++b) {
                if (sizes[b].second > step)
                    continue;
                if (!chosen ||
                    distance(sizes[b].first, size) < distance(sizes[*chosen].first, size))
                    chosen = b;
            }
            if (!chosen) {
                chosen = sizes.size();
                sizes.push_back({0, 0});
            }
            sizes[*chosen].first = std::max(sizes[*chosen].first, size);
            sizes[*chosen].second = span.second + 1;
            bufferOf_[name] = *chosen;
        }
    }
    for (const auto& [size, _] : sizes) {
        void* memory = std::aligned_alloc(64, (size + 63) / 64 * 64);
        if (!memory)
            throw UpscaleError::imageCreateFailed();
        buffers.emplace_back(memory);
    }
    buffers_ = &buffers;
}

std::string BufferAssigner::root(const PlannedGraph& graph, std::string name) {
    while (!graph.values.at(name).aliasOf.empty())
        name = graph.values.at(name).aliasOf;
    return name;
}

void* BufferAssigner::address(const PlannedGraph& graph, const std::string& name) const {
    std::size_t offset = 0;
    std::string current = name;
    while (!graph.values.at(current).aliasOf.empty()) {
        offset += graph.values.at(current).aliasOffset;
        current = graph.values.at(current).aliasOf;
    }
    return static_cast<char*>((*buffers_)[bufferOf_.at(current)].get()) + offset;
}

} // namespace lumivesper::upscale::onednn
