#pragma once

// PSNR of a HEIF file against its original frames: every top-level image decoded by libheif, in
// item order, compared over all RGB samples of all frames.

#include "platform/pixel_image.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <libheif/heif.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::bench {

inline double heifPsnr(const std::filesystem::path& heic, int frames,
                       const std::function<platform::PixelImage(int)>& original) {
    heif_context* context = heif_context_alloc();
    if (heif_context_read_from_file(context, heic.c_str(), nullptr).code != heif_error_Ok)
        throw std::runtime_error("libheif cannot read " + heic.string());
    const int count = heif_context_get_number_of_top_level_images(context);
    if (count != frames)
        throw std::runtime_error(heic.string() + " holds " + std::to_string(count) + " images");
    std::vector<heif_item_id> ids(count);
    heif_context_get_list_of_top_level_image_IDs(context, ids.data(), count);
    std::sort(ids.begin(), ids.end());
    double squaredError = 0;
    std::uint64_t samples = 0;
    for (int n = 0; n < count; ++n) {
        heif_image_handle* handle = nullptr;
        heif_image* decoded = nullptr;
        heif_context_get_image_handle(context, ids[n], &handle);
        if (heif_decode_image(handle, &decoded, heif_colorspace_RGB, heif_chroma_interleaved_RGB,
                              nullptr)
                .code != heif_error_Ok)
            throw std::runtime_error("libheif cannot decode image " + std::to_string(n));
        int stride = 0;
        const std::uint8_t* plane =
            heif_image_get_plane_readonly(decoded, heif_channel_interleaved, &stride);
        const auto source = original(n);
        if (heif_image_get_width(decoded, heif_channel_interleaved) != source.width ||
            heif_image_get_height(decoded, heif_channel_interleaved) != source.height)
            throw std::runtime_error("image " + std::to_string(n) + " has another size");
        for (int y = 0; y < source.height; ++y) {
            const std::uint8_t* row = plane + std::size_t(y) * stride;
            for (int x = 0; x < source.width; ++x)
                for (int c = 0; c < 3; ++c) {
                    const double d = double(row[x * 3 + c]) - source.pixel(x, y)[c];
                    squaredError += d * d;
                }
        }
        samples += std::uint64_t(source.width) * source.height * 3;
        heif_image_release(decoded);
        heif_image_handle_release(handle);
    }
    heif_context_free(context);
    const double mse = squaredError / double(samples);
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

} // namespace lumivesper::bench
