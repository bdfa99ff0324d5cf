#pragma once

#include "export/hevc_frame_encoder.h"
#include "platform/pixel_image.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::exporting {

// Builds one HEIC file: still images in the order added, the first one primary, an XMP packet on
// the primary only, nothing else. Frames are encoded in parallel when the file is finalized, each
// to its own bitstream, as many at a time as the cores and a memory budget allow; only compressed
// data stays in memory once a frame is done. Errors are HeicGeneratorError; a stop of the token
// ends the work between frames with CancellationError and writes nothing.
class HeicWriter {
public:
    // Decodes a frame when its turn comes, on a worker thread.
    using FrameLoader = std::function<platform::PixelImage()>;
    // Told, in frame order and on the thread that called finalize(), of each frame that is done.
    using EncodedCallback = std::function<void(int index)>;

    // heicCreationFailed when the output folder does not exist or the path is a folder: the
    // frames are expensive to encode, so a path that cannot be written is refused before the work.
    explicit HeicWriter(std::filesystem::path output,
                        HevcEncoderSettings settings = encoderSettingsForQuality(defaultQuality),
                        std::stop_token stop = {});
    HeicWriter(const HeicWriter&) = delete;
    HeicWriter& operator=(const HeicWriter&) = delete;

    // Adds a frame; opaque frames are stored without an alpha plane. `xmp` is attached to this
    // image when it is not empty (meant for the first). `pixelCount` is what the frame will
    // decode to, for the memory budget; 0 when unknown.
    void addImage(FrameLoader load, std::int64_t pixelCount, std::string xmp = {});
    void addImage(platform::PixelImage image, const std::string& xmp = {});

    // Encodes every frame, then writes the file (through a temporary name, so a failure or a stop
    // never leaves a half-written file at the destination). A frame's own failure (its loader's
    // error) is rethrown for the first failing frame in order; fileWriteFailed on anything else.
    void finalize(const EncodedCallback& onEncoded = {});

    int imageCount() const { return static_cast<int>(frames_.size()); }

private:
    struct PendingFrame {
        FrameLoader load;
        std::int64_t pixelCount = 0;
    };

    std::filesystem::path output_;
    HevcEncoderSettings settings_;
    std::stop_token stop_;
    std::vector<PendingFrame> frames_;
    std::string xmp_;
    int xmpFrame_ = 0;
};

// How many frames to encode at once and with how many threads each, for `frames` frames of at
// most `largestPixels` pixels on `cores` cores within `memoryBudget` bytes.
struct EncodePlan {
    int framesInFlight = 1;
    int threadsPerFrame = 1;
};
EncodePlan planEncoding(int frames, std::int64_t largestPixels, int cores,
                        std::int64_t memoryBudget);

} // namespace lumivesper::exporting
