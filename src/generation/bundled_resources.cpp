#include "generation/bundled_resources.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace lumivesper::generation {

std::optional<std::string> bundledDefaultPrompts() {
    const std::filesystem::path installed =
        std::filesystem::path(LUMIVESPER_INSTALL_DATADIR) / "default-prompts.json";
    std::ifstream file(installed, std::ios::binary);
    if (file) {
        std::ostringstream text;
        text << file.rdbuf();
        if (file.good() || file.eof())
            return text.str();
    }
    return std::string(embeddedDefaultPrompts());
}

} // namespace lumivesper::generation
