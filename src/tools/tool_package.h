#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lumivesper::tools {

// What it takes to fetch, install and check one tool. Paths are relative to the tool's folder
// under the tools directory.
struct ToolPackage {
    std::string name; // key in the state file and name of the tool's folder
    std::string version;
    std::string archiveURL;
    std::int64_t requiredSpace = 0; // bytes the download and installation need
    std::filesystem::path executable;
    std::filesystem::path modelsDirectory;
    // Model names: the file names in the models folder without their extensions, so that a model
    // made of "x4.param" and "x4.bin" is "x4".
    std::vector<std::string> requiredModels;
};

// About the size of an upscaler with its models; what a user is told they will download.
inline constexpr std::int64_t typicalToolDownloadSize = 52'428'800;

} // namespace lumivesper::tools
