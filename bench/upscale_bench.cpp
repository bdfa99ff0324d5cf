// Per-tile time of the upscaling engines on one model and one tile, side by side in one process:
// OpenCV DNN on the CPU (the reference), oneDNN with direct convolutions, oneDNN with Winograd,
// and, with --opencl, OpenCV DNN on the default OpenCL device. Runs are interleaved so that load
// from other processes falls on every engine alike; prints each engine's median, its speed-up
// over OpenCV and its largest difference from OpenCV's output in 8-bit levels. Then estimates the
// upscaling time of a 12-frame 1024x576 -> 8K export (two 4x passes) from the tile count, and
// with --export-frames N runs such an export of N frames through the real generator and upscaler
// (on the engine an export chooses), to set the estimate beside what it took.
//
//   upscale_bench [--opencl] [--skip-opencv] [--repetitions N] [--export-frames N] [MODEL.onnx]
//   (default: the installed model, 3 repetitions, no export)

#include "document/wallpaper_image.h"
#include "export/export_options.h"
#include "export/heic_generator.h"
#include "export/upscale/dnnl_tile_network.h"
#include "export/upscale/model_location.h"
#include "export/upscale/onnx_model.h"
#include "export/upscale/onnx_upscale_tool.h"
#include "export/upscale/opencv_tile_network.h"
#include "export/upscale/tile_upscaler.h"
#include "export/upscale/upscale_estimate.h"
#include "platform/image_io.h"
#include "textured_frame.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace lumivesper::upscale;
using lumivesper::platform::PixelImage;
namespace fs = std::filesystem;

struct Engine {
    Engine(std::string engineName, std::unique_ptr<TileNetwork> engineNetwork)
        : name(std::move(engineName)), network(std::move(engineNetwork)) {}

    std::string name;
    std::unique_ptr<TileNetwork> network;
    std::vector<double> seconds;
    PixelImage output;
};

std::vector<char> readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

