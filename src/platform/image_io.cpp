#include "platform/image_io.h"

#include <cstring>
#include <mutex>
#include <vips/vips.h>

namespace lumivesper::platform {

namespace {

struct GObjectUnref {
    void operator()(VipsImage* image) const { g_object_unref(image); }
};
using VipsImagePtr = std::unique_ptr<VipsImage, GObjectUnref>;

void startVips() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (VIPS_INIT("lumivesper") != 0)
            throw ImageIoError("Could not start the image library");
        vips_cache_set_max(0); // every file is read once; caching only holds memory
    });
}

[[noreturn]] void failWithVipsError(const std::string& what) {
    std::string detail = vips_error_buffer();
    vips_error_clear();
    while (!detail.empty() && (detail.back() == '\n' || detail.back() == ' '))
        detail.pop_back();
    throw ImageIoError(detail.empty() ? what : what + ": " + detail);
}

// Takes ownership of the result of one vips operation, or throws.
// `result` by reference: it must be read after the operation in the first argument has run.
VipsImagePtr checked(int status, VipsImage*& result, const std::string& what) {
    if (status != 0 || result == nullptr)
        failWithVipsError(what);
    return VipsImagePtr(result);
}

VipsImagePtr toSrgbRgba(VipsImagePtr image, const std::string& what) {
    VipsImage* out = nullptr;
    if (vips_image_get_typeof(image.get(), VIPS_META_ICC_NAME) != 0) {
        // The embedded profile is the truth about the pixels; fall back to the colour space when
        // the profile itself is unusable.
        if (vips_icc_transform(image.get(), &out, "srgb", "embedded", TRUE, "depth", 8, nullptr) ==
            0) {
            image = VipsImagePtr(out);
        } else {
            vips_error_clear();
        }
    }
    if (vips_image_guess_interpretation(image.get()) != VIPS_INTERPRETATION_sRGB ||
        image->BandFmt != VIPS_FORMAT_UCHAR) {
        image = checked(vips_colourspace(image.get(), &out, VIPS_INTERPRETATION_sRGB, nullptr), out,
                        what);
    }
    if (image->Bands == 3) {
        image = checked(vips_bandjoin_const1(image.get(), &out, 255.0, nullptr), out, what);
    } else if (image->Bands > 4) {
        image = checked(vips_extract_band(image.get(), &out, 0, "n", 4, nullptr), out, what);
    }
    if (image->BandFmt != VIPS_FORMAT_UCHAR)
        image = checked(vips_cast_uchar(image.get(), &out, nullptr), out, what);
    return image;
}

PixelImage toPixelImage(VipsImagePtr image, const std::string& what) {
    image = toSrgbRgba(std::move(image), what);
    if (image->Bands != 4)
        throw ImageIoError(what + ": unsupported band layout");
    size_t size = 0;
    void* memory = vips_image_write_to_memory(image.get(), &size);
    if (!memory)
        failWithVipsError(what);
    PixelImage pixels(vips_image_get_width(image.get()), vips_image_get_height(image.get()));
    if (size != pixels.rgba.size()) {
        g_free(memory);
        throw ImageIoError(what + ": unexpected pixel buffer size");
    }
    std::memcpy(pixels.rgba.data(), memory, size);
    g_free(memory);
    return pixels;
}

VipsImagePtr openUpright(const std::filesystem::path& path, const std::string& what) {
    startVips();
    VipsImage* opened =
        vips_image_new_from_file(path.c_str(), "access", VIPS_ACCESS_SEQUENTIAL, nullptr);
    if (!opened)
        failWithVipsError(what);
    VipsImagePtr image(opened);
    VipsImage* out = nullptr;
    return checked(vips_autorot(image.get(), &out, nullptr), out, what);
}

// A vips view of `image`'s pixels, without a copy: `image` must outlive it.
VipsImagePtr wrapPixels(const PixelImage& image, const std::string& what) {
    VipsImage* wrapped = vips_image_new_from_memory(
        image.rgba.data(), image.rgba.size(), image.width, image.height, 4, VIPS_FORMAT_UCHAR);
    if (!wrapped)
        failWithVipsError(what);
    VipsImagePtr source(wrapped);
    source->Type = VIPS_INTERPRETATION_sRGB;
    return source;
}

} // namespace

