#pragma once

#include "export/ycbcr_frame.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace lumivesper::exporting {

// How frames are compressed. The defaults were chosen on photographs at UHD (see
// bench/export_bench.cpp) against heif-enc's defaults (preset slow, tuned for SSIM, rate factor
// 25): tuned for PSNR instead, a faster preset (for still pictures the faster presets differ only
// in tools that do not matter here) and chroma coded finer than luma give more PSNR in fewer bytes
// at about half the work. Finer chroma pays because every RGB channel carries its error; rate-
// distortion optimised quantisation would save bytes too, but costs half as much time again.
struct HevcEncoderSettings {
    std::string preset = "fast";
    std::string tune = "psnr";
    // Without adaptive quantisation a picture is coded at one whole quantiser, so only whole
    // steps of the rate factor change a file.
    double constantRateFactor = 24.0;
    // Encoder options applied over the preset, by their command-line names.
    std::vector<std::pair<std::string, std::string>> options = {{"cbqpoffs", "-4"},
                                                                {"crqpoffs", "-4"}};
    int threads = 1; // the encoder's own pool: wavefront rows of one frame
};

// "preset+name=value+name=value": a preset with options over it, as benchmarks name settings.
HevcEncoderSettings withPresetAndOptions(HevcEncoderSettings settings, const std::string& text);

// The user's quality, 0 (smallest) to 100 (best); `defaultQuality` keeps the look of the files
// this program has always written. Each step of 2 moves the rate factor by one.
inline constexpr int defaultQuality = 50;
HevcEncoderSettings encoderSettingsForQuality(int quality);

// One picture as an HEVC bitstream: the decoder configuration record (the body of an hvcC box)
// and the picture's NAL units, each prefixed by its 4-byte big-endian length.
struct HevcImage {
    std::vector<std::uint8_t> decoderConfiguration;
    std::vector<std::uint8_t> data;
};

class HevcEncodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Encodes one picture as a single intra-coded image. Thread-safe: every call has its own encoder.
HevcImage encodeHevcImage(const PlanarFrame& frame, const HevcEncoderSettings& settings);

} // namespace lumivesper::exporting
