#include "tools/tool_health_check.h"

#include <filesystem>
#include <set>
#include <system_error>
#include <unistd.h>

namespace lumivesper::tools {

std::vector<std::string>
ToolHealthCheck::problems(const std::optional<ToolInfo>& tool,
                          const std::vector<std::string>& requiredModels) const {
    namespace fs = std::filesystem;
    if (!tool)
        return {"Not installed"};
    std::vector<std::string> found;
    if (tool->status != toolStatusInstalled)
        found.push_back("Status is \"" + tool->status + "\"");

    std::error_code error;
    if (!tool->executable || !fs::exists(*tool->executable, error))
        found.push_back("Executable missing: " + tool->executable.value_or("(none recorded)"));
    else if (!fs::is_regular_file(*tool->executable, error) ||
             ::access(tool->executable->c_str(), X_OK) != 0)
        found.push_back("Not executable: " + *tool->executable);

    if (!tool->modelsDir || !fs::is_directory(*tool->modelsDir, error)) {
        found.push_back("Models folder missing: " + tool->modelsDir.value_or("(none recorded)"));
        return found;
    }
    std::set<std::string> models;
    for (const auto& entry : fs::directory_iterator(*tool->modelsDir, error))
        if (entry.is_regular_file(error))
            models.insert(entry.path().stem().string());
    for (const auto& model : requiredModels)
        if (!models.contains(model))
            found.push_back("Model missing: " + model);
    return found;
}

} // namespace lumivesper::tools
