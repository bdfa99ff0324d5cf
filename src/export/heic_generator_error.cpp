#include "export/heic_generator_error.h"

namespace lumivesper::exporting {

HeicGeneratorError::HeicGeneratorError(Case errorCase, std::string detail)
    : std::runtime_error(describe(errorCase, detail)), case_(errorCase),
      detail_(std::move(detail)) {}

std::string HeicGeneratorError::describe(Case errorCase, const std::string& detail) {
    switch (errorCase) {
    case Case::invalidConfiguration:
        return "Invalid configuration: " + detail;
    case Case::imageLoadFailed:
        return "Failed to load image: " + detail;
    case Case::processingFailed:
        return "Image processing failed: " + detail;
    case Case::heicCreationFailed:
        return "Failed to create HEIC file";
    case Case::metadataCreationFailed:
        return "Failed to create metadata";
    case Case::fileWriteFailed:
        return "Failed to write output file";
    }
    return "Failed to create HEIC file";
}

} // namespace lumivesper::exporting
