// Exports N textured UHD frames through HeicGenerator and, in the same run, encodes the same PNGs
// with heif-enc at the same quality, then prints both wall times and their ratio.
//
//   export_bench [FRAMES] [WIDTH] [HEIGHT] [WORK_FOLDER]     (defaults: 4 3840 2160 a temp folder)

#include "export/heic_generator.h"
#include "textured_frame.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <libheif/heif.h>
#include <memory>
#include <random>
#include <string>
#include <vector>
#include <vips/vips.h>

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void writeRgbPng(const std::vector<std::uint8_t>& rgb, int width, int height,
                 const fs::path& path) {
    VipsImage* image =
        vips_image_new_from_memory(rgb.data(), rgb.size(), width, height, 3, VIPS_FORMAT_UCHAR);
    if (!image || vips_pngsave(image, path.c_str(), "compression", 1, nullptr) != 0) {
        std::fprintf(stderr, "cannot write %s: %s\n", path.c_str(), vips_error_buffer());
        std::exit(1);
    }
    g_object_unref(image);
}

int defaultQuality() {
    heif_context* context = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    int quality = -1;
    if (heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder).code ==
        heif_error_Ok) {
        heif_encoder_get_parameter_integer(encoder, "quality", &quality);
        heif_encoder_release(encoder);
    }
    heif_context_free(context);
    return quality;
}

} // namespace

int main(int argc, char** argv) {
    const int frames = argc > 1 ? std::atoi(argv[1]) : 4;
    const int width = argc > 2 ? std::atoi(argv[2]) : 3840;
    const int height = argc > 3 ? std::atoi(argv[3]) : 2160;
    const fs::path folder =
        argc > 4 ? fs::path(argv[4]) : fs::temp_directory_path() / "lumivesper-export-bench";
    if (frames < 1 || width < 16 || height < 16) {
        std::fprintf(stderr, "usage: export_bench [FRAMES] [WIDTH] [HEIGHT] [WORK_FOLDER]\n");
        return 2;
    }
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    fs::create_directories(folder);

    std::printf("Making %d textured frames of %dx%d in %s\n", frames, width, height,
                folder.c_str());
    std::vector<lumivesper::document::WallpaperImage> images;
    std::string pngList;
    for (int n = 0; n < frames; ++n) {
        const auto path = folder / ("frame_" + std::to_string(n) + ".png");
        writeRgbPng(lumivesper::bench::makeFrame(width, height, n, frames), width, height, path);
        lumivesper::document::WallpaperImage image;
        image.fileName = path.filename().string();
        image.sourcePath = path;
        image.altitude = -10.0 + 70.0 * n / frames;
        image.azimuth = 90.0 + 180.0 * n / frames;
        images.push_back(image);
        pngList += " '" + path.string() + "'";
    }

    const int quality = defaultQuality();
    std::printf("Encoder default quality: %d\n", quality);

    const auto ours = folder / "ours.heic";
    auto start = Clock::now();
    lumivesper::exporting::HeicGenerator().generate(
        images, ours, lumivesper::document::WallpaperMode::time, std::nullopt, nullptr);
    const double oursSeconds = secondsSince(start);

    const auto reference = folder / "heif-enc.heic";
    const std::string command = "heif-enc -q " + std::to_string(quality) + " -o '" +
                                reference.string() + "'" + pngList + " > /dev/null";
    start = Clock::now();
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "heif-enc failed: %s\n", command.c_str());
        return 1;
    }
    const double referenceSeconds = secondsSince(start);

    std::printf("HeicGenerator: %.2f s (%.2f s/frame), %ju bytes\n", oursSeconds,
                oursSeconds / frames, static_cast<std::uintmax_t>(fs::file_size(ours)));
    std::printf("heif-enc:      %.2f s (%.2f s/frame), %ju bytes\n", referenceSeconds,
                referenceSeconds / frames, static_cast<std::uintmax_t>(fs::file_size(reference)));
    std::printf("Ratio (ours / heif-enc): %.3f (target <= 1.10)\n", oursSeconds / referenceSeconds);
    return 0;
}
