#pragma once

#include "platform/pixel_image.h"

#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>

struct heif_context;
struct heif_encoder;

namespace lumivesper::exporting {

// Builds one HEIC file: still images in the order added, the first one primary, an XMP packet on
// the primary only, nothing else. Each image is encoded as it is added, so only compressed data
// stays in memory. Errors are HeicGeneratorError.
class HeicWriter {
public:
    // heicCreationFailed when the encoder cannot be had or the output folder does not exist: the
    // frames are expensive to encode, so a path that cannot be written is refused before the work.
    explicit HeicWriter(std::filesystem::path output);
    ~HeicWriter();
    HeicWriter(const HeicWriter&) = delete;
    HeicWriter& operator=(const HeicWriter&) = delete;

    // Encodes one frame at the encoder's default settings; opaque frames are stored without an
    // alpha plane. `xmp` is attached to this image when it is not empty (meant for the first).
    void addImage(const platform::PixelImage& image, const std::string& xmp = {});

    // Writes the file (through a temporary name, so a failure never leaves a half-written file at
    // the destination); fileWriteFailed on any failure. A stop of `stop` before the write is
    // CancellationError, and the destination is left as it was.
    void finalize(std::stop_token stop = {});

    int imageCount() const { return count_; }

private:
    struct ContextDeleter {
        void operator()(heif_context* context) const;
    };
    struct EncoderDeleter {
        void operator()(heif_encoder* encoder) const;
    };

    std::filesystem::path output_;
    std::unique_ptr<heif_context, ContextDeleter> context_;
    std::unique_ptr<heif_encoder, EncoderDeleter> encoder_;
    int count_ = 0;
};

} // namespace lumivesper::exporting
