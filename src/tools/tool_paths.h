#pragma once

#include <filesystem>

namespace lumivesper::tools {

// Everything of the tool layer lives in one folder of the application's data:
// "<data home>/Lumivesper AI/tools" for the tools, the state file and the log beside it.
std::filesystem::path defaultToolsDirectory();
std::filesystem::path defaultStateFile();
std::filesystem::path defaultLogFile();

} // namespace lumivesper::tools
