#!/usr/bin/python3
"""make_test_model.py OUTPUT_DIRECTORY: the upscaler's test networks, on the fixed 1x3x512x512 tile.
exact4x: nearest-neighbour 4x with the channels rotated (R<-G, G<-B, B<-R), so that an RGB/BGR
mix-up shows. halfsize: the same at 2x, a wrong output shape. srvgg16: 16 convolutions of 64
channels with PReLU, pixel shuffle x4 plus the upsampled input: realistic work for timings.
mixed64: a small 64x64 network with every operator and layout case an engine must get right
(fused and unfused activations, chained channel concatenations, both DepthToSpace modes).
open64: what other exporters write: an open batch size, initializers also listed as graph
inputs, a Constant node, constants on either side of Sub (run at 64x64 by the tests).
tanh512: an operator oneDNN is not given, for the fall-back to OpenCV."""

import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper


def tensor(name, array):
    return numpy_helper.from_array(np.ascontiguousarray(array, dtype=np.float32), name)


def save(path, nodes, initializers, scale, tile=512):
    io = [helper.make_tensor_value_info(name, TensorProto.FLOAT, [1, 3, side, side])
          for name, side in (("input", tile), ("output", tile * scale))]
    graph = helper.make_graph(nodes, os.path.basename(path), io[:1], io[1:], initializers)
    # Opset 11: old enough for OpenCV 4.6's importer.
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)])
    onnx.checker.check_model(model)
    onnx.save(model, path)


def nearest(source, output, scale, channel_of, initializers):
    # A 1x1 convolution and DepthToSpace (CRD) that repeat each source channel.
    weights = np.zeros((3 * scale * scale, 3, 1, 1))
    for channel in range(3):
        weights[channel * scale * scale:(channel + 1) * scale * scale, channel_of[channel]] = 1
    initializers.append(tensor(output + "_w", weights))
    return [helper.make_node("Conv", [source, output + "_w"], [output + "_x"], kernel_shape=[1, 1]),
            helper.make_node("DepthToSpace", [output + "_x"], [output], blocksize=scale, mode="CRD")]


def srvgg(path, body=16, features=64):
    rng = np.random.default_rng(20240611)
    initializers, nodes, x = [], [], "input"
    for index, (cin, cout) in enumerate([(3, features)] + [(features, features)] * body
                                        + [(features, 48)]):
        name = f"conv{index}"
        weights = rng.normal(0, np.sqrt(0.5 / (cin * 9)), (cout, cin, 3, 3))
        initializers += [tensor(name + "_w", weights), tensor(name + "_b", np.zeros(cout))]
        nodes.append(helper.make_node("Conv", [x, name + "_w", name + "_b"], [name],
                                      kernel_shape=[3, 3], pads=[1, 1, 1, 1]))
        x = name
        if index <= body:  # the last convolution feeds the shuffle directly
            initializers.append(tensor(name + "_s", np.full((cout, 1, 1), 0.1)))
            nodes.append(helper.make_node("PRelu", [name, name + "_s"], [name + "_a"]))
            x = name + "_a"
    nodes.append(helper.make_node("DepthToSpace", [x], ["shuffled"], blocksize=4, mode="CRD"))
    nodes += nearest("input", "base", 4, [0, 1, 2], initializers)
    nodes.append(helper.make_node("Add", ["shuffled", "base"], ["output"]))
    save(path, nodes, initializers, 4)


def mixed(path):
    rng = np.random.default_rng(7)
    initializers, nodes = [], []

    def conv(source, output, cin, cout, kernel=3):
        weights = rng.normal(0, np.sqrt(1.0 / (cin * kernel * kernel)), (cout, cin, kernel, kernel))
        initializers.extend([tensor(output + "_w", weights),
                             tensor(output + "_b", rng.normal(0, 0.05, cout))])
        nodes.append(helper.make_node("Conv", [source, output + "_w", output + "_b"], [output],
                                      kernel_shape=[kernel, kernel], pads=[kernel // 2] * 4))

    def node(op, inputs, output, **attributes):
        nodes.append(helper.make_node(op, inputs, [output], **attributes))

    def constant(name, value):
        initializers.append(tensor(name, value))
        return name

    conv("input", "c0", 3, 32)
    node("Relu", ["c0"], "r0")
    conv("r0", "c1", 32, 16)
    node("LeakyRelu", ["c1"], "l1", alpha=0.2)
    node("Concat", ["r0", "l1"], "cat1", axis=1)
    conv("cat1", "c2", 48, 16)
    node("Mul", ["c2", constant("half", np.array(0.5))], "m2")
    node("Concat", ["cat1", "m2"], "cat2", axis=1)
    node("PRelu", ["cat2", constant("slope", rng.uniform(0, 0.3, (64, 1, 1)))], "p")
    conv("p", "c3", 64, 32, kernel=1)
    node("Add", ["c3", "r0"], "a")
    node("Mul", ["a", constant("third", np.array(0.3))], "s")
    conv("s", "c4", 32, 48)
    node("DepthToSpace", ["c4"], "d", blocksize=4, mode="DCR")
    nodes.extend(nearest("input", "base", 4, [0, 1, 2], initializers))
    node("Concat", ["d", "base"], "cat3", axis=1)
    conv("cat3", "c5", 6, 3, kernel=1)
    node("Sigmoid", ["c5"], "output")
    save(path, nodes, initializers, 4, tile=64)


def open_size(path):
    rng = np.random.default_rng(11)
    weights = rng.normal(0, 0.3, (48, 3, 3, 3))
    initializers = [tensor("w", weights), tensor("high", np.array(0.9))]
    nodes = [
        helper.make_node("Constant", [], ["shift"], value=tensor("shift_value", np.array(0.25))),
        helper.make_node("Conv", ["input", "w"], ["c"], kernel_shape=[3, 3], pads=[1, 1, 1, 1]),
        helper.make_node("Sub", ["c", "shift"], ["s"]),
        helper.make_node("DepthToSpace", ["s"], ["d"], blocksize=4, mode="CRD"),
        helper.make_node("Sub", ["high", "d"], ["output"]),
    ]
    inputs = [helper.make_tensor_value_info("input", TensorProto.FLOAT, ["batch", 3, 64, 64])]
    inputs += [helper.make_tensor_value_info(t.name, TensorProto.FLOAT, list(t.dims))
               for t in initializers]
    output = helper.make_tensor_value_info("output", TensorProto.FLOAT, ["batch", 3, 256, 256])
    graph = helper.make_graph(nodes, "open64", inputs, [output], initializers)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)])
    onnx.checker.check_model(model)
    onnx.save(model, path)


def tanh(path):
    weights = []
    nodes = nearest("input", "base", 4, [0, 1, 2], weights)
    nodes.append(helper.make_node("Tanh", ["base"], ["output"]))
    save(path, nodes, weights, 4)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    os.makedirs(sys.argv[1], exist_ok=True)
    for name, scale in (("exact4x", 4), ("halfsize", 2)):
        weights = []
        nodes = nearest("input", "output", scale, [1, 2, 0], weights)
        save(os.path.join(sys.argv[1], name + ".onnx"), nodes, weights, scale)
    srvgg(os.path.join(sys.argv[1], "srvgg16.onnx"))
    mixed(os.path.join(sys.argv[1], "mixed64.onnx"))
    open_size(os.path.join(sys.argv[1], "open64.onnx"))
    tanh(os.path.join(sys.argv[1], "tanh512.onnx"))
