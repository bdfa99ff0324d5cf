#!/usr/bin/python3
"""convert_esrgan_model.py PACKAGE_DIR OUTPUT.onnx [--scale 4] [--tile 512]

Turns a residual-in-residual dense network stored as a TF.js layers model (models/x<scale>/model.json
and its weight shards, as the esrgan-thick npm package ships it) into the ONNX network the tile
upscaler runs: a fixed 1x3xTILExTILE float input named "input", RGB in 0..1, and a
1x3x(scale*TILE)x(scale*TILE) output named "output" in the same range.

Needs only Debian's python3-onnx and python3-numpy."""

import argparse
import json
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper


class Graph:
    """ONNX nodes and initializers, named after the Keras layers they come from."""

    def __init__(self):
        self.nodes, self.initializers = [], []

    def constant(self, name, array):
        self.initializers.append(
            numpy_helper.from_array(np.ascontiguousarray(array, dtype=np.float32), name))
        return name

    def node(self, op, inputs, output, **attributes):
        self.nodes.append(helper.make_node(op, inputs, [output], name=output, **attributes))
        return output


def read_weights(model_dir, manifest):
    """Every weight of the manifest, by name, as float32 arrays in Keras shapes."""
    weights = {}
    for group in manifest:
        blob = b"".join(open(os.path.join(model_dir, path), "rb").read() for path in group["paths"])
        offset = 0
        for entry in group["weights"]:
            if entry["dtype"] != "float32" or "quantization" in entry:
                raise ValueError(f"{entry['name']}: only unquantised float32 weights are supported")
            count = int(np.prod(entry["shape"], dtype=np.int64))
            weights[entry["name"]] = np.frombuffer(
                blob, dtype="<f4", count=count, offset=offset).reshape(entry["shape"])
            offset += 4 * count
        if offset != len(blob):
            raise ValueError(f"weight shards hold {len(blob)} bytes, the manifest names {offset}")
    return weights


def convert_layer(graph, layer, inputs, weights):
    """Appends the ONNX nodes of one Keras layer; returns the name of its output."""
    kind, name, config = layer["class_name"], layer["name"], layer["config"]
    if kind == "Conv2D":
        if config["strides"] != [1, 1] or config["dilation_rate"] != [1, 1] or \
                config.get("groups", 1) != 1 or config["padding"] != "same":
            raise ValueError(f"{name}: only stride 1, dilation 1, 'same' convolutions are supported")
        kh, kw = config["kernel_size"]
        if kh % 2 == 0 or kw % 2 == 0:
            raise ValueError(f"{name}: even kernels pad unevenly under 'same'")
        # Keras keeps kernels as HWIO, ONNX as OIHW.
        kernel = graph.constant(name + "/kernel",
                                weights[name + "/kernel"].transpose(3, 2, 0, 1))
        conv_inputs = inputs + [kernel]
        if config["use_bias"]:
            conv_inputs.append(graph.constant(name + "/bias", weights[name + "/bias"]))
        activation = config.get("activation", "linear")
        out = graph.node("Conv", conv_inputs, name if activation == "linear" else name + "/conv",
                         kernel_shape=[kh, kw], pads=[kh // 2, kw // 2, kh // 2, kw // 2])
        if activation == "relu":
            return graph.node("Relu", [out], name)
        if activation != "linear":
            raise ValueError(f"{name}: activation {activation} is not supported")
        return out
    if kind == "Activation":
        if config["activation"] != "relu":
            raise ValueError(f"{name}: activation {config['activation']} is not supported")
        return graph.node("Relu", inputs, name)
    if kind == "Concatenate":
        if config["axis"] not in (-1, 3):
            raise ValueError(f"{name}: only channel concatenation is supported")
        return graph.node("Concat", inputs, name, axis=1)
    if kind == "Add":
        total = inputs[0]
        for index, term in enumerate(inputs[1:], start=1):
            total = graph.node("Add", [total, term], name if index == len(inputs) - 1
                               else f"{name}/{index}")
        return total
    if kind == "MultiplyBeta":
        beta = graph.constant(name + "/beta", np.array(config.get("beta", 0.2)))
        return graph.node("Mul", inputs + [beta], name)
    if kind.startswith("PixelShuffle"):
        # TensorFlow's depth_to_space takes the block offset before the channel: ONNX's DCR.
        return graph.node("DepthToSpace", inputs, name, blocksize=int(config["scale"]),
                          mode="DCR")
    raise ValueError(f"{name}: layer type {kind} is not supported")


def convert(package_dir, scale, tile):
    model_dir = os.path.join(package_dir, "models", f"x{scale}")
    with open(os.path.join(model_dir, "model.json")) as file:
        model = json.load(file)
    topology = model["modelTopology"]
    topology = topology.get("model_config", topology)["config"]
    weights = read_weights(model_dir, model["weightsManifest"])

    graph, produced = Graph(), {}
    (input_layer, _, _), = topology["input_layers"]
    (output_layer, _, _), = topology["output_layers"]
    produced[input_layer] = "input"
    # Keras lists the layers of a functional model in an order where inputs come first.
    for layer in topology["layers"]:
        if layer["class_name"] == "InputLayer":
            continue
        (inbound,) = layer["inbound_nodes"]
        inputs = [produced[source[0]] for source in inbound]
        produced[layer["name"]] = convert_layer(graph, layer, inputs, weights)

    graph.nodes.append(helper.make_node("Identity", [produced[output_layer]], ["output"]))
    io = [helper.make_tensor_value_info(name, TensorProto.FLOAT, [1, 3, side, side])
          for name, side in (("input", tile), ("output", tile * scale))]
    onnx_graph = helper.make_graph(graph.nodes, f"esrgan_x{scale}_{tile}", io[:1], io[1:],
                                   graph.initializers)
    # Opset 11: the first with DepthToSpace's mode, and old enough for OpenCV 4.6's importer.
    result = helper.make_model(onnx_graph, opset_imports=[helper.make_opsetid("", 11)],
                               producer_name="lumivesper convert_esrgan_model")
    onnx.checker.check_model(result)
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("package_dir")
    parser.add_argument("output")
    parser.add_argument("--scale", type=int, default=4)
    parser.add_argument("--tile", type=int, default=512)
    arguments = parser.parse_args()
    try:
        model = convert(arguments.package_dir, arguments.scale, arguments.tile)
    except (OSError, KeyError, ValueError) as error:
        sys.exit(f"convert_esrgan_model: {error}")
    # Written beside the target and renamed, so an interrupted run leaves no half model behind.
    partial = arguments.output + ".partial"
    onnx.save(model, partial)
    os.replace(partial, arguments.output)


if __name__ == "__main__":
    main()
