#include "export/upscale/dnnl_primitives.h"

#include "export/upscale/upscale_error.h"

#include <algorithm>
#include <optional>

namespace lumivesper::upscale::onednn {

void buildPrimitives(PlannedGraph graph, const OnnxModel& model, DnnlOptions options, Plan& plan) {
    try {
        const Dims& outDims = graph.values.at(graph.output).dims;
        if (!isPlanar(graph.values.at(graph.output).desc, outDims)) {
            // The caller reads planes: end with a planar copy.
            Op copy = makeOp(OpKind::reorder, {graph.output});
            copy.output = graph.output + "#planar";
            graph.values[copy.output] = makeValue(outDims, memory::desc(outDims, f32, Tag::nchw));
            graph.ops.push_back(std::move(copy));
            graph.output += "#planar";
        }
        BufferAssigner assigner(graph, model.inputName, plan.buffers);
        auto bound = [&](const std::string& name, const memory::desc& desc) {
            return memory(desc, plan.engine, assigner.address(graph, name));
        };
        auto valueMemory = [&](const std::string& name) {
            return bound(name, graph.values.at(name).desc);
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

        for (const Op& op : graph.ops) {
            if (op.elided)
                continue;
            std::unordered_map<int, memory> args;
            const memory::desc& dst = graph.values.at(op.output).desc;
            switch (op.kind) {
            case OpKind::convolution: {
                const memory::desc& src = graph.values.at(op.inputs[0]).desc;
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
                        dnnl::convolution_forward::desc(dnnl::prop_kind::forward_inference, method,
                                                        src, weightsAny, biasDesc, dst, op.strides,
                                                        op.dilations, op.padBegin, op.padEnd),
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
                        dnnl::eltwise_forward::desc(dnnl::prop_kind::forward_inference, op.function,
                                                    dst, op.alpha, op.beta),
                        attr, plan.engine);
                });
                args = {{DNNL_ARG_SRC, valueMemory(op.inputs[0])},
                        {DNNL_ARG_DST, valueMemory(op.output)}};
                addStep(dnnl::eltwise_forward(described), described.scratchpad_desc(),
                        std::move(args));
                break;
            }
            case OpKind::binary: {
                const Dims& dims = graph.values.at(op.output).dims;
                memory second = op.constant
                                    ? constantMemory(*op.constant, {1, dims[1], 1, 1}, Tag::nchw)
                                    : valueMemory(op.inputs[1]);
                const auto described = withScratchpad([&](const dnnl::primitive_attr& attr) {
                    return dnnl::binary::primitive_desc(
                        dnnl::binary::desc(op.function, graph.values.at(op.inputs[0]).desc,
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
                const Dims& dims = graph.values.at(op.output).dims;
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
                    parts.push_back(graph.values.at(op.inputs[i]).desc);
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
                memory from =
                    op.sourceView ? bound(op.inputs[0], *op.sourceView) : valueMemory(op.inputs[0]);
                memory to =
                    op.targetView ? bound(op.output, *op.targetView) : valueMemory(op.output);
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
        plan.output = valueMemory(graph.output);
        plan.outputDims = outDims;
    } catch (const dnnl::error& error) {
        unsupported(std::string("oneDNN could not plan the network: ") + error.what());
    }
}

} // namespace lumivesper::upscale::onednn
