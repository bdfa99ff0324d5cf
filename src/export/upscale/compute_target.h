#pragma once

namespace lumivesper::upscale {

// Where the upscaling network runs.
enum class ComputeTarget {
    automatic, // an OpenCL GPU when one is present, else the CPU
    cpu,
};

} // namespace lumivesper::upscale
