#include "export/upscale/dnnl_tile_network.h"

#include "export/upscale/upscale_error.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <oneapi/dnnl/dnnl.hpp>
#include <optional>
#include <set>
#include <unordered_map>

namespace lumivesper::upscale {

namespace {

using dnnl::algorithm;
using dnnl::memory;
using Dims = memory::dims;
using Tag = memory::format_tag;
constexpr auto f32 = memory::data_type::f32;
constexpr memory::dim blockChannels = 16;

[[noreturn]] void unsupported(const std::string& what) {
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

Op makeOp(OpKind kind, std::vector<std::string> inputs) {
    Op op;
    op.kind = kind;
    op.inputs = std::move(inputs);
    return op;
}

Value makeValue(const Dims& dims, const memory::desc& desc) {
    Value value;
    value.dims = dims;
    value.desc = desc;
    return value;
}

// Channels divisible by 16 live in the blocked layout the AVX-512 kernels use; the rest (the
// colour planes at either end) stay planar.
memory::desc layoutFor(const Dims& dims) {
    return {dims, f32, dims[1] % blockChannels == 0 ? Tag::nChw16c : Tag::nchw};
}

bool isPlanar(const memory::desc& desc, const Dims& dims) {
    return desc == memory::desc(dims, f32, Tag::nchw);
}

std::size_t channelOffsetBytes(const Dims& dims, memory::dim channel) {
    return static_cast<std::size_t>(channel * dims[2] * dims[3]) * sizeof(float);
}

// Turns the ONNX nodes into oneDNN-shaped operations over named values.
class GraphPlanner {
public:
    GraphPlanner(const OnnxModel& model, int side) : model_(model) {
        Dims input(model.inputShape.begin(), model.inputShape.end());
        if (input.size() != 4 || (input[0] != 1 && input[0] != -1) || input[1] != 3)
            unsupported("the input is not one 3-channel image");
        input[0] = 1;
        for (int axis : {2, 3})
            input[axis] = input[axis] > 0 ? input[axis] : side;
        values_[model.inputName] = makeValue(input, memory::desc(input, f32, Tag::nchw));
        countConsumers();
        for (const OnnxNode& node : model.nodes)
            add(node);
        output_ = resolve(model.outputName);
        if (!values_.contains(output_))
            unsupported("the output is not computed from the input");
        aliasConcatenations();
    }

    std::map<std::string, Value> values_;
    std::vector<Op> ops_;
    std::string output_;

private:
    void countConsumers() {
        for (const OnnxNode& node : model_.nodes) {
            for (const std::string& input : node.inputs)
                ++consumers_[input];
        }
        ++consumers_[model_.outputName];
    }

    std::string resolve(const std::string& name) const {
        const auto renamed = renamed_.find(name);
        return renamed == renamed_.end() ? name : renamed->second;
    }

    const Value& value(const std::string& name) const {
        const auto found = values_.find(resolve(name));
        if (found == values_.end())
            unsupported("tensor " + name + " is not an activation");
        return found->second;
    }

    const OnnxTensor* constant(const std::string& name) const {
        const auto found = model_.constants.find(name);
        return found == model_.constants.end() ? nullptr : &found->second;
    }

    void define(Op op, const std::string& name, const Dims& dims) {
        for (std::string& input : op.inputs)
            input = resolve(input);
        op.output = name;
        values_[name] = makeValue(dims, layoutFor(dims));
        producer_[name] = ops_.size();
        ops_.push_back(std::move(op));
    }

    // Folds an element-wise step into the convolution that made its only input, when nothing
    // else reads that convolution's result.
    bool fuseIntoConvolution(const OnnxNode& node, PostOp postOp) {
        const std::string source = resolve(node.inputs[0]);
        const auto made = producer_.find(source);
        if (made == producer_.end() || consumers_[source] != 1)
            return false;
        Op& op = ops_[made->second];
        if (op.kind != OpKind::convolution || op.output != source)
            return false;
        // A constant factor straight after the convolution goes into its weights: same result,
        // and it keeps the convolution eligible for Winograd, which takes no such post-op.
        if (postOp.kind == algorithm::eltwise_linear && postOp.beta == 0 && op.postOps.empty())
            op.weightScale *= postOp.alpha;
        else
            op.postOps.push_back(postOp);
        op.output = node.outputs[0];
        values_[op.output] = values_[source];
        values_.erase(source);
        producer_.erase(made);
        producer_[op.output] = static_cast<std::size_t>(&op - ops_.data());
        return true;
    }

    void addEltwise(const OnnxNode& node, PostOp postOp) {
        if (fuseIntoConvolution(node, postOp))
            return;
        Op op = makeOp(OpKind::eltwise, {node.inputs[0]});
        op.function = postOp.kind;
        op.alpha = postOp.alpha;
        op.beta = postOp.beta;
        define(std::move(op), node.outputs[0], value(node.inputs[0]).dims);
    }

    void addConvolution(const OnnxNode& node) {
        const Value& source = value(node.inputs.at(0));
        const OnnxTensor* weights = constant(node.inputs.at(1));
        const OnnxTensor* bias = node.inputs.size() > 2 && !node.inputs[2].empty()
                                     ? constant(node.inputs[2])
                                     : nullptr;
        if (!weights || weights->dims.size() != 4 || weights->dims[1] != source.dims[1])
            unsupported("convolution " + node.outputs[0] + " has no fitting constant weights");
        if (node.inputs.size() > 2 && !node.inputs[2].empty() && !bias)
            unsupported("convolution " + node.outputs[0] + " has a computed bias");
        if (node.intAttribute("group", 1) != 1)
            unsupported("grouped convolutions are not supported");
        const std::string autoPad = node.stringAttribute("auto_pad", "NOTSET");
        if (autoPad != "NOTSET" && autoPad != "VALID")
            unsupported("automatic padding is not supported");
        Op op = makeOp(OpKind::convolution, {node.inputs[0]});
        op.weights = weights;
        op.bias = bias;
        const auto strides = node.intsAttribute("strides", {1, 1});
        const auto dilations = node.intsAttribute("dilations", {1, 1});
        const auto pads = node.intsAttribute("pads", {0, 0, 0, 0});
        if (strides.size() != 2 || dilations.size() != 2 || pads.size() != 4)
            unsupported("only 2-D convolutions are supported");
        Dims out{1, weights->dims[0], 0, 0};
        for (int axis = 0; axis < 2; ++axis) {
            const memory::dim extent = (weights->dims[2 + axis] - 1) * dilations[axis] + 1;
            out[2 + axis] =
                (source.dims[2 + axis] + pads[axis] + pads[axis + 2] - extent) / strides[axis] + 1;
            op.strides.push_back(strides[axis]);
            op.dilations.push_back(dilations[axis] - 1);
            op.padBegin.push_back(pads[axis]);
            op.padEnd.push_back(pads[axis + 2]);
        }
        define(std::move(op), node.outputs[0], out);
    }

    // A constant holding one value, or none.
    std::optional<float> scalar(const std::string& name) const {
        const OnnxTensor* tensor = constant(name);
        if (!tensor || tensor->values.size() != 1)
            return std::nullopt;
        return tensor->values.front();
    }

    void addArithmetic(const OnnxNode& node) {
        const std::string& op = node.opType;
        const bool constantFirst = constant(node.inputs[0]) != nullptr;
        const std::string& tensor = node.inputs[constantFirst ? 1 : 0];
        const std::string& other = node.inputs[constantFirst ? 0 : 1];
        if (const auto k = scalar(other)) {
            OnnxNode unary = node;
            unary.inputs = {tensor};
            if (op == "Mul")
                return addEltwise(unary, {algorithm::eltwise_linear, *k, 0});
            if (op == "Add")
                return addEltwise(unary, {algorithm::eltwise_linear, 1, *k});
            if (!constantFirst) // x - k
                return addEltwise(unary, {algorithm::eltwise_linear, 1, -*k});
            return addEltwise(unary, {algorithm::eltwise_linear, -1, *k});
        }
        const algorithm function = op == "Add"   ? algorithm::binary_add
                                   : op == "Mul" ? algorithm::binary_mul
                                                 : algorithm::binary_sub;
        const Dims dims = value(tensor).dims;
        Op binary = makeOp(OpKind::binary, {tensor});
        binary.function = function;
        if (const OnnxTensor* perChannel = constant(other)) {
            if (op == "Sub" && constantFirst)
                unsupported("subtraction from a constant tensor is not supported");
            if (static_cast<memory::dim>(perChannel->values.size()) != dims[1])
                unsupported("only per-channel constants are supported in " + op);
            binary.constant = perChannel;
        } else {
            if (value(other).dims != dims)
                unsupported("broadcasting between activations is not supported");
            binary.inputs = {node.inputs[0], node.inputs[1]};
        }
        define(std::move(binary), node.outputs[0], dims);
    }

    void addConcat(const OnnxNode& node) {
        const auto axis = node.intAttribute("axis", 1);
        if (axis != 1 && axis != -3)
            unsupported("only channel concatenation is supported");
        Op op = makeOp(OpKind::concat, node.inputs);
        Dims dims = value(node.inputs.at(0)).dims;
        dims[1] = 0;
        for (const std::string& input : node.inputs) {
            const Dims& part = value(input).dims;
            if (part[2] != dims[2] || part[3] != dims[3])
                unsupported("concatenated tensors differ in size");
            dims[1] += part[1];
        }
        define(std::move(op), node.outputs[0], dims);
    }

    // DepthToSpace is a pure permutation: planar source viewed as [N, C', H, b, W, b] with the
    // channel strides of the mode, copied into the planar target viewed the same way.
    void addDepthToSpace(const OnnxNode& node) {
        const memory::dim block = node.intAttribute("blocksize", 0);
        const bool dcr = node.stringAttribute("mode", "DCR") == "DCR";
        const Value& source = value(node.inputs.at(0));
        const Dims& in = source.dims;
        if (block < 1 || in[1] % (block * block) != 0)
            unsupported("DepthToSpace with a block that does not divide the channels");
        const memory::dim channels = in[1] / (block * block), h = in[2], w = in[3];
        const Dims out{1, channels, h * block, w * block};

        std::string planarSource = resolve(node.inputs[0]);
        if (!isPlanar(source.desc, in)) {
            planarSource = node.outputs[0] + "#planar-source";
            addPlanarCopy(node.inputs[0], planarSource, in);
        }
        const std::string target = node.outputs[0];
        const bool blockedTarget = !isPlanar(layoutFor(out), out);
        const std::string planarTarget = blockedTarget ? target + "#planar" : target;

        const Dims view{1, channels, h, block, w, block};
        const memory::dim plane = h * w;
        const Dims sourceStrides =
            dcr ? Dims{in[1] * plane, plane, w, block * channels * plane, 1, channels * plane}
                : Dims{in[1] * plane, block * block * plane, w, block * plane, 1, plane};
        const Dims targetStrides{channels * plane * block * block, plane * block * block,
                                 w * block * block, w * block, block, 1};
        Op copy = makeOp(OpKind::reorder, {planarSource});
        copy.sourceView = memory::desc(view, f32, sourceStrides);
        copy.targetView = memory::desc(view, f32, targetStrides);
        define(std::move(copy), planarTarget, out);
        values_[planarTarget].desc = memory::desc(out, f32, Tag::nchw);
        if (blockedTarget)
            define(makeOp(OpKind::reorder, {planarTarget}), target, out);
    }

    void addPlanarCopy(const std::string& source, const std::string& target, const Dims& dims) {
        define(makeOp(OpKind::reorder, {source}), target, dims);
        values_[target].desc = memory::desc(dims, f32, Tag::nchw);
    }

    void add(const OnnxNode& node) {
        const std::string& type = node.opType;
        if (node.outputs.size() != 1)
            unsupported(type + " with other than one output");
        if (type == "Identity") {
            renamed_[node.outputs[0]] = resolve(node.inputs.at(0));
            consumers_[resolve(node.inputs[0])] += consumers_[node.outputs[0]];
            return;
        }
        if (type == "Conv")
            return addConvolution(node);
        if (type == "Relu")
            return addEltwise(node, {algorithm::eltwise_relu, 0, 0});
        if (type == "LeakyRelu")
            return addEltwise(node, {algorithm::eltwise_relu, node.floatAttribute("alpha", 0.01f)});
        if (type == "Sigmoid")
            return addEltwise(node, {algorithm::eltwise_logistic, 0, 0});
        if (type == "Clip") {
            auto bound = [&](std::size_t index, const char* attribute, float fallback) {
                if (node.inputs.size() > index && !node.inputs[index].empty()) {
                    const auto k = scalar(node.inputs[index]);
                    if (!k)
                        unsupported("Clip with a computed bound");
                    return *k;
                }
                return node.floatAttribute(attribute, fallback);
            };
            return addEltwise(node, {algorithm::eltwise_clip, bound(1, "min", -3.4e38f),
                                     bound(2, "max", 3.4e38f)});
        }
        if (type == "Add" || type == "Mul" || type == "Sub")
            return addArithmetic(node);
        if (type == "PRelu") {
            const OnnxTensor* slope = constant(node.inputs.at(1));
            const Dims dims = value(node.inputs[0]).dims;
            if (!slope || static_cast<memory::dim>(slope->values.size()) != dims[1])
                unsupported("PRelu needs one constant slope per channel");
            Op op = makeOp(OpKind::prelu, {node.inputs[0]});
            op.constant = slope;
            return define(std::move(op), node.outputs[0], dims);
        }
        if (type == "Concat")
            return addConcat(node);
        if (type == "DepthToSpace")
            return addDepthToSpace(node);
        unsupported("operator " + type + " is not supported");
    }

    // Where every part of a channel concatenation is blocked, each part is a contiguous run of
    // the joined buffer (batch 1, whole 16-channel blocks): its producer writes there directly.
    void aliasConcatenations() {
        for (Op& op : ops_) {
            if (op.kind != OpKind::concat ||
                isPlanar(values_[op.output].desc, values_[op.output].dims))
                continue;
            const std::set<std::string> distinct(op.inputs.begin(), op.inputs.end());
            const bool eligible =
                distinct.size() == op.inputs.size() &&
                std::all_of(op.inputs.begin(), op.inputs.end(), [&](const std::string& input) {
                    const Value& part = values_[input];
                    return input != model_.inputName && input != output_ &&
                           part.aliasOf.empty() && part.dims[1] % blockChannels == 0;
                });
            if (!eligible)
                continue;
            memory::dim channel = 0;
            for (const std::string& input : op.inputs) {
                Value& part = values_[input];
                part.aliasOf = op.output;
                part.aliasOffset = channelOffsetBytes(part.dims, channel);
                channel += part.dims[1];
            }
            op.elided = true;
        }
    }

    const OnnxModel& model_;
    std::map<std::string, std::string> renamed_;
    std::map<std::string, int> consumers_;
    std::map<std::string, std::size_t> producer_;
};

struct AlignedFree {
    void operator()(void* pointer) const { std::free(pointer); }
};
using Buffer = std::unique_ptr<void, AlignedFree>;

} // namespace

struct DnnlTileNetwork::Plan {
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

namespace {

// Gives every tensor's root a buffer, reusing buffers of tensors that are dead by then.
class BufferAssigner {
public:
    BufferAssigner(const GraphPlanner& graph, const std::string& input,
                   std::vector<Buffer>& buffers) {
        const auto& ops = graph.ops_;
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
        touch(graph.output_, ops.size() + 1); // read after the last step
        std::vector<std::pair<std::size_t, std::size_t>> sizes; // buffer size, free from step
        for (std::size_t step = 0; step <= ops.size() + 1; ++step) {
            for (const auto& [name, span] : life) {
                if (span.first != step)
                    continue;
                const std::size_t size = graph.values_.at(name).desc.get_size();
                // Best fit among buffers free by now; a smaller one grows.
                std::optional<std::size_t> chosen;
                for (std::size_t b = 0; b < sizes.size(); ++b) {
                    if (sizes[b].second > step)
                        continue;
                    if (!chosen || distance(sizes[b].first, size) <
                                       distance(sizes[*chosen].first, size))
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

    static std::string root(const GraphPlanner& graph, std::string name) {
        while (!graph.values_.at(name).aliasOf.empty())
            name = graph.values_.at(name).aliasOf;
        return name;
    }

    // The address of a tensor inside its root's buffer.
    void* address(const GraphPlanner& graph, const std::string& name) const {
        std::size_t offset = 0;
        std::string current = name;
        while (!graph.values_.at(current).aliasOf.empty()) {
            offset += graph.values_.at(current).aliasOffset;
            current = graph.values_.at(current).aliasOf;
        }
        return static_cast<char*>((*buffers_)[bufferOf_.at(current)].get()) + offset;
    }

private:
    static std::size_t distance(std::size_t a, std::size_t b) { return a > b ? a - b : b - a; }

    std::map<std::string, std::size_t> bufferOf_;
    const std::vector<Buffer>* buffers_ = nullptr;
};

} // namespace

DnnlTileNetwork::DnnlTileNetwork(const OnnxModel& model, int side, DnnlOptions options)
    : plan_(std::make_unique<Plan>()) {
    GraphPlanner graph(model, side);
    Plan& plan = *plan_;
    try {
        const Dims& outDims = graph.values_.at(graph.output_).dims;
        if (!isPlanar(graph.values_.at(graph.output_).desc, outDims)) {
            // The caller reads planes: end with a planar copy.
            Op copy = makeOp(OpKind::reorder, {graph.output_});
            copy.output = graph.output_ + "#planar";
            graph.values_[copy.output] = makeValue(outDims, memory::desc(outDims, f32, Tag::nchw));
            graph.ops_.push_back(std::move(copy));
            graph.output_ += "#planar";
        }
        BufferAssigner assigner(graph, model.inputName, plan.buffers);
        auto bound = [&](const std::string& name, const memory::desc& desc) {
            return memory(desc, plan.engine, assigner.address(graph, name));
        };
        auto valueMemory = [&](const std::string& name) {
            return bound(name, graph.values_.at(name).desc);
        };
        auto constantMemory = [&](const OnnxTensor& tensor, const Dims& dims, Tag tag,
                                  float scale = 1) {
            memory stored({dims, f32, tag}, plan.engine);
            std::transform(tensor.values.begin(), tensor.values.end(),
                           static_cast<float*>(stored.get_data_handle()),
                           [scale](float value) { return value * scale; });
            plan.constants.push_back(stored);
            return stored;
        };

        // Every primitive gets its scratch memory from the network, never from oneDNN's own
        // per-thread scratchpad: networks are planned on one thread and run on others.
        dnnl::primitive_attr userScratchpad;
        userScratchpad.set_scratchpad_mode(dnnl::scratchpad_mode::user);
        std::vector<memory::desc> scratchNeeds; // one per step
        // A few implementations take no user scratchpad; they need no scratch memory at all.
        auto withScratchpad = [&](auto describe) {
            try {
                return describe(userScratchpad);
            } catch (const dnnl::error&) {
                return describe(dnnl::primitive_attr());
            }
        };
        auto addStep = [&](dnnl::primitive primitive, const memory::desc& scratch,
                           std::unordered_map<int, memory> args) {
            plan.steps.emplace_back(std::move(primitive), std::move(args));
            scratchNeeds.push_back(scratch);
        };

        for (const Op& op : graph.ops_) {
            if (op.elided)
                continue;
            std::unordered_map<int, memory> args;
            const memory::desc& dst = graph.values_.at(op.output).desc;
            switch (op.kind) {
            case OpKind::convolution: {
                const memory::desc& src = graph.values_.at(op.inputs[0]).desc;
                const Dims weightDims(op.weights->dims.begin(), op.weights->dims.end());
                const memory::desc weightsAny(weightDims, f32, Tag::any);
                const memory::desc biasDesc =
                    op.bias ? memory::desc({weightDims[0]}, f32, Tag::x) : memory::desc();
                dnnl::post_ops postOps;
                for (const PostOp& post : op.postOps)
                    postOps.append_eltwise(1.0f, post.kind, post.alpha, post.beta);
                // A fresh one: attributes are shared handles, copies included.
                dnnl::primitive_attr attributes;
                attributes.set_scratchpad_mode(dnnl::scratchpad_mode::user);
                attributes.set_post_ops(postOps);
                auto describe = [&](algorithm method) {
                    return dnnl::convolution_forward::primitive_desc(
                        dnnl::convolution_forward::desc(
                            dnnl::prop_kind::forward_inference, method, src, weightsAny, biasDesc,
                            dst, op.strides, op.dilations, op.padBegin, op.padEnd),
                        attributes, plan.engine);
                };
                std::optional<dnnl::convolution_forward::primitive_desc> described;
                const bool winogradShape = weightDims[2] == 3 && weightDims[3] == 3 &&
                                           op.strides == Dims{1, 1} && op.dilations == Dims{0, 0};
                if (options.winograd && winogradShape) {
                    try {
                        described = describe(algorithm::convolution_winograd);
                        ++plan.winograd;
                    } catch (const dnnl::error&) {
                        // Not on this processor or for these channels: direct it is.
                    }
                }
                if (!described)
                    described = describe(algorithm::convolution_direct);
                ++plan.convolutions;
                memory weights(described->weights_desc(), plan.engine);
                memory plainWeights =
                    constantMemory(*op.weights, weightDims, Tag::oihw, op.weightScale);
                dnnl::reorder(plainWeights, weights).execute(plan.stream, plainWeights, weights);
                plan.stream.wait();
                plan.constants.back() = weights;
                args = {{DNNL_ARG_SRC, valueMemory(op.inputs[0])},
                        {DNNL_ARG_WEIGHTS, weights},
                        {DNNL_ARG_DST, valueMemory(op.output)}};
                if (op.bias)
                    args[DNNL_ARG_BIAS] =
                        constantMemory(*op.bias, {weightDims[0]}, Tag::x, op.weightScale);
                addStep(dnnl::convolution_forward(*described), described->scratchpad_desc(),
                        std::move(args));
                break;
            }
            case OpKind::eltwise: {
                const auto described = withScratchpad([&](const dnnl::primitive_attr& attr) {
                    return dnnl::eltwise_forward::primitive_desc(
                        dnnl::eltwise_forward::desc(dnnl::prop_kind::forward_inference,
                                                    op.function, dst, op.alpha, op.beta),
                        attr, plan.engine);
                });
                args = {{DNNL_ARG_SRC, valueMemory(op.inputs[0])},
                        {DNNL_ARG_DST, valueMemory(op.output)}};
                addStep(dnnl::eltwise_forward(described), described.scratchpad_desc(),
                        std::move(args));
                break;
            }
            case OpKind::binary: {
                const Dims& dims = graph.values_.at(op.output).dims;
                memory second = op.constant
                                    ? constantMemory(*op.constant, {1, dims[1], 1, 1}, Tag::nchw)
                                    : valueMemory(op.inputs[1]);
                const auto described = withScratchpad([&](const dnnl::primitive_attr& attr) {
                    return dnnl::binary::primitive_desc(
                        dnnl::binary::desc(op.function, graph.values_.at(op.inputs[0]).desc,
                                           second.get_desc(), dst),
                        attr, plan.engine);
                });
                args = {{DNNL_ARG_SRC_0, valueMemory(op.inputs[0])},
                        {DNNL_ARG_SRC_1, second},
                        {DNNL_ARG_DST, valueMemory(op.output)}};
                addStep(dnnl::binary(described), described.scratchpad_desc(), std::move(args));
                break;
            }
            case OpKind::prelu: {
                const Dims& dims = graph.values_.at(op.output).dims;
                memory slope = constantMemory(*op.constant, {1, dims[1], 1, 1}, Tag::nchw);
                const auto described = withScratchpad([&](const dnnl::primitive_attr& attr) {
                    return dnnl::prelu_forward::primitive_desc(
                        dnnl::prelu_forward::desc(dnnl::prop_kind::forward_inference, dst,
                                                  slope.get_desc()),
                        attr, plan.engine);
                });
                args = {{DNNL_ARG_SRC, valueMemory(op.inputs[0])},
                        {DNNL_ARG_WEIGHTS, slope},
                        {DNNL_ARG_DST, valueMemory(op.output)}};
                addStep(dnnl::prelu_forward(described), described.scratchpad_desc(),
                        std::move(args));
                break;
            }
            case OpKind::concat: {
                std::vector<memory::desc> parts;
                for (std::size_t i = 0; i < op.inputs.size(); ++i) {
                    parts.push_back(graph.values_.at(op.inputs[i]).desc);
                    args[DNNL_ARG_MULTIPLE_SRC + static_cast<int>(i)] = valueMemory(op.inputs[i]);
                }
                args[DNNL_ARG_DST] = valueMemory(op.output);
                const auto described = withScratchpad([&](const dnnl::primitive_attr& attr) {
                    return dnnl::concat::primitive_desc(dst, 1, parts, plan.engine, attr);
                });
                addStep(dnnl::concat(described), described.scratchpad_desc(), std::move(args));
                break;
            }
            case OpKind::reorder: {
                memory from = op.sourceView ? bound(op.inputs[0], *op.sourceView)
                                            : valueMemory(op.inputs[0]);
                memory to = op.targetView ? bound(op.output, *op.targetView)
                                          : valueMemory(op.output);
                args = {{DNNL_ARG_FROM, from}, {DNNL_ARG_TO, to}};
                const auto described = withScratchpad([&](const dnnl::primitive_attr& attr) {
                    return dnnl::reorder::primitive_desc(from, to, attr);
                });
                addStep(dnnl::reorder(described), described.scratchpad_desc(), std::move(args));
                break;
            }
            }
        }
        std::size_t scratchSize = 64;
        for (const memory::desc& need : scratchNeeds)
            scratchSize = std::max(scratchSize, need.get_size());
        plan.scratchpad.reset(std::aligned_alloc(64, (scratchSize + 63) / 64 * 64));
        if (!plan.scratchpad)
            throw UpscaleError::imageCreateFailed();
        for (std::size_t step = 0; step < plan.steps.size(); ++step) {
            if (scratchNeeds[step].get_size() > 0)
                plan.steps[step].second[DNNL_ARG_SCRATCHPAD] =
                    memory(scratchNeeds[step], plan.engine, plan.scratchpad.get());
        }
        plan.stream.wait();
        plan.input = valueMemory(model.inputName);
        plan.output = valueMemory(graph.output_);
        plan.outputDims = outDims;
    } catch (const dnnl::error& error) {
        unsupported(std::string("oneDNN could not plan the network: ") + error.what());
    }
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