PixelImage loadImage(const std::filesystem::path& path) {
    const std::string what = "Cannot decode " + path.string();
    return toPixelImage(openUpright(path, what), what);
}

PixelImage loadPreview(const std::filesystem::path& path, int maxSide) {
    startVips();
    const std::string what = "Cannot decode " + path.string();
    VipsImage* out = nullptr;
    // vips_thumbnail applies the orientation itself and never enlarges with VIPS_SIZE_DOWN.
    auto image = checked(vips_thumbnail(path.c_str(), &out, maxSide, "height", maxSide, "size",
                                        VIPS_SIZE_DOWN, nullptr),
                         out, what);
    return toPixelImage(std::move(image), what);
}

PixelImage loadPreview(std::string_view encoded, int maxSide) {
    startVips();
    const std::string what = "Cannot decode the image";
    if (encoded.empty())
        throw ImageIoError(what + ": no data");
    VipsImage* out = nullptr;
    auto image =
        checked(vips_thumbnail_buffer(const_cast<char*>(encoded.data()), encoded.size(), &out,
                                      maxSide, "height", maxSide, "size", VIPS_SIZE_DOWN, nullptr),
                out, what);
    return toPixelImage(std::move(image), what);
}

ImageSize readImageSize(const std::filesystem::path& path) {
    startVips();
    const std::string what = "Cannot read " + path.string();
    VipsImage* opened = vips_image_new_from_file(path.c_str(), nullptr);
    if (!opened)
        failWithVipsError(what);
    VipsImagePtr image(opened);
    ImageSize size{vips_image_get_width(image.get()), vips_image_get_height(image.get())};
    // Orientations 5 to 8 turn the image by a quarter.
    if (vips_image_get_orientation_swap(image.get()))
        std::swap(size.width, size.height);
    return size;
}

PixelImage shrinkLanczos(const PixelImage& image, int width, int height) {
    startVips();
    const std::string what = "Cannot resize an image";
    if (image.empty() || width <= 0 || height <= 0 || width > image.width || height > image.height)
        throw ImageIoError(what + ": invalid size");
    const VipsImagePtr source = wrapPixels(image, what);
    VipsImage* out = nullptr;
    // One Lanczos pass over the whole reduction: no "gap", which would box-filter first and let
    // aliases through.
    auto reduced =
        checked(vips_reduce(source.get(), &out, double(image.width) / width,
                            double(image.height) / height, "kernel", VIPS_KERNEL_LANCZOS3, nullptr),
                out, what);
    if (vips_image_get_width(reduced.get()) != width ||
        vips_image_get_height(reduced.get()) != height)
        throw ImageIoError(what + ": unexpected result size");
    return toPixelImage(std::move(reduced), what);
}

bool decodesAsImage(std::string_view bytes) {
    startVips();
    if (bytes.empty())
        return false;
    VipsImage* opened = vips_image_new_from_buffer(bytes.data(), bytes.size(), "", "fail_on",
                                                   VIPS_FAIL_ON_TRUNCATED, nullptr);
    if (!opened) {
        vips_error_clear();
        return false;
    }
    VipsImagePtr image(opened);
    double mean = 0;
    if (vips_avg(image.get(), &mean, nullptr) != 0) {
        vips_error_clear();
        return false;
    }
    return true;
}

void writePng(const PixelImage& image, const std::filesystem::path& path) {
    startVips();
    const std::string what = "Cannot write " + path.string();
    if (image.empty() || image.rgba.size() != std::size_t(image.width) * image.height * 4)
        throw ImageIoError(what + ": empty or malformed image");
    const VipsImagePtr source = wrapPixels(image, what);
    if (vips_pngsave(source.get(), path.c_str(), "compression", 1, "filter",
                     VIPS_FOREIGN_PNG_FILTER_UP, nullptr) != 0)
        failWithVipsError(what);
}

} // namespace lumivesper::platform
