#include "export/upscale/onnx_model.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

namespace lumivesper::upscale {

namespace {

// One level of a protobuf message: fields as (number, wire type) with their payload.
class WireReader {
public:
    explicit WireReader(std::string_view bytes) : rest_(bytes) {}

    bool next() {
        if (rest_.empty())
            return false;
        const std::uint64_t key = varint();
        field_ = static_cast<int>(key >> 3);
        wireType_ = static_cast<int>(key & 7);
        switch (wireType_) {
        case 0:
            value_ = varint();
            break;
        case 1:
            payload_ = take(8);
            break;
        case 2:
            payload_ = take(static_cast<std::size_t>(varint()));
            break;
        case 5:
            payload_ = take(4);
            break;
        default:
            throw OnnxFormatError("unsupported protobuf wire type");
        }
        return true;
    }

    int field() const { return field_; }
    int wireType() const { return wireType_; }
    std::uint64_t integer() const { return value_; }
    std::string_view bytes() const { return payload_; }
    std::string text() const { return std::string(payload_); }

    float fixedFloat() const {
        if (wireType_ != 5)
            throw OnnxFormatError("a float field has the wrong wire type");
        float value;
        std::memcpy(&value, payload_.data(), sizeof value);
        return value;
    }

    // A repeated integer field, packed or one element at a time.
    void appendIntegers(std::vector<std::int64_t>& out) const {
        if (wireType_ == 0) {
            out.push_back(static_cast<std::int64_t>(value_));
            return;
        }
        WireReader packed(payload_);
        while (!packed.rest_.empty())
            out.push_back(static_cast<std::int64_t>(packed.varint()));
    }

    // A repeated float field, packed or one element at a time.
    void appendFloats(std::vector<float>& out) const {
        if (wireType_ == 5) {
            out.push_back(fixedFloat());
            return;
        }
        appendLittleEndianFloats(payload_, out);
    }

    static void appendLittleEndianFloats(std::string_view raw, std::vector<float>& out) {
        if (raw.size() % sizeof(float) != 0)
            throw OnnxFormatError("float data of a length that is not a multiple of four");
        const std::size_t start = out.size();
        out.resize(start + raw.size() / sizeof(float));
        std::memcpy(out.data() + start, raw.data(), raw.size());
    }

private:
    std::uint64_t varint() {
        std::uint64_t value = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            if (rest_.empty())
                throw OnnxFormatError("truncated model");
            const auto byte = static_cast<std::uint8_t>(rest_.front());
            rest_.remove_prefix(1);
            value |= std::uint64_t(byte & 0x7f) << shift;
            if ((byte & 0x80) == 0)
                return value;
        }
        throw OnnxFormatError("malformed varint");
    }

    std::string_view take(std::size_t count) {
        if (count > rest_.size())
            throw OnnxFormatError("truncated model");
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return taken;
    }

