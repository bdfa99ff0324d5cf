// Timings for the tile upscaler, run by hand: upscale_bench [MODEL.onnx] [repetitions]
// One 512 tile through the tool and through a bare cv::dnn::Net::forward on the same model,
// interleaved; prints both medians and the ratio. The default MODEL is the SRVGGNet-like one.
#include "export/upscale/onnx_upscale_tool.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <opencv2/dnn.hpp>
#include <string>

int main(int argc, char** argv) {
    const std::string model =
        argc > 1 && *argv[1] ? argv[1] : std::string(UPSCALE_TEST_MODELS) + "/srvgg16.onnx";
    const int repetitions = std::max(1, argc > 2 ? std::stoi(argv[2]) : 5);
    std::printf("model %s, OpenCV threads %d\n", model.c_str(), cv::getNumThreads());

    cv::dnn::Net bare = cv::dnn::readNetFromONNX(model);
    bare.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    const int shape[] = {1, 3, 512, 512};
    cv::Mat blob(4, shape, CV_32F);
    cv::randu(blob, 0.0f, 1.0f);
    const lumivesper::upscale::OnnxUpscaleTool tool(model, lumivesper::upscale::ComputeTarget::cpu);
    lumivesper::platform::PixelImage tile(512, 512);
    cv::Mat pixels(512, 512, CV_8UC4, tile.rgba.data());
    cv::randu(pixels, 0, 256);

    std::vector<double> bareTimes, toolTimes;
    auto time = [](std::vector<double>& times, auto&& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        times.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    };
    for (int i = 0; i <= repetitions; ++i) { // the first round allocates
        time(bareTimes, [&] { bare.setInput(blob), bare.forward(); });
        time(toolTimes, [&] { tool.upscaleTile(tile); });
    }
    std::sort(bareTimes.begin() + 1, bareTimes.end());
    std::sort(toolTimes.begin() + 1, toolTimes.end());
    const double bareMedian = bareTimes[1 + repetitions / 2],
                 toolMedian = toolTimes[1 + repetitions / 2];
    std::printf("one 512 tile: bare forward %.3f s, tool %.3f s, overhead ratio %.3f\n", bareMedian,
                toolMedian, toolMedian / bareMedian);
}
