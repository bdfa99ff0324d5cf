#include "generation/image_generation_error.h"

#include "platform/redaction.h"

#include <utility>

namespace lumivesper::generation {

ImageGenerationError::ImageGenerationError(Case kind, std::string message,
                                           const std::string& description)
    : std::runtime_error(description), kind_(kind), message_(std::move(message)) {}

ImageGenerationError ImageGenerationError::requestFailed(std::string message) {
    // Error pages echo the request's URL, and Gemini's carries the key.
    message = platform::redactedSecrets(message);
    const std::string description = message;
    return {Case::requestFailed, std::move(message), description};
}

ImageGenerationError ImageGenerationError::missingAPIKey() {
    return {Case::missingAPIKey, {}, "Missing API key"};
}

ImageGenerationError ImageGenerationError::invalidResponse() {
    return {Case::invalidResponse, {}, "Unexpected response from image service"};
}

ImageGenerationError ImageGenerationError::decodeFailed() {
    return {Case::decodeFailed, {}, "Failed to decode image data"};
}

} // namespace lumivesper::generation
