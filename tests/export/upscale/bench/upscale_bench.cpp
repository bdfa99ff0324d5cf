// Timings for the tile upscaler, run by hand:
//   upscale_bench [MODEL.onnx] [repetitions] [all|overhead|networks=N]
// overhead: one 512 tile through the tool and through a bare cv::dnn::Net::forward on the same
//   model in the same run; prints the tool's overhead ratio.
// networks=N: three callers at once, each upscaling one 512x512 image (four tile runs), on a tool
//   with N networks; run one N per process to compare peak memory as well.
// An empty MODEL takes the generated SRVGGNet-like test model.
#include "export/upscale/compute_target.h"
#include "export/upscale/onnx_upscale_tool.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#include <random>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

using lumivesper::platform::PixelImage;
using namespace lumivesper::upscale;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

template <typename Work> double median(int repetitions, Work&& work) {
    std::vector<double> times;
    for (int i = 0; i < repetitions; ++i) {
        const auto start = Clock::now();
        work();
        times.push_back(secondsSince(start));
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

PixelImage noiseImage(int side) {
    std::mt19937 random(7);
    PixelImage image(side, side);
    for (auto& byte : image.rgba)
        byte = static_cast<std::uint8_t>(random());
    return image;
}

double concurrentCallers(const OnnxUpscaleTool& tool, const PixelImage& image, int callers) {
    const auto start = Clock::now();
    std::vector<std::future<PixelImage>> results;
    for (int i = 0; i < callers; ++i)
        results.push_back(std::async(std::launch::async, [&] { return tool.upscaleImage(image); }));
    for (auto& result : results)
        result.get();
    return secondsSince(start);
}

long peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

void measureOverhead(const std::string& model, int repetitions) {
    const PixelImage tile = noiseImage(512);
    cv::dnn::Net bare = cv::dnn::readNetFromONNX(model);
    bare.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    bare.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    const int shape[] = {1, 3, 512, 512};
    cv::Mat blob(4, shape, CV_32F);
    cv::randu(blob, 0.0f, 1.0f);
    auto bareForward = [&] {
        bare.setInput(blob);
        cv::Mat out = bare.forward();
    };
    const OnnxUpscaleTool tool(model, ComputeTarget::cpu);
    auto toolTile = [&] { tool.upscaleTile(tile); };

    bareForward(); // first runs allocate
    toolTile();
    // Interleaved, so that load from elsewhere on the machine falls on both alike.
    std::vector<double> bareTimes, toolTimes;
    for (int i = 0; i < repetitions; ++i) {
        bareTimes.push_back(median(1, bareForward));
        toolTimes.push_back(median(1, toolTile));
    }
    std::sort(bareTimes.begin(), bareTimes.end());
    std::sort(toolTimes.begin(), toolTimes.end());
    const double bareMedian = bareTimes[bareTimes.size() / 2];
    const double toolMedian = toolTimes[toolTimes.size() / 2];
    std::printf("one 512 tile: bare forward %.3f s, tool %.3f s, overhead ratio %.3f\n", bareMedian,
                toolMedian, toolMedian / bareMedian);
}

void measureCallers(const std::string& model, int repetitions, std::size_t networks) {
    const PixelImage image = noiseImage(512); // four tile runs per caller
    const OnnxUpscaleTool pooled(model, ComputeTarget::cpu, networks);
    concurrentCallers(pooled, image, 3); // make the networks and their buffers
    const double seconds =
        median(std::max(1, repetitions / 2), [&] { concurrentCallers(pooled, image, 3); });
    std::printf("3 callers x 4 tiles, %zu network(s): %.2f s, %.3f s per tile, peak %ld MB\n",
                networks, seconds, seconds / 12, peakMegabytes());
}

} // namespace

int main(int argc, char** argv) {
    const std::string model =
        argc > 1 && *argv[1] ? argv[1] : std::string(UPSCALE_TEST_MODELS) + "/srvgg16.onnx";
    const int repetitions = std::max(1, argc > 2 ? std::atoi(argv[2]) : 5);
    const std::string mode = argc > 3 ? argv[3] : "all";
    std::printf("model %s, OpenCV threads %d\n", model.c_str(), cv::getNumThreads());
    std::fflush(stdout);

    if (mode == "all" || mode == "overhead")
        measureOverhead(model, repetitions);
    if (mode == "all") {
        measureCallers(model, repetitions, 3);
        measureCallers(model, repetitions, 1);
    } else if (mode.rfind("networks=", 0) == 0) {
        measureCallers(model, repetitions, static_cast<std::size_t>(std::atoi(mode.c_str() + 9)));
    }
    return 0;
}
