#pragma once

#include "generation/generated_image.h"

#include <optional>
#include <stop_token>
#include <string>

namespace lumivesper::generation {

// A service that makes one image from a prompt, optionally working from a reference image.
// Implementations are immutable and may be called from several threads at once; a call blocks
// its thread and stops early (CancellationError) when `stop` fires.
class ImageGenerationService {
public:
    virtual ~ImageGenerationService() = default;

    virtual bool isConfigured() const = 0;

    virtual GeneratedImage generateImage(const std::string& prompt, const std::string& model,
                                         const std::string& aspectRatio,
                                         const std::optional<Bytes>& referenceImage,
                                         const std::optional<std::string>& systemPrompt,
                                         const std::optional<std::string>& imageSize,
                                         std::stop_token stop = {}) const = 0;
};

} // namespace lumivesper::generation