    std::string_view rest_;
    std::string_view payload_;
    std::uint64_t value_ = 0;
    int field_ = 0;
    int wireType_ = 0;
};

constexpr std::int64_t onnxFloat = 1;

std::pair<std::string, OnnxTensor> readTensor(std::string_view bytes) {
    std::string name;
    OnnxTensor tensor;
    std::int64_t dataType = 0;
    for (WireReader reader(bytes); reader.next();) {
        switch (reader.field()) {
        case 1:
            reader.appendIntegers(tensor.dims);
            break;
        case 2:
            dataType = static_cast<std::int64_t>(reader.integer());
            break;
        case 4:
            reader.appendFloats(tensor.values);
            break;
        case 8:
            name = reader.text();
            break;
        case 9:
            WireReader::appendLittleEndianFloats(reader.bytes(), tensor.values);
            break;
        case 14:
            throw OnnxFormatError("tensor " + name + " is stored outside the model file");
        default:
            break;
        }
    }
    if (dataType != onnxFloat)
        throw OnnxFormatError("tensor " + name + " is not float");
    std::int64_t count = 1;
    for (const std::int64_t dim : tensor.dims)
        count *= dim;
    if (count != static_cast<std::int64_t>(tensor.values.size()))
        throw OnnxFormatError("tensor " + name + " holds the wrong number of values");
    return {name, std::move(tensor)};
}

std::pair<std::string, OnnxAttribute> readAttribute(std::string_view bytes,
                                                    std::optional<OnnxTensor>& tensor) {
    std::string name;
    OnnxAttribute attribute;
    for (WireReader reader(bytes); reader.next();) {
        switch (reader.field()) {
        case 1:
            name = reader.text();
            break;
        case 2:
            attribute.f = reader.fixedFloat();
            break;
        case 3:
            attribute.i = static_cast<std::int64_t>(reader.integer());
            break;
        case 4:
            attribute.s = reader.text();
            break;
        case 5:
            tensor = readTensor(reader.bytes()).second;
            break;
        case 8:
            reader.appendIntegers(attribute.ints);
            break;
        default:
            break;
        }
    }
    return {name, std::move(attribute)};
}

OnnxNode readNode(std::string_view bytes, std::optional<OnnxTensor>& constantValue) {
    OnnxNode node;
    for (WireReader reader(bytes); reader.next();) {
        switch (reader.field()) {
        case 1:
            node.inputs.push_back(reader.text());
            break;
        case 2:
            node.outputs.push_back(reader.text());
            break;
        case 4:
            node.opType = reader.text();
            break;
        case 5:
            node.attributes.insert(readAttribute(reader.bytes(), constantValue));
            break;
        default:
            break;
        }
    }
    return node;
}

// ValueInfoProto -> TypeProto -> Tensor -> TensorShapeProto -> Dimension.
std::pair<std::string, std::vector<std::int64_t>> readValueInfo(std::string_view bytes) {
    std::string name;
    std::vector<std::int64_t> shape;
    for (WireReader info(bytes); info.next();) {
        if (info.field() == 1)
            name = info.text();
        if (info.field() != 2)
            continue;
        for (WireReader type(info.bytes()); type.next();) {
            if (type.field() != 1)
                continue;
            for (WireReader tensor(type.bytes()); tensor.next();) {
                if (tensor.field() != 2)
                    continue;
                for (WireReader dims(tensor.bytes()); dims.next();) {
                    if (dims.field() != 1)
                        continue;
                    std::int64_t size = -1;
                    for (WireReader dim(dims.bytes()); dim.next();) {
                        if (dim.field() == 1)
                            size = static_cast<std::int64_t>(dim.integer());
                    }
                    shape.push_back(size);
                }
            }
        }
    }
    return {name, shape};
}

OnnxModel readGraph(std::string_view bytes) {
    OnnxModel model;
    std::vector<std::pair<std::string, std::vector<std::int64_t>>> inputs, outputs;
    for (WireReader reader(bytes); reader.next();) {
        switch (reader.field()) {
        case 1: {
            std::optional<OnnxTensor> value;
            OnnxNode node = readNode(reader.bytes(), value);
            // Constant nodes are constants like any other; engines never see them.
            if (node.opType == "Constant") {
                if (!value || node.outputs.size() != 1)
                    throw OnnxFormatError("a Constant node without a tensor value");
                model.constants[node.outputs.front()] = std::move(*value);
                break;
            }
            model.nodes.push_back(std::move(node));
            break;
        }
        case 5:
            model.constants.insert(readTensor(reader.bytes()));
            break;
        case 11:
            inputs.push_back(readValueInfo(reader.bytes()));
            break;
        case 12:
            outputs.push_back(readValueInfo(reader.bytes()));
            break;
        default:
            break;
        }
    }
    // Older exporters also list the initializers among the graph's inputs.
    std::erase_if(inputs, [&](const auto& input) { return model.constants.contains(input.first); });
    if (inputs.size() != 1 || outputs.size() != 1)
        throw OnnxFormatError("the model must have one input and one output");
    model.inputName = inputs.front().first;
    model.inputShape = inputs.front().second;
    model.outputName = outputs.front().first;
    return model;
}

} // namespace

std::int64_t OnnxNode::intAttribute(const std::string& name, std::int64_t fallback) const {
    const auto found = attributes.find(name);
    return found == attributes.end() ? fallback : found->second.i;
}

float OnnxNode::floatAttribute(const std::string& name, float fallback) const {
    const auto found = attributes.find(name);
    return found == attributes.end() ? fallback : found->second.f;
}

std::string OnnxNode::stringAttribute(const std::string& name, const std::string& fallback) const {
    const auto found = attributes.find(name);
    return found == attributes.end() ? fallback : found->second.s;
}

std::vector<std::int64_t> OnnxNode::intsAttribute(const std::string& name,
                                                  std::vector<std::int64_t> fallback) const {
    const auto found = attributes.find(name);
    return found == attributes.end() ? fallback : found->second.ints;
}

OnnxModel parseOnnxModel(const std::vector<char>& bytes) {
    bool sawGraph = false;
    OnnxModel model;
    for (WireReader reader(std::string_view(bytes.data(), bytes.size())); reader.next();) {
        if (reader.field() == 7 && reader.wireType() == 2) {
            model = readGraph(reader.bytes());
            sawGraph = true;
        }
    }
    if (!sawGraph)
        throw OnnxFormatError("no graph in the model");
    return model;
}

} // namespace lumivesper::upscale
