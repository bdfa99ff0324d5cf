#include "export/upscale/dnnl_tile_network.h"
#include "export/upscale/onnx_model.h"
#include "export/upscale/opencv_tile_network.h"
#include "export/upscale/upscale_error.h"
#include "platform/image_io.h"

#include <cmath>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <random>

namespace lumivesper::upscale {
namespace {

namespace fs = std::filesystem;
using platform::PixelImage;

const fs::path models = UPSCALE_TEST_MODELS;
const fs::path package = MODEL_PACKAGE_DIR;

std::vector<char> readBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

OnnxModel readModel(const fs::path& path) {
    return parseOnnxModel(readBytes(path));
}

PixelImage noise(int side) {
    std::mt19937 random(side);
    PixelImage image(side, side);
    for (std::size_t i = 0; i < image.rgba.size(); ++i)
        image.rgba[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(random());
    return image;
}

// The largest difference of any colour component, in 8-bit levels.
int largestDifference(const PixelImage& a, const PixelImage& b) {
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);
    if (a.rgba.size() != b.rgba.size())
        return 256;
    int largest = 0;
    for (std::size_t i = 0; i < a.rgba.size(); ++i) {
        if (i % 4 != 3)
            largest = std::max(largest, std::abs(a.rgba[i] - b.rgba[i]));
    }
    return largest;
}

cv::Mat rgbOf(const PixelImage& image) {
    cv::Mat rgba(image.height, image.width, CV_8UC4, const_cast<std::uint8_t*>(image.rgba.data()));
    cv::Mat rgb;
    cv::cvtColor(rgba, rgb, cv::COLOR_RGBA2RGB);
    return rgb;
}

PixelImage imageOf(const cv::Mat& rgb) {
    cv::Mat rgba;
    cv::cvtColor(rgb, rgba, cv::COLOR_RGB2RGBA);
    PixelImage image(rgba.cols, rgba.rows);
    std::copy(rgba.datastart, rgba.dataend, image.rgba.begin());
    return image;
}

// A network with every operator and layout case of the oneDNN planner, against OpenCV's CPU
// path and, on the default OpenCL device (pocl in CI), OpenCV's OpenCL path.
TEST(TileNetworkTest, EnginesAgreeWithinOneLevel) {
    const fs::path path = models / "mixed64.onnx";
    const PixelImage tile = noise(64);
    const PixelImage reference = OpenCvTileNetwork(readBytes(path), false).run(tile);
    ASSERT_EQ(reference.width, 256);

    for (const bool winograd : {false, true}) {
        DnnlTileNetwork network(readModel(path), 512, DnnlOptions{winograd});
        EXPECT_EQ(network.convolutions(), 7);
        EXPECT_EQ(network.winogradConvolutions() > 0, winograd);
        EXPECT_LE(largestDifference(network.run(tile), reference), 1) << "Winograd " << winograd;
        // Networks are planned on one thread and run on the export's workers.
        const PixelImage elsewhere = std::async(std::launch::async, [&] {
                                         return network.run(tile);
                                     }).get();
        EXPECT_LE(largestDifference(elsewhere, reference), 1) << "a second run, on another thread";
        EXPECT_THROW(network.run(noise(65)), UpscaleError);
    }

    ASSERT_TRUE(openClDevice(false)) << "no OpenCL device: scripts/setup installs pocl";
    EXPECT_LE(largestDifference(OpenCvTileNetwork(readBytes(path), true).run(tile), reference), 1);
}

// An open batch size, initializers among the inputs, a Constant node and constants on either side of
// Sub: read and run as OpenCV runs them.
TEST(TileNetworkTest, ModelsAsOtherExportersWriteThem) {
    const fs::path path = models / "open64.onnx";
    const OnnxModel model = readModel(path);
    EXPECT_EQ(model.inputName, "input");
    EXPECT_EQ(model.inputShape, (std::vector<std::int64_t>{-1, 3, 64, 64}));
    EXPECT_EQ(model.constants.at("shift").values, std::vector<float>{0.25f});
    const PixelImage tile = noise(64);
    DnnlTileNetwork network(model, 64);
    EXPECT_LE(largestDifference(network.run(tile), OpenCvTileNetwork(readBytes(path), false).run(tile)),
              1);
}

TEST(TileNetworkTest, ModelsOneDnnCannotRunAreRefusedByName) {
    try {
        DnnlTileNetwork network(readModel(models / "tanh512.onnx"));
        FAIL() << "planned a Tanh";
    } catch (const UnsupportedNetwork& error) {
        EXPECT_NE(std::string(error.what()).find("Tanh"), std::string::npos) << error.what();
    }
    auto truncated = readBytes(models / "exact4x.onnx");
    truncated.resize(truncated.size() / 2);
    EXPECT_THROW(parseOnnxModel(truncated), OnnxFormatError);
}

class TrainedModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists(models / "esrgan_thick_128.onnx"))
            GTEST_SKIP() << "the model package is not in " << package << ": run scripts/setup";
    }
    const fs::path convertedPath = models / "esrgan_thick_128.onnx";
};

// The converted network on the package's own fixture gives the package's own 4x sample result:
// layer order, kernel layout, the depth-to-space order and the value range all have to be right.
TEST_F(TrainedModelTest, ConversionReproducesThePackagesSample) {
    const PixelImage fixture = platform::loadImage(package / "assets" / "fixture.png");
    const PixelImage sample = platform::loadImage(package / "assets" / "samples" / "4x" / "result.png");
    DnnlTileNetwork network(readModel(convertedPath));
    EXPECT_LE(largestDifference(network.run(fixture), sample), 1);
    EXPECT_LE(largestDifference(OpenCvTileNetwork(readBytes(convertedPath), false).run(fixture),
                                sample),
              1);
}

double psnr(const cv::Mat& a, const cv::Mat& b) {
    return cv::PSNR(a, b);
}

// A 512x512 original, shrunk to a quarter and brought back: the network must beat Lanczos.
TEST_F(TrainedModelTest, UpscalesSharperThanLanczos) {
    const cv::Mat large = rgbOf(platform::loadImage(package / "assets" / "samples" / "8x" / "result.png"));
    cv::Mat original, small, lanczos;
    cv::resize(large, original, {512, 512}, 0, 0, cv::INTER_AREA);
    cv::resize(original, small, {128, 128}, 0, 0, cv::INTER_AREA);
    cv::resize(small, lanczos, {512, 512}, 0, 0, cv::INTER_LANCZOS4);
    const cv::Mat upscaled = rgbOf(DnnlTileNetwork(readModel(convertedPath)).run(imageOf(small)));
    const double network = psnr(upscaled, original), classic = psnr(lanczos, original);
    EXPECT_GT(network, classic + 0.3) << "network " << network << " dB, Lanczos " << classic;
}

} // namespace
} // namespace lumivesper::upscale
