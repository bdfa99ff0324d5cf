// Exports FRAMES frames made from 1024x576 sources onto the 8K canvas, as the application does,
// and prints the wall time of each stage and the process's peak resident memory. Run it once per
// configuration: the peak is the process's own.
//
//   preprocess_bench [--upscale MODEL.onnx] [FRAMES] [WORK_FOLDER]      (default 12 frames)

#include "export/export_options.h"
#include "export/heic_generator.h"
#include "export/upscale/onnx_upscale_tool.h"
#include "textured_frame.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vips/vips.h>

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

double seconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

double peakRssMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;
}

} // namespace

int main(int argc, char** argv) {
    std::optional<fs::path> model;
    std::vector<std::string> rest;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--upscale" && i + 1 < argc)
            model = argv[++i];
        else
            rest.push_back(argv[i]);
    }
    const int frames = rest.size() > 0 ? std::atoi(rest[0].c_str()) : 12;
    const fs::path folder =
        rest.size() > 1 ? fs::path(rest[1]) : fs::temp_directory_path() / "lumivesper-8k-bench";
    if (frames < 1 || VIPS_INIT(argv[0]) != 0)
        return 2;
    fs::create_directories(folder);

    constexpr int width = 1024, height = 576;
    std::vector<lumivesper::document::WallpaperImage> images;
    for (int n = 0; n < frames; ++n) {
        const auto path = folder / ("source_" + std::to_string(n) + ".png");
        const auto rgb = lumivesper::bench::makeFrame(width, height, n, frames);
        VipsImage* image =
            vips_image_new_from_memory(rgb.data(), rgb.size(), width, height, 3, VIPS_FORMAT_UCHAR);
        if (!image || vips_pngsave(image, path.c_str(), nullptr) != 0)
            return 1;
        g_object_unref(image);
        lumivesper::document::WallpaperImage record;
        record.fileName = path.filename().string();
        record.sourcePath = path;
        record.altitude = -10.0 + 70.0 * n / frames;
        record.azimuth = 90.0 + 180.0 * n / frames;
        images.push_back(record);
    }
    std::printf("Baseline peak RSS after making %d sources: %.0f MB\n", frames, peakRssMegabytes());

    lumivesper::exporting::HeicExportOptions options; // 8K canvas
    options.upscaleEnabled = model.has_value();
    options.upscaleStrategy = lumivesper::upscale::HeicUpscaleStrategy::scale4;
    std::shared_ptr<lumivesper::upscale::ImageUpscalingTool> upscaler;
    if (model) {
        upscaler = std::make_shared<lumivesper::upscale::OnnxUpscaleTool>(*model);
        std::printf("Upscaling with %s (scale4)\n", model->c_str());
    }
    const auto config = lumivesper::exporting::makePreprocessConfig(options, upscaler);

    const auto start = Clock::now();
    std::optional<Clock::time_point> preprocessed; // the last frame was ready
    int lastPercent = -1;
    const auto progress = [&](int current, int total, const std::string& message) {
        if (message.starts_with("Preprocessed frame"))
            preprocessed = Clock::now();
        const int percent = total > 0 ? current * 100 / total : 0;
        if (percent / 10 != lastPercent / 10) {
            std::printf("  %5.1f s  %s  (peak %.0f MB)\n", seconds(start, Clock::now()),
                        message.c_str(), peakRssMegabytes());
            std::fflush(stdout);
            lastPercent = percent;
        }
    };
    lumivesper::exporting::HeicGenerator().generate(
        images, folder / "out.heic", lumivesper::document::WallpaperMode::time, config, progress);
    const auto end = Clock::now();
    const auto encodeStart = preprocessed.value_or(start);
    std::printf("Preprocessing (normalise%s, Lanczos to 7680x4320): %.1f s\n",
                model ? ", upscale" : "", seconds(start, encodeStart));
    std::printf("Encoding %d frames: %.1f s\n", frames, seconds(encodeStart, end));
    std::printf("Total: %.1f s\n", seconds(start, end));
    std::printf("Peak RSS: %.0f MB (target %s)\n", peakRssMegabytes(),
                model ? "<= 2500 MB with upscaling" : "<= 1500 MB without upscaling");
    return 0;
}