int largestDifference(const PixelImage& a, const PixelImage& b) {
    if (a.rgba.size() != b.rgba.size())
        return 256;
    int largest = 0;
    for (std::size_t i = 0; i < a.rgba.size(); ++i)
        largest = std::max(largest, std::abs(int(a.rgba[i]) - int(b.rgba[i])));
    return largest;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Tiles of one 4x pass over a width x height image, edge repeats included, as the tiler runs them.
std::size_t tilesOf(int width, int height) {
    return tileOrigins(width, height).size();
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// An export of `frames` textured 1024x576 frames to an 8K canvas with upscaling on, as the window
// runs it by default: the tool's first tile is timed alone (what an estimate without an earlier
// measurement rests on), then the whole export, with the time until the last frame is prepared.
void runExport(const fs::path& modelPath, int frames, double benchTileSeconds) {
    const fs::path folder = fs::temp_directory_path() / "lumivesper-upscale-bench";
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::vector<lumivesper::document::WallpaperImage> images;
    for (int i = 0; i < frames; ++i) {
        const auto rgb = lumivesper::bench::makeFrame(1024, 576, i, std::max(frames, 2));
        PixelImage pixels(1024, 576);
        for (std::size_t p = 0; p < std::size_t(1024) * 576; ++p) {
            std::copy_n(rgb.begin() + p * 3, 3, pixels.rgba.begin() + p * 4);
            pixels.rgba[p * 4 + 3] = 255;
        }
        lumivesper::document::WallpaperImage image;
        image.fileName = "frame" + std::to_string(i) + ".png";
        image.sourcePath = folder / image.fileName;
        image.altitude = -10.0 + 60.0 * i / std::max(frames - 1, 1);
        image.azimuth = 90.0 + 180.0 * i / std::max(frames - 1, 1);
        lumivesper::platform::writePng(pixels, *image.sourcePath);
        images.push_back(image);
    }

    lumivesper::exporting::HeicExportOptions options; // 8K, upscaling on, auto
    std::vector<PlanSize> sizes(images.size(), PlanSize{1024, 576});
    const UpscaleWorkload workload = upscaleWorkload(
        sizes, PlanSize{7680, 4320}, options.upscaleStrategy, {OnnxUpscaleTool::scaleFactor});

    const auto made = std::chrono::steady_clock::now();
    auto tool = std::make_shared<OnnxUpscaleTool>(modelPath);
    std::printf("\n%d-frame 1024x576 -> 8K export with upscaling (%s), %zu tiles; tool made in "
                "%.1f s\n",
                frames, tool->engineDescription().c_str(), workload.tiles, secondsSince(made));
    const double firstTile = tool->measureTileSeconds();
    std::printf("  one tile timed alone before the export: %.1f s\n", firstTile);
    std::printf("  estimate from it:       %s\n", upscaleEstimateText(workload, firstTile).c_str());
    std::printf("  estimate from the bench's median: %s\n",
                upscaleEstimateText(workload, benchTileSeconds).c_str());
    std::fflush(stdout);

    const auto config = lumivesper::exporting::makePreprocessConfig(options, tool);
    const auto start = std::chrono::steady_clock::now();
    double prepared = 0, firstPass = -1, lastTile = 0;
    std::size_t tilesSeen = 0;
    lumivesper::exporting::HeicGenerator().generate(
        images, folder / "out.heic", lumivesper::document::WallpaperMode::time, config,
        [&](int, int, const std::string& message) {
            const double now = secondsSince(start);
            if (message.rfind("Upscaling frame", 0) == 0 && firstPass < 0)
                firstPass = now;
            if (message.find(": tile ") != std::string::npos) {
                lastTile = now;
                if (++tilesSeen % 10 == 0) {
                    std::printf("  %6.0f s  %s\n", now, message.c_str());
                    std::fflush(stdout);
                }
            }
            if (message.rfind("Preprocessed frame", 0) == 0)
                prepared = now;
        });
    const double total = secondsSince(start);
    const double upscaling = lastTile - firstPass;
    std::printf("  export took %.0f s (%s); frames prepared after %.0f s\n", total,
                formatDuration(total).c_str(), prepared);
    std::printf("  upscaling (first pass to last tile): %.0f s (%s) for %zu tiles, %.1f s a "
                "tile\n",
                upscaling, formatDuration(upscaling).c_str(), tilesSeen,
                tilesSeen ? upscaling / static_cast<double>(tilesSeen) : 0.0);
    fs::remove_all(folder);
}

} // namespace

int main(int argc, char** argv) {
    bool openCl = false, skipOpenCv = false;
    int repetitions = 3;
    int exportFrames = 0;
    std::optional<fs::path> modelPath;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--opencl")
            openCl = true;
        else if (argument == "--skip-opencv")
            skipOpenCv = true;
        else if (argument == "--repetitions" && i + 1 < argc)
            repetitions = std::max(1, std::atoi(argv[++i]));
        else if (argument == "--export-frames" && i + 1 < argc)
            exportFrames = std::max(0, std::atoi(argv[++i]));
        else
            modelPath = argument;
    }
    if (!modelPath)
        modelPath = findUpscaleModel();
    if (!modelPath) {
        std::fprintf(stderr, "no model: pass MODEL.onnx or run scripts/setup\n");
        return 2;
    }
    const std::vector<char> bytes = readFile(*modelPath);
    const OnnxModel model = parseOnnxModel(bytes);
    // The contract is 512; smaller fixed tiles make quick runs for a look at the engines.
    const int side = model.inputShape.size() == 4 && model.inputShape[3] > 0
                         ? static_cast<int>(model.inputShape[3])
                         : 512;
    std::printf("model %s, %dx%d tile, %u hardware threads\n", modelPath->c_str(), side, side,
                std::thread::hardware_concurrency());

    std::vector<Engine> engines;
    if (!skipOpenCv)
        engines.emplace_back("OpenCV DNN, CPU", std::make_unique<OpenCvTileNetwork>(bytes, false));
    engines.emplace_back("oneDNN, direct",
                         std::make_unique<DnnlTileNetwork>(model, side, DnnlOptions{false}));
    auto winograd = std::make_unique<DnnlTileNetwork>(model, side, DnnlOptions{true});
    std::printf("oneDNN Winograd: %d of %d convolutions\n", winograd->winogradConvolutions(),
                winograd->convolutions());
    engines.emplace_back("oneDNN, Winograd", std::move(winograd));
    if (openCl) {
        if (auto device = openClDevice(false))
            engines.emplace_back("OpenCV DNN, OpenCL " + *device,
                                 std::make_unique<OpenCvTileNetwork>(bytes, true));
        else
            std::printf("no OpenCL device\n");
    }

    PixelImage tile(side, side);
    const auto rgb = lumivesper::bench::makeFrame(side, side, 3, 12);
    for (std::size_t i = 0; i < std::size_t(side) * side; ++i) {
        std::copy_n(rgb.begin() + i * 3, 3, tile.rgba.begin() + i * 4);
        tile.rgba[i * 4 + 3] = 255;
    }
    for (Engine& engine : engines) // the first run allocates and compiles kernels
        engine.output = engine.network->run(tile);
    for (int round = 0; round < repetitions; ++round) {
        for (Engine& engine : engines) {
            const auto start = std::chrono::steady_clock::now();
            engine.output = engine.network->run(tile);
            engine.seconds.push_back(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
    }

    const double reference = skipOpenCv ? 0 : median(engines.front().seconds);
    std::printf("\n%-40s %10s %9s %11s\n", "engine (one tile)", "median s", "speed-up", "max diff");
    for (const Engine& engine : engines) {
        const double seconds = median(engine.seconds);
        std::printf("%-40s %10.2f %8.2fx %11d\n", engine.name.c_str(), seconds,
                    reference > 0 ? reference / seconds : 0.0,
                    skipOpenCv ? -1 : largestDifference(engine.output, engines.front().output));
    }

    const std::size_t perFrame = tilesOf(1024, 576) + tilesOf(4096, 2304);
    std::printf("\n12-frame 1024x576 -> 8K export: %zu + %zu tiles per frame, %zu in all\n",
                tilesOf(1024, 576), tilesOf(4096, 2304), 12 * perFrame);
    for (const Engine& engine : engines)
        std::printf("  upscaling with %-32s ~%.0f min\n", engine.name.c_str(),
                    12 * perFrame * median(engine.seconds) / 60);

    if (exportFrames > 0) {
        // The engines' networks hold gigabytes; the export makes its own.
        const double winogradSeconds = median(engines.back().seconds);
        engines.clear();
        runExport(*modelPath, exportFrames, winogradSeconds);
    }
    return 0;
}
