#include "generation/api_key_provider.h"

#include "generation/image_generation_error.h"

#include <cstdlib>

namespace lumivesper::generation {

std::optional<std::string> EnvironmentAPIKeyProvider::apiKey() const {
    const char* value = std::getenv(keyName.c_str());
    if (!value)
        return std::nullopt;
    return std::string(value);
}

bool hasKey(const APIKeyProvider& provider) {
    return provider.apiKey().has_value();
}

std::string requireKey(const APIKeyProvider& provider) {
    auto key = provider.apiKey();
    if (!key || key->empty())
        throw ImageGenerationError::missingAPIKey();
    return std::move(*key);
}

} // namespace lumivesper::generation
