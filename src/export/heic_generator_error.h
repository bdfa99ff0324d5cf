#pragma once

#include <stdexcept>
#include <string>

namespace lumivesper::exporting {

// The failures of the export pipeline; description() is what the user finally reads.
class HeicGeneratorError : public std::runtime_error {
public:
    enum class Case {
        invalidConfiguration, // detail: what is wrong
        imageLoadFailed,      // detail: a file path
        processingFailed,     // detail: what failed
        heicCreationFailed,
        metadataCreationFailed,
        fileWriteFailed,
    };

    static HeicGeneratorError invalidConfiguration(std::string detail) {
        return {Case::invalidConfiguration, std::move(detail)};
    }
    static HeicGeneratorError imageLoadFailed(std::string path) {
        return {Case::imageLoadFailed, std::move(path)};
    }
    static HeicGeneratorError processingFailed(std::string detail) {
        return {Case::processingFailed, std::move(detail)};
    }
    static HeicGeneratorError heicCreationFailed() { return {Case::heicCreationFailed, {}}; }
    static HeicGeneratorError metadataCreationFailed() {
        return {Case::metadataCreationFailed, {}};
    }
    static HeicGeneratorError fileWriteFailed() { return {Case::fileWriteFailed, {}}; }

    Case errorCase() const { return case_; }
    const std::string& detail() const { return detail_; }
    std::string description() const { return what(); }

private:
    HeicGeneratorError(Case errorCase, std::string detail);
    static std::string describe(Case errorCase, const std::string& detail);

    Case case_;
    std::string detail_;
};

} // namespace lumivesper::exporting
