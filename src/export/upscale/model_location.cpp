#include "export/upscale/model_location.h"

#include "platform/paths.h"

#include <cstdlib>
#include <system_error>

namespace lumivesper::upscale {

std::vector<std::filesystem::path> upscaleModelCandidates() {
    if (const char* chosen = std::getenv("LUMIVESPER_UPSCALE_MODEL"); chosen && *chosen)
        return {std::filesystem::path(chosen)};
    return {
        platform::dataHome() / "lumivesper" / "models" / upscaleModelFileName,
        std::filesystem::path(LUMIVESPER_INSTALL_DATADIR) / "models" / upscaleModelFileName,
    };
}

std::optional<std::filesystem::path> findUpscaleModel() {
    for (const auto& candidate : upscaleModelCandidates()) {
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error))
            return candidate;
    }
    return std::nullopt;
}

} // namespace lumivesper::upscale
