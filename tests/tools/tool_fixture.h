#pragma once

#include "tools/tool_package.h"
#include "zip_writer.h"

#include <filesystem>
#include <string>

namespace lumivesper::tools::testing {

// The package the installation tests install: a shell script for a program and three model
// files making the models "x2" and "x4".
inline ToolPackage upscalerPackage() {
    ToolPackage package;
    package.name = "upscaler";
    package.version = "1.0";
    package.archiveURL = "http://127.0.0.1:1/upscaler.zip";
    package.requiredSpace = 1000;
    package.executable = "bin/upscale";
    package.modelsDirectory = "models";
    package.requiredModels = {"x4"};
    return package;
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
