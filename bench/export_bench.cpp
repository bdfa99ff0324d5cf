// Exports N textured UHD frames through HeicGenerator and, in the same run, encodes the same PNGs
// with heif-enc at the same quality, then prints both wall times and their ratio.
//
//   export_bench [FRAMES] [WIDTH] [HEIGHT] [WORK_FOLDER]     (defaults: 4 3840 2160 a temp folder)

#include "export/heic_generator.h"

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

// Smooth value noise: a lattice of random values, bilinearly interpolated with a smoothstep.
class ValueNoise {
public:
    explicit ValueNoise(std::uint32_t seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
        for (auto& v : lattice_)
            v = uniform(random);
    }
    float at(float x, float y) const {
        const int xi = static_cast<int>(std::floor(x));
        const int yi = static_cast<int>(std::floor(y));
        const float fx = x - xi;
        const float fy = y - yi;
        const float sx = fx * fx * (3 - 2 * fx);
        const float sy = fy * fy * (3 - 2 * fy);
        const float a = value(xi, yi), b = value(xi + 1, yi);
        const float c = value(xi, yi + 1), d = value(xi + 1, yi + 1);
        return (a + (b - a) * sx) * (1 - sy) + (c + (d - c) * sx) * sy;
    }

private:
    float value(int x, int y) const { return lattice_[(x & 255) + 256 * (y & 255)]; }
    float lattice_[256 * 256];
};

// A landscape-like frame: sky gradient lit by a frame-dependent sun, ridges of fractal noise and
// fine grain, so the encoder sees what a photograph gives it rather than flat colour.
std::vector<std::uint8_t> makeFrame(int width, int height, int index, int count) {
    auto noise = std::make_unique<ValueNoise>(1234 + index);
    std::mt19937 grainRandom(99 + index);
    std::normal_distribution<float> grain(0.0f, 3.0f);
    const float daylight = 0.25f + 0.75f * std::sin(3.14159f * (index + 0.5f) / count);
    std::vector<std::uint8_t> rgb(std::size_t(width) * height * 3);
    for (int y = 0; y < height; ++y) {
        const float v = float(y) / height;
        for (int x = 0; x < width; ++x) {
            const float u = float(x) / width;
            float fractal = 0, amplitude = 0.5f, frequency = 4.0f;
            for (int octave = 0; octave < 5; ++octave) {
                fractal += amplitude * noise->at(u * frequency * 1.8f, v * frequency);
                amplitude *= 0.5f;
                frequency *= 2.0f;
            }
            const float ridge = 0.55f + 0.25f * fractal;
            float r, g, b;
            if (v < ridge) { // sky
                r = 60 + 150 * daylight * (1 - v) + 40 * fractal;
                g = 90 + 130 * daylight * (1 - v);
                b = 140 + 110 * daylight;
            } else { // land
                r = 40 + 90 * daylight * fractal;
                g = 60 + 120 * daylight * fractal;
                b = 30 + 50 * daylight * fractal;
            }
            std::uint8_t* pixel = rgb.data() + (std::size_t(y) * width + x) * 3;
            for (float channel : {r, g, b})
                *pixel++ =
                    static_cast<std::uint8_t>(std::clamp(channel + grain(grainRandom), 0.f, 255.f));
        }
    }
    return rgb;
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
        writeRgbPng(makeFrame(width, height, n, frames), width, height, path);
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
