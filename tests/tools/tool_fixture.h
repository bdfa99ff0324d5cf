#pragma once

#include "tools/tool_package.h"
#include "tools/tool_records.h"
#include "zip_writer.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>

namespace lumivesper::tools::testing {

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The error `work` throws; anything else, or nothing, fails the test.
template <typename Error> Error failureOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const Error& error) {
        return error;
    }
    throw std::runtime_error("the expected error was not thrown");
}

inline ToolInfo toolInfo(std::string status, std::optional<std::string> executable = {},
                         std::optional<std::string> modelsDir = {}) {
    ToolInfo info;
    info.status = std::move(status);
    info.executable = std::move(executable);
    info.modelsDir = std::move(modelsDir);
    return info;
}

// A shell script for a program and model files making the models "x2" and "x4".
inline ToolPackage upscalerPackage() {
    return ToolPackage{.name = "upscaler",
                       .version = "1.0",
                       .archiveURL = "http://127.0.0.1:1/upscaler.zip",
                       .requiredSpace = 1000,
                       .executable = "bin/upscale",
                       .modelsDirectory = "models",
                       .requiredModels = {"x4"}};
}

inline ZipWriter upscalerArchive(const std::string& greeting = "upscaled") {
    ZipWriter zip;
    zip.add("bin/upscale", "#!/bin/sh\necho " + greeting + "\n", 0755);
    zip.add("models/x4.param", "param");
    zip.add("models/x4.bin", "weights");
    zip.add("models/x2.bin", "weights");
    return zip;
}

} // namespace lumivesper::tools::testing
