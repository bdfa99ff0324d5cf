#include "../../support/temporary_folder.h"
#include "export/upscale/model_location.h"
#include "export/upscale/onnx_upscale_tool.h"
#include "export/upscale/tile_upscaler.h"
#include "export/upscale/upscale_error.h"
#include "export/upscale/upscale_plan.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"

#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace lumivesper::upscale {
namespace {

namespace fs = std::filesystem;
using platform::PixelImage;

const fs::path models = UPSCALE_TEST_MODELS;
const fs::path exactModel = models / "exact4x.onnx";

PixelImage noise(int width, int height) {
    std::mt19937 random(width * height);
    PixelImage image(width, height);
    for (std::size_t i = 0; i < image.rgba.size(); ++i)
        image.rgba[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(random());
    return image;
}

// exact4x.onnx repeats each pixel 4x4 with R taken from G, G from B and B from R.
bool isExact4x(const PixelImage& source, const PixelImage& upscaled) {
    bool same = upscaled.width == source.width * 4 && upscaled.height == source.height * 4;
    for (int y = 0; same && y < upscaled.height; ++y)
        for (int x = 0; same && x < upscaled.width; ++x) {
            const std::uint8_t *in = source.pixel(x / 4, y / 4), *out = upscaled.pixel(x, y);
            same = out[0] == in[1] && out[1] == in[2] && out[2] == in[0] && out[3] == 255;
        }
    return same;
}

template <typename Call> UpscaleError errorFrom(Call&& call) {
    try {
        call();
    } catch (const UpscaleError& error) {
        return error;
    }
    ADD_FAILURE() << "no UpscaleError";
    return UpscaleError::imageCreateFailed();
}

using S = HeicUpscaleStrategy;
using Size = PlanSize;
const std::optional<Size> k8k = Size{7680, 4320};

TEST(MakePlanTest, ChoosesStepsAndEstimate) {
    struct Case {
        std::optional<Size> target;
        S strategy;
        std::set<int> factors;
        Size source;
        std::vector<int> steps;
        Size estimate;
    } const cases[] = {
        // With a target: 4096 passes near (10368); 16384 fails near but passes far (16896).
        {k8k, S::auto_, {4}, {1024, 576}, {4, 4}, {16384, 9216}},
        {k8k, S::max, {2, 4}, {1024, 576}, {2, 2, 2}, {8192, 4608}},
        {k8k, S::auto_, {2, 4}, {2048, 1152}, {4}, {8192, 4608}},     // 4 within the tolerance
        {k8k, S::auto_, {2, 4}, {3000, 1000}, {2, 2}, {12000, 4000}}, // 4 overshoots near
        {k8k, S::fast, {2, 4}, {3000, 1000}, {4}, {12000, 4000}},
        {k8k, S::scale4, {2, 4}, {5000, 2000}, {2}, {10000, 4000}},
        {k8k, S::scale2, {4}, {1024, 576}, {}, {1024, 576}},
        {Size{1000, 1000}, S::auto_, {4}, {900, 900}, {}, {900, 900}}, // nothing within far
        {k8k, S::auto_, {}, {1024, 576}, {}, {1024, 576}},
        {Size{1600, 1200}, S::auto_, {2, 4}, {1920, 1000}, {}, {1920, 1000}}, // longer sides
        {k8k, S::max, {2, 4}, {7680, 4320}, {}, {7680, 4320}},                // never downscales
        // Without a target.
        {{}, S::auto_, {2, 4}, {1500, 800}, {4}, {6000, 3200}},
        {{}, S::auto_, {2, 4}, {2000, 1000}, {2}, {4000, 2000}},
        {{}, S::fast, {2, 4}, {2000, 1000}, {4}, {8000, 4000}},
        {{}, S::fast, {2, 4}, {1000, 2600}, {2}, {2000, 5200}},
        {{}, S::scale2, {4}, {1024, 576}, {4}, {4096, 2304}},
        {{}, S::scale2, {3, 8}, {100, 100}, {8}, {800, 800}},
        {{}, S::off, {2, 4}, {100, 100}, {}, {100, 100}},
    };
    for (std::size_t n = 0; n < std::size(cases); ++n) {
        const auto& c = cases[n];
        const UpscalePlan plan = makePlan(c.target, c.strategy, c.factors, c.source);
        std::vector<int> scales;
        for (const auto& step : plan.steps)
            scales.push_back(step.scale);
        EXPECT_EQ(scales, c.steps) << "case " << n;
        EXPECT_EQ(plan.estimatedOutputSize, c.estimate) << "case " << n;
    }
}

TEST(TileUpscalerTest, TilesStepByStrideOverwriteTheOverlapAndStopBetweenTiles) {
    // The last tile moves back inside, to 488.
    EXPECT_EQ(tileOrigins(1000, 512),
              (std::vector<TileOrigin>{{0, 0}, {480, 0}, {488, 0}, {0, 0}, {480, 0}, {488, 0}}));
    // A fake network paints each tile with its number, and run 20 asks to stop.
    int runs = 0;
    std::stop_source stop;
    const TileRunner stamp = [&](const PixelImage& tile) {
        PixelImage result(tile.width * 4, tile.height * 4);
        for (std::size_t i = 0; i < result.rgba.size(); ++i)
            result.rgba[i] = static_cast<std::uint8_t>(i % 4 == 0 ? runs + 1 : 255);
        if (++runs == 20)
            stop.request_stop();
        return result;
    };
    EXPECT_EQ(upscaleTiled(PixelImage(512, 512), stamp).width, 2048);
    EXPECT_EQ(runs, 4); // 0 and 480 both clamp to 0: one tile, four runs

    runs = 0; // rows at y 0 and 88, columns at x 0, 480, 488: no blending where they overlap
    const PixelImage result = upscaleTiled(PixelImage(1000, 600), stamp);
    const int stamps[][3] = {{0, 0, 1},      {1919, 351, 1}, {1920, 351, 2}, {1951, 351, 2},
                             {1952, 351, 3}, {3999, 351, 3}, {0, 352, 4},    {3999, 2399, 6}};
    for (const auto& [x, y, tile] : stamps)
        EXPECT_EQ(result.pixel(x, y)[0], tile) << x << "," << y;

    runs = 18; // the second tile asks to stop: no third one runs
    EXPECT_THROW(upscaleTiled(PixelImage(1000, 1000), stamp, {}, stop.get_token()),
                 platform::CancellationError);
    EXPECT_EQ(runs, 20);
}

class OnnxUpscaleToolTest : public ::testing::Test {
protected:
    fs::path input(const PixelImage& image, const std::string& name = "in.png") {
        platform::writePng(image, directory / name);
        return directory / name;
    }

    const OnnxUpscaleTool tool{exactModel};
    lumivesper::testing::TemporaryFolder folder;
    const fs::path directory = folder.path();
    const fs::path output = directory / "out.png";
};

TEST_F(OnnxUpscaleToolTest, UpscalesFileToFileWithoutSeamsAndCarriesAlpha) {
    EXPECT_EQ(tool.supportedScaleFactors(), std::set<int>{4});
    const PixelImage source = noise(1000, 700); // edge tiles overlap unevenly on both axes
    tool.upscale(input(source), output, 4);
    EXPECT_TRUE(isExact4x(source, platform::loadImage(output)));

    PixelImage translucent = noise(512, 512);
    for (std::size_t i = 3; i < translucent.rgba.size(); i += 4)
        translucent.rgba[i] = i / 4 % 512 < 256 ? 0 : 255; // the left half is clear
    const PixelImage result = tool.upscaleImage(translucent);
    for (auto [x, alpha] : {std::pair{0, 0}, {1000, 0}, {1040, 255}, {2047, 255}})
        EXPECT_EQ(result.pixel(x, 100)[3], alpha) << x;
}

TEST_F(OnnxUpscaleToolTest, ConcurrentCallersGetTheirOwnImagesBack) {
    const OnnxUpscaleTool pooled(exactModel, ComputeTarget::cpu, 3);
    const std::vector<PixelImage> sources{noise(600, 520), noise(520, 600), noise(512, 700)};
    for (const OnnxUpscaleTool* shared : {&tool, &pooled}) { // one network in turn, or one each
        std::vector<std::future<PixelImage>> results;
        for (const auto& source : sources)
            results.push_back(
                std::async(std::launch::async, [&] { return shared->upscaleImage(source); }));
        for (std::size_t i = 0; i < sources.size(); ++i)
            EXPECT_TRUE(isExact4x(sources[i], results[i].get())) << "caller " << i;
    }
}

TEST_F(OnnxUpscaleToolTest, FailuresAndTheirDescriptions) {
    const fs::path tile = input(noise(512, 512)), text = directory / "text.png";
    std::ofstream(text) << "text";
    using K = UpscaleError::Kind;
    const std::tuple<fs::path, fs::path, int, K, std::string> cases[] = {
        {tile, output, 2, K::unsupportedScale, "Unsupported upscale factor: 2x."},
        {text, output, 4, K::imageLoadFailed, "Failed to load input image: " + text.string()},
        {tile, directory / "no" / "out.png", 4, K::outputWriteFailed,
         "Failed to write upscaled image to disk."},
        {input(noise(511, 2000), "narrow.png"), output, 4, K::invalidInputSize,
         "Input image is smaller than the 512x512 tile size."}};
    for (const auto& [in, out, scale, kind, description] : cases) {
        const UpscaleError error = errorFrom([&] { tool.upscale(in, out, scale); });
        EXPECT_EQ(error.kind(), kind);
        EXPECT_EQ(error.description(), description);
    }
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(tool.upscale(tile, output, 4, stop.get_token()), platform::CancellationError);
    EXPECT_FALSE(fs::exists(output));
    const OnnxUpscaleTool halfSize(models / "halfsize.onnx", ComputeTarget::cpu);
    EXPECT_EQ(errorFrom([&] { halfSize.upscaleImage(noise(512, 512)); }).kind(), K::missingOutput);

    std::ofstream(directory / "garbage.onnx") << "no protobuf \x01\x02";
    for (const char* name : {"absent.onnx", "garbage.onnx"}) {
        const UpscaleError error = errorFrom([&] { OnnxUpscaleTool broken(directory / name); });
        EXPECT_EQ(error.kind(), UpscaleError::Kind::modelLoadFailed) << name;
        EXPECT_EQ(error.description(), "ONNX model failed to load.");
    }
}

TEST_F(OnnxUpscaleToolTest, EngineFollowsTheTargetAndTheModelsOperators) {
    EXPECT_EQ(tool.engineDescription(), "oneDNN on the CPU");
    const OnnxUpscaleTool reference(exactModel, ComputeTarget::openCvCpu);
    EXPECT_EQ(reference.engineDescription(), "OpenCV DNN on the CPU");
    // oneDNN is not given Tanh: the model still runs, on OpenCV.
    const OnnxUpscaleTool fallback(models / "tanh512.onnx", ComputeTarget::cpu);
    EXPECT_EQ(fallback.engineDescription(), "OpenCV DNN on the CPU");
    EXPECT_EQ(fallback.upscaleTile(noise(512, 512)).width, 2048);

    // The OpenCL path end to end, on whatever OpenCL device there is (pocl in CI).
    const OnnxUpscaleTool openCl(exactModel, ComputeTarget::openCl);
    EXPECT_THAT(openCl.engineDescription(), ::testing::StartsWith("OpenCV DNN on the OpenCL device"));
    const PixelImage source = noise(700, 600);
    EXPECT_TRUE(isExact4x(source, openCl.upscaleImage(source)));
}

TEST_F(OnnxUpscaleToolTest, ModelIsFoundThroughTheVariableElseUserDataElseTheInstallation) {
    const fs::path user = directory / "lumivesper" / "models" / "realesrgan512.onnx";
    ::unsetenv("LUMIVESPER_UPSCALE_MODEL");
    ::setenv("XDG_DATA_HOME", directory.c_str(), 1);
    EXPECT_EQ(upscaleModelCandidates(),
              (std::vector<fs::path>{user, fs::path(LUMIVESPER_INSTALL_DATADIR) / "models" /
                                               "realesrgan512.onnx"}));
    fs::create_directories(user.parent_path());
    fs::copy_file(exactModel, user);
    EXPECT_EQ(OnnxUpscaleTool().modelPath(), user);
    ::setenv("LUMIVESPER_UPSCALE_MODEL", (directory / "none.onnx").c_str(), 1); // the only one
    EXPECT_EQ(findUpscaleModel(), std::nullopt);
    ::unsetenv("LUMIVESPER_UPSCALE_MODEL");
}

} // namespace
} // namespace lumivesper::upscale
