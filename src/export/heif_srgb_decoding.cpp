#include "export/heif_srgb_decoding.h"

#include "export/heif_owners.h"
#include "export/wallpaper_reader.h"

#include <cstring>
#include <lcms2.h>
#include <memory>
#include <vector>

namespace lumivesper::exporting {

namespace {

struct OptionsDeleter {
    void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
};
struct NclxDeleter {
    void operator()(heif_color_profile_nclx* nclx) const { heif_nclx_color_profile_free(nclx); }
};
struct ProfileDeleter {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
struct TransformDeleter {
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
struct CurveDeleter {
    void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
using ProfilePtr = std::unique_ptr<void, ProfileDeleter>;

std::vector<std::uint8_t> iccBytes(const heif_image_handle* handle) {
    const auto type = heif_image_handle_get_color_profile_type(handle);
    if (type != heif_color_profile_type_prof && type != heif_color_profile_type_rICC)
        return {};
    std::vector<std::uint8_t> bytes(heif_image_handle_get_raw_color_profile_size(handle));
    if (bytes.empty() ||
        heif_image_handle_get_raw_color_profile(handle, bytes.data()).code != heif_error_Ok)
        return {};
    return bytes;
}

std::unique_ptr<heif_color_profile_nclx, NclxDeleter> nclxOf(const heif_image_handle* handle) {
    heif_color_profile_nclx* nclx = nullptr;
    if (heif_image_handle_get_nclx_color_profile(handle, &nclx).code != heif_error_Ok)
        return nullptr;
    return std::unique_ptr<heif_color_profile_nclx, NclxDeleter>(nclx);
}

// An RGB profile with the sRGB tone curve for the wide-gamut primaries that phones and other
// systems write as nclx; none for sRGB's own primaries and for those we do not know.
ProfilePtr profileFromPrimaries(int primaries) {
    cmsCIExyYTRIPLE triple;
    if (primaries == 12) // Display P3
        triple = {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}};
    else if (primaries == 9) // BT.2020
        triple = {{0.708, 0.292, 1}, {0.170, 0.797, 1}, {0.131, 0.046, 1}};
    else
        return nullptr;
    const cmsCIExyY white{0.3127, 0.3290, 1};
    const double srgbCurve[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    std::unique_ptr<cmsToneCurve, CurveDeleter> curve(
        cmsBuildParametricToneCurve(nullptr, 4, srgbCurve));
    cmsToneCurve* curves[3] = {curve.get(), curve.get(), curve.get()};
    return ProfilePtr(cmsCreateRGBProfile(&white, &triple, curves));
}

// The profile the pixels are in, or none when they are sRGB already or the profile is unusable.
ProfilePtr sourceProfile(const heif_image_handle* handle) {
    if (const auto icc = iccBytes(handle); !icc.empty()) {
        ProfilePtr profile(
            cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size())));
        if (profile && cmsGetColorSpace(profile.get()) == cmsSigRgbData)
            return profile;
        return nullptr;
    }
    if (const auto nclx = nclxOf(handle))
        return profileFromPrimaries(nclx->color_primaries);
    return nullptr;
}

[[noreturn]] void fail(const std::string& message) {
    throw WallpaperReadError(message);
}

} // namespace

platform::PixelImage decodeToSrgb(const heif_image_handle* handle) {
    const int depth = heif_image_handle_get_luma_bits_per_pixel(handle);
    const bool deep = depth > 8;
    std::unique_ptr<heif_decoding_options, OptionsDeleter> options(heif_decoding_options_alloc());
    options->convert_hdr_to_8bit = 0;
    heif_image* decoded = nullptr;
    const heif_error error = heif_decode_image(
        handle, &decoded, heif_colorspace_RGB,
        deep ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RGBA, options.get());
    if (error.code != heif_error_Ok)
        fail(std::string("Cannot decode an image of the file: ") +
             (error.message ? error.message : "unknown error"));
    HeifImagePtr image(decoded);

    int stride = 0;
    const std::uint8_t* plane =
        heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    const int width = heif_image_get_width(image.get(), heif_channel_interleaved);
    const int height = heif_image_get_height(image.get(), heif_channel_interleaved);
    if (!plane || width <= 0 || height <= 0)
        fail("Cannot decode an image of the file: no pixels");
    const int bits = heif_image_get_bits_per_pixel_range(image.get(), heif_channel_interleaved);
    const std::uint32_t maximum = deep ? (1u << bits) - 1 : 255;

    // Deep samples are widened to 16 bits, so that the colour conversion sees all of them.
    std::vector<std::uint16_t> wide;
    if (deep) {
        wide.resize(std::size_t(width) * height * 4);
        for (int y = 0; y < height; ++y) {
            const std::uint8_t* row = plane + std::size_t(y) * stride;
            for (int i = 0; i < width * 4; ++i) {
                const std::uint32_t value = row[2 * i] | (row[2 * i + 1] << 8);
                wide[std::size_t(y) * width * 4 + i] = static_cast<std::uint16_t>(
                    (std::min(value, maximum) * 65535u + maximum / 2) / maximum);
            }
        }
    }

    platform::PixelImage result(width, height);
    if (const auto profile = sourceProfile(handle)) {
        const ProfilePtr srgb(cmsCreate_sRGBProfile());
        std::unique_ptr<void, TransformDeleter> transform(
            cmsCreateTransform(profile.get(), deep ? TYPE_RGBA_16 : TYPE_RGBA_8, srgb.get(),
                               TYPE_RGBA_8, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_COPY_ALPHA));
        if (transform) {
            for (int y = 0; y < height; ++y) {
                const void* row =
                    deep ? static_cast<const void*>(wide.data() + std::size_t(y) * width * 4)
                         : static_cast<const void*>(plane + std::size_t(y) * stride);
                cmsDoTransform(transform.get(), row, result.pixel(0, y),
                               static_cast<cmsUInt32Number>(width));
            }
            return result;
        }
    }
    for (int y = 0; y < height; ++y) {
        if (!deep) {
            std::memcpy(result.pixel(0, y), plane + std::size_t(y) * stride, result.rowBytes());
            continue;
        }
        const std::uint16_t* row = wide.data() + std::size_t(y) * width * 4;
        for (int i = 0; i < width * 4; ++i)
            result.pixel(0, y)[i] = static_cast<std::uint8_t>((row[i] * 255u + 32767u) / 65535u);
    }
    return result;
}

std::string describeColourProfile(const heif_image_handle* handle) {
    if (const auto icc = iccBytes(handle); !icc.empty()) {
        ProfilePtr profile(
            cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size())));
        if (!profile)
            return "ICC: (unreadable profile)";
        char text[256] = {};
        cmsGetProfileInfoASCII(profile.get(), cmsInfoDescription, "en", "US", text, sizeof text);
        return std::string("ICC: ") + text;
    }
    if (const auto nclx = nclxOf(handle))
        return "nclx: primaries " + std::to_string(nclx->color_primaries) + ", transfer " +
               std::to_string(nclx->transfer_characteristics) + ", matrix " +
               std::to_string(nclx->matrix_coefficients);
    return {};
}

} // namespace lumivesper::exporting
