#include "generation/image_provider_route.h"

#include "generation/request_text.h"

namespace lumivesper::generation {

ImageProviderRoute imageProviderRoute(std::string_view model) {
    const std::string id = lowercased(trimmed(model));
    if (id.starts_with("openai/"))
        return ImageProviderRoute::openAI;
    if (id.starts_with("google/") || id.find("gemini") != std::string::npos)
        return ImageProviderRoute::gemini;
    if (id.starts_with("openrouter/"))
        return ImageProviderRoute::openRouter;
    return ImageProviderRoute::automatic;
}

} // namespace lumivesper::generation
