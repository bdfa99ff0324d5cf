#pragma once

#include <filesystem>
#include <optional>
#include <vector>

namespace lumivesper::upscale {

// The file name under which users install the 4x network (fixed 1x3x512x512 input).
inline constexpr const char* upscaleModelFileName = "realesrgan512.onnx";

// Where the model is looked for, in order. $LUMIVESPER_UPSCALE_MODEL, when set, names the file
// and is the only candidate: a user who points at a model must not silently get another one.
// Otherwise $XDG_DATA_HOME/lumivesper/models/ and then the installed share/lumivesper/models/.
std::vector<std::filesystem::path> upscaleModelCandidates();

// The first candidate that is a regular file, or none.
std::optional<std::filesystem::path> findUpscaleModel();

} // namespace lumivesper::upscale
