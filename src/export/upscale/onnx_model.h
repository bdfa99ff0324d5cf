#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::upscale {

// A float tensor stored in the model.
struct OnnxTensor {
    std::vector<std::int64_t> dims;
    std::vector<float> values;
};

struct OnnxAttribute {
    std::int64_t i = 0;
    float f = 0;
    std::string s;
    std::vector<std::int64_t> ints;
};

struct OnnxNode {
    std::string opType;
    std::vector<std::string> inputs; // "" for an optional input left out
    std::vector<std::string> outputs;
    std::map<std::string, OnnxAttribute> attributes;

    std::int64_t intAttribute(const std::string& name, std::int64_t fallback) const;
    float floatAttribute(const std::string& name, float fallback) const;
    std::string stringAttribute(const std::string& name, const std::string& fallback) const;
    std::vector<std::int64_t> intsAttribute(const std::string& name,
                                            std::vector<std::int64_t> fallback) const;
};

// The parts of an ONNX model an engine of our own needs: the nodes in graph order, the float
// constants (initializers and Constant nodes) and the one input and output with their shapes.
// Read straight from the protobuf wire format, so no protobuf library is needed.
struct OnnxModel {
    std::vector<OnnxNode> nodes;
    std::map<std::string, OnnxTensor> constants;
    std::string inputName;
    std::vector<std::int64_t> inputShape; // -1 for a dimension without a fixed size
    std::string outputName;
};

class OnnxFormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws OnnxFormatError for bytes that are not such a model, or a model with other than one
// input and one output, or constants of a type other than float.
OnnxModel parseOnnxModel(const std::vector<char>& bytes);

} // namespace lumivesper::upscale
