#include "export/upscale/upscale_error.h"

namespace lumivesper::upscale {

UpscaleError::UpscaleError(Kind kind, const std::string& description)
    : std::runtime_error(description), kind_(kind) {}

UpscaleError UpscaleError::imageLoadFailed(const std::string& path) {
    UpscaleError error(Kind::imageLoadFailed, "Failed to load input image: " + path);
    error.path_ = path;
    return error;
}

UpscaleError UpscaleError::unsupportedScale(int scale) {
    UpscaleError error(Kind::unsupportedScale,
                       "Unsupported upscale factor: " + std::to_string(scale) + "x.");
    error.scale_ = scale;
    return error;
}

UpscaleError UpscaleError::modelLoadFailed() {
    return {Kind::modelLoadFailed, "ONNX model failed to load."};
}

UpscaleError UpscaleError::missingOutput() {
    return {Kind::missingOutput, "ONNX model did not return an output image."};
}

UpscaleError UpscaleError::imageCreateFailed() {
    return {Kind::imageCreateFailed, "Failed to render upscaled image."};
}

UpscaleError UpscaleError::outputWriteFailed() {
    return {Kind::outputWriteFailed, "Failed to write upscaled image to disk."};
}

UpscaleError UpscaleError::invalidInputSize() {
    return {Kind::invalidInputSize, "Input image is smaller than the 512x512 tile size."};
}

} // namespace lumivesper::upscale
