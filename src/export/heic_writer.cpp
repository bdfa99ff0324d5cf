#include "export/heic_writer.h"

#include "export/heic_generator_error.h"
#include "platform/cancellation.h"
#include "platform/uuid.h"

#include <cstring>
#include <libheif/heif.h>
#include <system_error>

namespace lumivesper::exporting {

namespace {

struct ImageDeleter {
    void operator()(heif_image* image) const { heif_image_release(image); }
};
struct HandleDeleter {
    void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
};

bool isOpaque(const platform::PixelImage& image) {
    for (std::size_t i = 3; i < image.rgba.size(); i += 4)
        if (image.rgba[i] != 255)
            return false;
    return true;
}

// Copies the pixels into a libheif image of interleaved RGB or RGBA.
std::unique_ptr<heif_image, ImageDeleter> makeHeifImage(const platform::PixelImage& source) {
    const bool alpha = !isOpaque(source);
    heif_image* raw = nullptr;
    if (heif_image_create(source.width, source.height, heif_colorspace_RGB,
                          alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &raw)
            .code != heif_error_Ok)
        throw HeicGeneratorError::fileWriteFailed();
    std::unique_ptr<heif_image, ImageDeleter> image(raw);
    if (heif_image_add_plane(image.get(), heif_channel_interleaved, source.width, source.height, 8)
            .code != heif_error_Ok)
        throw HeicGeneratorError::fileWriteFailed();
    int stride = 0;
    std::uint8_t* plane = heif_image_get_plane(image.get(), heif_channel_interleaved, &stride);
    if (!plane)
        throw HeicGeneratorError::fileWriteFailed();
    for (int y = 0; y < source.height; ++y) {
        const std::uint8_t* from = source.pixel(0, y);
        std::uint8_t* to = plane + std::size_t(y) * stride;
        if (alpha) {
            std::memcpy(to, from, source.rowBytes());
            continue;
        }
        for (int x = 0; x < source.width; ++x, from += 4, to += 3) {
            to[0] = from[0];
            to[1] = from[1];
            to[2] = from[2];
        }
    }
    return image;
}

} // namespace

void HeicWriter::ContextDeleter::operator()(heif_context* context) const {
    heif_context_free(context);
}
void HeicWriter::EncoderDeleter::operator()(heif_encoder* encoder) const {
    heif_encoder_release(encoder);
}

HeicWriter::HeicWriter(std::filesystem::path output) : output_(std::move(output)) {
    std::error_code error;
    const auto folder =
        output_.parent_path().empty() ? std::filesystem::path(".") : output_.parent_path();
    if (!std::filesystem::is_directory(folder, error) ||
        std::filesystem::is_directory(output_, error))
        throw HeicGeneratorError::heicCreationFailed();
    context_.reset(heif_context_alloc());
    if (!context_)
        throw HeicGeneratorError::heicCreationFailed();
    heif_encoder* encoder = nullptr;
    if (heif_context_get_encoder_for_format(context_.get(), heif_compression_HEVC, &encoder).code !=
            heif_error_Ok ||
        !encoder)
        throw HeicGeneratorError::heicCreationFailed();
    encoder_.reset(encoder);
}

HeicWriter::~HeicWriter() = default;

void HeicWriter::addImage(const platform::PixelImage& image, const std::string& xmp) {
    // Like the platform writer, whose encoding happens when the file is written, a frame that
    // cannot be encoded is a failure to write the file.
    if (image.empty())
        throw HeicGeneratorError::fileWriteFailed();
    auto heifImage = makeHeifImage(image);
    heif_image_handle* rawHandle = nullptr;
    // Default options: no thumbnail, no orientation, no extra colour boxes.
    if (heif_context_encode_image(context_.get(), heifImage.get(), encoder_.get(), nullptr,
                                  &rawHandle)
            .code != heif_error_Ok)
        throw HeicGeneratorError::fileWriteFailed();
    std::unique_ptr<heif_image_handle, HandleDeleter> handle(rawHandle);
    if (!xmp.empty()) {
        // The uncompressed call on purpose: readers scan the packet for the attribute text.
        if (heif_context_add_XMP_metadata(context_.get(), handle.get(), xmp.data(),
                                          static_cast<int>(xmp.size()))
                .code != heif_error_Ok)
            throw HeicGeneratorError::metadataCreationFailed();
    }
    ++count_;
}

void HeicWriter::finalize(std::stop_token stop) {
    platform::throwIfCancelled(stop);
    if (count_ == 0)
        throw HeicGeneratorError::fileWriteFailed();
    auto partial = output_;
    partial += ".partial-" + platform::Uuid::generate().toString();
    if (heif_context_write_to_file(context_.get(), partial.c_str()).code != heif_error_Ok) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw HeicGeneratorError::fileWriteFailed();
    }
    std::error_code error;
    std::filesystem::rename(partial, output_, error);
    if (error) {
        std::filesystem::remove(partial, error);
        throw HeicGeneratorError::fileWriteFailed();
    }
}

} // namespace lumivesper::exporting
