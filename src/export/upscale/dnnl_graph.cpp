#include "export/upscale/dnnl_graph.h"

#include <algorithm>
#include <set>

namespace lumivesper::upscale::onednn {

namespace {

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
        const OnnxTensor* bias =
            node.inputs.size() > 2 && !node.inputs[2].empty() ? constant(node.inputs[2]) : nullptr;
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
        const Dims targetStrides{channels * plane * block * block,
                                 plane * block * block,
                                 w * block * block,
                                 w * block,
                                 block,
                                 1};
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
                    return input != model_.inputName && input != output_ && part.aliasOf.empty() &&
                           part.dims[1] % blockChannels == 0;
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

} // namespace

PlannedGraph planGraph(const OnnxModel& model, int side) {
    GraphPlanner planner(model, side);
    return {std::move(planner.values_), std::move(planner.ops_), std::move(planner.output_)};
}

} // namespace lumivesper::upscale::onednn
