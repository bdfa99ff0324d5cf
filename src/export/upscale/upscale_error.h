#pragma once

#include <stdexcept>
#include <string>

namespace lumivesper::upscale {

// The failures of the tile upscaler, each with the text a user sees.
class UpscaleError : public std::runtime_error {
public:
    enum class Kind {
        imageLoadFailed,
        unsupportedScale,
        modelLoadFailed,
        missingOutput,
        imageCreateFailed,
        outputWriteFailed,
        invalidInputSize,
    };

    static UpscaleError imageLoadFailed(const std::string& path);
    static UpscaleError unsupportedScale(int scale);
    static UpscaleError modelLoadFailed();
    static UpscaleError missingOutput();
    static UpscaleError imageCreateFailed();
    static UpscaleError outputWriteFailed();
    static UpscaleError invalidInputSize();

    Kind kind() const { return kind_; }
    std::string description() const { return what(); }

    // Payloads: the path of imageLoadFailed, the factor of unsupportedScale.
    const std::string& path() const { return path_; }
    int scale() const { return scale_; }

private:
    UpscaleError(Kind kind, const std::string& description);

    Kind kind_;
    std::string path_;
    int scale_ = 0;
};

} // namespace lumivesper::upscale
