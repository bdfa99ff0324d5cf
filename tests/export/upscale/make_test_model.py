#!/usr/bin/python3
"""Writes the small ONNX networks that the upscaler's tests and benchmark run.

Every network takes the fixed tile 1x3x512x512 (RGB, 0..1) and returns 1x3x2048x2048, like the
4x Real-ESRGAN model that users install:

  exact4x.onnx    nearest-neighbour 4x with the channels rotated (R<-G, G<-B, B<-R), built from
                  a 1x1 convolution and DepthToSpace. Its output is known to the bit, and the
                  rotation exposes RGB/BGR mix-ups that a plain copy would hide.
  halfsize.onnx   returns 1x3x1024x1024: a model with the wrong output shape.
  srvgg16.onnx    a compact SRVGGNet-like body (16 3x3 convolutions of 64 channels with PReLU,
                  then pixel shuffle x4 plus the nearest-upsampled input) with fixed random
                  weights: realistic work per tile for timings, meaningless pixels.

Usage: make_test_model.py OUTPUT_DIRECTORY
"""

import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

TILE = 512
SCALE = 4
OPSET = 11  # old enough for OpenCV 4.6's importer


def tensor(name, array):
    return numpy_helper.from_array(np.ascontiguousarray(array, dtype=np.float32), name)


def io(name, side):
    return helper.make_tensor_value_info(name, TensorProto.FLOAT, [1, 3, side, side])


def save(graph, path):
    model = helper.make_model(graph, producer_name="lumivesper-tests",
                              opset_imports=[helper.make_opsetid("", OPSET)])
    onnx.checker.check_model(model)
    onnx.save(model, path)


def nearest_weights(source_channel_of, scale):
    """A 1x1 convolution whose DepthToSpace (CRD) output repeats each source channel."""
    block = scale * scale
    weights = np.zeros((3 * block, 3, 1, 1), dtype=np.float32)
    for out_channel in range(3):
        weights[out_channel * block:(out_channel + 1) * block, source_channel_of[out_channel]] = 1
    return weights


def exact_model(path, scale=SCALE):
    rotate = [1, 2, 0]
    nodes = [
        helper.make_node("Conv", ["input", "w"], ["expanded"], kernel_shape=[1, 1]),
        helper.make_node("DepthToSpace", ["expanded"], ["output"], blocksize=scale, mode="CRD"),
    ]
    graph = helper.make_graph(nodes, "exact", [io("input", TILE)], [io("output", TILE * scale)],
                              [tensor("w", nearest_weights(rotate, scale))])
    save(graph, path)


def srvgg_model(path, body_convs=16, features=64):
    rng = np.random.default_rng(20240611)
    initializers = []
    nodes = []

    def conv(source, name, channels_in, channels_out, activate):
        std = np.sqrt(2.0 / (channels_in * 9)) * 0.5
        initializers.append(tensor(name + "_w",
                                   rng.normal(0, std, (channels_out, channels_in, 3, 3))))
        initializers.append(tensor(name + "_b", np.zeros(channels_out)))
        nodes.append(helper.make_node("Conv", [source, name + "_w", name + "_b"], [name],
                                      kernel_shape=[3, 3], pads=[1, 1, 1, 1]))
        if not activate:
            return name
        initializers.append(tensor(name + "_slope", np.full((channels_out, 1, 1), 0.1)))
        nodes.append(helper.make_node("PRelu", [name, name + "_slope"], [name + "_act"]))
        return name + "_act"

    x = conv("input", "head", 3, features, True)
    for index in range(body_convs):
        x = conv(x, f"body{index}", features, features, True)
    x = conv(x, "tail", features, 3 * SCALE * SCALE, False)
    nodes.append(helper.make_node("DepthToSpace", [x], ["shuffled"], blocksize=SCALE,
                                  mode="CRD"))
    initializers.append(tensor("identity_w", nearest_weights([0, 1, 2], SCALE)))
    nodes.append(helper.make_node("Conv", ["input", "identity_w"], ["base_expanded"],
                                  kernel_shape=[1, 1]))
    nodes.append(helper.make_node("DepthToSpace", ["base_expanded"], ["base"], blocksize=SCALE,
                                  mode="CRD"))
    nodes.append(helper.make_node("Add", ["shuffled", "base"], ["output"]))
    graph = helper.make_graph(nodes, "srvgg", [io("input", TILE)], [io("output", TILE * SCALE)],
                              initializers)
    save(graph, path)


def half_size_model(path):
    nodes = [
        helper.make_node("Conv", ["input", "w"], ["expanded"], kernel_shape=[1, 1]),
        helper.make_node("DepthToSpace", ["expanded"], ["output"], blocksize=2, mode="CRD"),
    ]
    graph = helper.make_graph(nodes, "half", [io("input", TILE)], [io("output", TILE * 2)],
                              [tensor("w", nearest_weights([0, 1, 2], 2))])
    save(graph, path)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    directory = sys.argv[1]
    os.makedirs(directory, exist_ok=True)
    exact_model(os.path.join(directory, "exact4x.onnx"))
    half_size_model(os.path.join(directory, "halfsize.onnx"))
    srvgg_model(os.path.join(directory, "srvgg16.onnx"))


if __name__ == "__main__":
    main()
