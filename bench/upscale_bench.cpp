// Per-tile time of the upscaling engines on one model and one tile, side by side in one process:
// OpenCV DNN on the CPU (the reference), oneDNN with direct convolutions, oneDNN with Winograd,
// and, with --opencl, OpenCV DNN on the default OpenCL device. Runs are interleaved so that load
// from other processes falls on every engine alike; prints each engine's median, its speed-up
// over OpenCV and its largest difference from OpenCV's output in 8-bit levels. Then estimates the
// upscaling time of a 12-frame 1024x576 -> 8K export (two 4x passes) from the tile count.
//
//   upscale_bench [--opencl] [--skip-opencv] [--repetitions N] [MODEL.onnx]
//   (default: the installed model, 3 repetitions)

#include "export/upscale/dnnl_tile_network.h"
#include "export/upscale/model_location.h"
#include "export/upscale/onnx_model.h"
#include "export/upscale/opencv_tile_network.h"
#include "export/upscale/tile_upscaler.h"
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

} // namespace

int main(int argc, char** argv) {
    bool openCl = false, skipOpenCv = false;
    int repetitions = 3;
    std::optional<fs::path> modelPath;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--opencl")
            openCl = true;
        else if (argument == "--skip-opencv")
            skipOpenCv = true;
        else if (argument == "--repetitions" && i + 1 < argc)
            repetitions = std::max(1, std::atoi(argv[++i]));
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
    std::printf("\n%-40s %10s %9s %11s\n", "engine (one tile)", "median s", "speed-up",
                "max diff");
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
    return 0;
}
