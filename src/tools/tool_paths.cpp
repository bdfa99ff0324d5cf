#include "tools/tool_paths.h"

#include "platform/paths.h"

namespace lumivesper::tools {

namespace {

std::filesystem::path applicationFolder() {
    return platform::dataHome() / "Lumivesper AI";
}

} // namespace

std::filesystem::path defaultToolsDirectory() {
    return applicationFolder() / "tools";
}

std::filesystem::path defaultStateFile() {
    return applicationFolder() / "tools-state.json";
}

std::filesystem::path defaultLogFile() {
    return applicationFolder() / "tools.log";
}

} // namespace lumivesper::tools
