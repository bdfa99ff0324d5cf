#pragma once

namespace lumivesper::upscale {

// Where, and by which engine, the upscaling network runs.
enum class ComputeTarget {
    automatic, // an OpenCL GPU when one is present, else as `cpu`
    cpu,       // oneDNN, or OpenCV's CPU path for a model oneDNN cannot run
    openCvCpu, // OpenCV's CPU path: the reference the other engines are measured against
    openCl,    // OpenCV's OpenCL path on the default OpenCL device, whatever its kind
};

} // namespace lumivesper::upscale
