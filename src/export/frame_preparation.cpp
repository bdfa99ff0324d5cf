#include "export/heic_generator.h"
#include "export/heic_generator_error.h"

namespace lumivesper::exporting {

PreparedFrames
HeicGenerator::prepareFrames(const std::vector<document::WallpaperImage>& images,
                             const std::optional<HeicPreprocessConfig>& preprocessConfig,
                             int /*total*/, const ProgressCallback& /*progress*/,
                             std::stop_token /*stop*/) const {
    if (preprocessConfig && preprocessConfig->wantsPreprocessing())
        throw HeicGeneratorError::invalidConfiguration(
            "Resizing, upscaling and dithering are not available yet");

    // Direct: the source files go to the encoder as they are; no clean-up, no progress.
    PreparedFrames prepared;
    prepared.frames.reserve(images.size());
    for (const auto& image : images) {
        if (!image.sourcePath)
            throw HeicGeneratorError::invalidConfiguration("Missing source path for image");
        prepared.frames.push_back(HeicFrameSource{image, *image.sourcePath, FrameSize{}});
    }
    return prepared;
}

} // namespace lumivesper::exporting
