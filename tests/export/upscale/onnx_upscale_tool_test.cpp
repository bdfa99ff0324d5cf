#include "export/upscale/model_location.h"
#include "export/upscale/onnx_upscale_tool.h"
#include "export/upscale/upscale_error.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"

#include <cstdlib>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <random>

namespace lumivesper::upscale {
namespace {

namespace fs = std::filesystem;
using platform::PixelImage;

const fs::path modelDirectory = UPSCALE_TEST_MODELS;
const fs::path exactModel = modelDirectory / "exact4x.onnx";

PixelImage noiseImage(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> byte(0, 255);
    PixelImage image(width, height);
    for (std::size_t i = 0; i < image.rgba.size(); ++i)
        image.rgba[i] = (i % 4 == 3) ? 255 : static_cast<std::uint8_t>(byte(random));
    return image;
}

// What exact4x.onnx makes of `source`: each pixel repeated 4x4, with R taken from G, G from B and
// B from R. Returns a description of the first difference, or nothing.
std::string firstDifference(const PixelImage& source, const PixelImage& upscaled) {
    if (upscaled.width != source.width * 4 || upscaled.height != source.height * 4)
        return "size " + std::to_string(upscaled.width) + "x" + std::to_string(upscaled.height);
    for (int y = 0; y < upscaled.height; ++y) {
        for (int x = 0; x < upscaled.width; ++x) {
            const std::uint8_t* in = source.pixel(x / 4, y / 4);
            const std::uint8_t* out = upscaled.pixel(x, y);
            if (out[0] != in[1] || out[1] != in[2] || out[2] != in[0] || out[3] != 255)
                return "pixel " + std::to_string(x) + "," + std::to_string(y);
        }
    }
    return {};
}

class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* old = std::getenv(name))
            old_ = old;
        set(value);
    }
    ~ScopedEnvironment() { set(old_); }

private:
    void set(const std::optional<std::string>& value) {
        if (value)
            setenv(name_, value->c_str(), 1);
        else
            unsetenv(name_);
    }
    const char* name_;
    std::optional<std::string> old_;
};

class OnnxUpscaleToolTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { tool = new OnnxUpscaleTool(exactModel); }
    static void TearDownTestSuite() {
        delete tool;
        tool = nullptr;
    }

    void SetUp() override {
        directory = fs::temp_directory_path() /
                    ("upscale-test-" + std::to_string(::getpid()) + "-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(directory);
    }
    void TearDown() override { fs::remove_all(directory); }

    fs::path writeInput(const PixelImage& image, const std::string& name = "in.png") {
        const fs::path path = directory / name;
        platform::writePng(image, path);
        return path;
    }

    template <typename Call> static UpscaleError errorFrom(Call&& call) {
        try {
            call();
        } catch (const UpscaleError& error) {
            return error;
        }
        ADD_FAILURE() << "no UpscaleError";
        return UpscaleError::imageCreateFailed();
    }

    static OnnxUpscaleTool* tool;
    fs::path directory;
};

OnnxUpscaleTool* OnnxUpscaleToolTest::tool = nullptr;

TEST_F(OnnxUpscaleToolTest, OffersOnlyFour) {
    EXPECT_EQ(tool->supportedScaleFactors(), std::set<int>{4});
}

TEST_F(OnnxUpscaleToolTest, TilesWithoutSeamsAtAnyWidth) {
    // 1000 and 700 are no multiples of the stride, so the edge tiles overlap unevenly.
    const PixelImage source = noiseImage(1000, 700, 1);
    EXPECT_EQ(firstDifference(source, tool->upscaleImage(source)), "");
}

TEST_F(OnnxUpscaleToolTest, ExactTileSize) {
    const PixelImage source = noiseImage(512, 512, 2);
    EXPECT_EQ(firstDifference(source, tool->upscaleImage(source)), "");
}

TEST_F(OnnxUpscaleToolTest, UpscalesFileToFile) {
    const PixelImage source = noiseImage(530, 600, 3);
    const fs::path output = directory / "out.png";
    tool->upscale(writeInput(source), output, 4);
    EXPECT_EQ(firstDifference(source, platform::loadImage(output)), "");
}

TEST_F(OnnxUpscaleToolTest, CarriesTransparencyOver) {
    PixelImage source = noiseImage(512, 512, 4);
    for (int y = 0; y < 512; ++y) {
        for (int x = 0; x < 256; ++x)
            source.pixel(x, y)[3] = 0;
    }
    const PixelImage result = tool->upscaleImage(source);
    EXPECT_EQ(result.pixel(0, 100)[3], 0);
    EXPECT_EQ(result.pixel(1000, 100)[3], 0);
    EXPECT_EQ(result.pixel(1040, 100)[3], 255);
    EXPECT_EQ(result.pixel(2047, 2047)[3], 255);
}

TEST_F(OnnxUpscaleToolTest, ConcurrentCallersWithANetworkEach) {
    const OnnxUpscaleTool pooled(exactModel, ComputeTarget::cpu, 3);
    const std::vector<PixelImage> sources{noiseImage(600, 520, 10), noiseImage(520, 600, 11),
                                          noiseImage(512, 700, 12)};
    std::vector<std::future<PixelImage>> results;
    for (const auto& source : sources) {
        results.push_back(
            std::async(std::launch::async, [&] { return pooled.upscaleImage(source); }));
    }
    for (std::size_t i = 0; i < sources.size(); ++i)
        EXPECT_EQ(firstDifference(sources[i], results[i].get()), "") << "caller " << i;
}

TEST_F(OnnxUpscaleToolTest, ConcurrentCallersShareTheNetworkInTurn) {
    const std::vector<PixelImage> sources{noiseImage(512, 512, 20), noiseImage(600, 512, 21),
                                          noiseImage(512, 600, 22)};
    std::vector<std::future<PixelImage>> results;
    for (const auto& source : sources) {
        results.push_back(
            std::async(std::launch::async, [&] { return tool->upscaleImage(source); }));
    }
    // Tiles that mixed up the callers' images would show as differences here.
    for (std::size_t i = 0; i < sources.size(); ++i)
        EXPECT_EQ(firstDifference(sources[i], results[i].get()), "") << "caller " << i;
}

TEST_F(OnnxUpscaleToolTest, CancelledBeforeTheFirstTile) {
    std::stop_source stop;
    stop.request_stop();
    const fs::path output = directory / "out.png";
    EXPECT_THROW(tool->upscale(writeInput(noiseImage(512, 512, 5)), output, 4, stop.get_token()),
                 platform::CancellationError);
    EXPECT_FALSE(fs::exists(output));
}

class UpscaleFailureTest : public OnnxUpscaleToolTest {};

TEST_F(UpscaleFailureTest, ScaleOtherThanFour) {
    const UpscaleError error = errorFrom(
        [&] { tool->upscale(writeInput(noiseImage(512, 512, 6)), directory / "out.png", 2); });
    EXPECT_EQ(error.kind(), UpscaleError::Kind::unsupportedScale);
    EXPECT_EQ(error.scale(), 2);
    EXPECT_EQ(error.description(), "Unsupported upscale factor: 2x.");
}

TEST_F(UpscaleFailureTest, InputSmallerThanATile) {
    const fs::path input = writeInput(noiseImage(511, 2000, 7));
    const UpscaleError error = errorFrom([&] { tool->upscale(input, directory / "out.png", 4); });
    EXPECT_EQ(error.kind(), UpscaleError::Kind::invalidInputSize);
    EXPECT_EQ(error.description(), "Input image is smaller than the 512x512 tile size.");
    EXPECT_FALSE(fs::exists(directory / "out.png"));
}

TEST_F(UpscaleFailureTest, UnreadableInput) {
    const fs::path input = directory / "not-an-image.png";
    std::ofstream(input) << "text";
    const UpscaleError error = errorFrom([&] { tool->upscale(input, directory / "out.png", 4); });
    EXPECT_EQ(error.kind(), UpscaleError::Kind::imageLoadFailed);
    EXPECT_EQ(error.description(), "Failed to load input image: " + input.string());
}

TEST_F(UpscaleFailureTest, UnwritableOutput) {
    const fs::path input = writeInput(noiseImage(512, 512, 8));
    const UpscaleError error =
        errorFrom([&] { tool->upscale(input, directory / "missing" / "out.png", 4); });
    EXPECT_EQ(error.kind(), UpscaleError::Kind::outputWriteFailed);
    EXPECT_EQ(error.description(), "Failed to write upscaled image to disk.");
}

TEST_F(UpscaleFailureTest, ModelOfAnotherFactorGivesNoOutputImage) {
    const OnnxUpscaleTool halfSize(modelDirectory / "halfsize.onnx", ComputeTarget::cpu);
    const UpscaleError error = errorFrom([&] { halfSize.upscaleImage(noiseImage(512, 512, 9)); });
    EXPECT_EQ(error.kind(), UpscaleError::Kind::missingOutput);
}

TEST_F(UpscaleFailureTest, MissingOrBrokenModelFailsToLoad) {
    const fs::path garbage = directory / "garbage.onnx";
    std::ofstream(garbage, std::ios::binary) << "this is no protobuf \x01\x02\x03";
    const fs::path empty = directory / "empty.onnx";
    std::ofstream{empty};
    const fs::path truncated = directory / "truncated.onnx";
    {
        std::ifstream whole(modelDirectory / "srvgg16.onnx", std::ios::binary);
        std::string bytes(std::istreambuf_iterator<char>(whole), {});
        std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    }
    for (const fs::path& path : {directory / "absent.onnx", garbage, empty, truncated, directory}) {
        const UpscaleError error = errorFrom([&] { OnnxUpscaleTool broken(path); });
        EXPECT_EQ(error.kind(), UpscaleError::Kind::modelLoadFailed) << path;
        EXPECT_EQ(error.description(), "ONNX model failed to load.");
    }
}

class ModelLocationTest : public OnnxUpscaleToolTest {};

TEST_F(ModelLocationTest, ExplicitPathIsTheOnlyCandidate) {
    const ScopedEnvironment model("LUMIVESPER_UPSCALE_MODEL", exactModel.string());
    EXPECT_EQ(upscaleModelCandidates(), std::vector<fs::path>{exactModel});
    const OnnxUpscaleTool found;
    EXPECT_EQ(found.modelPath(), exactModel);
}

TEST_F(ModelLocationTest, ExplicitPathThatIsMissingFailsToLoad) {
    const ScopedEnvironment model("LUMIVESPER_UPSCALE_MODEL", (directory / "none.onnx").string());
    const ScopedEnvironment data("XDG_DATA_HOME", directory.string());
    fs::create_directories(directory / "lumivesper" / "models");
    fs::copy_file(exactModel, directory / "lumivesper" / "models" / "realesrgan512.onnx");
    EXPECT_EQ(findUpscaleModel(), std::nullopt);
    const UpscaleError error = errorFrom([] { OnnxUpscaleTool missing; });
    EXPECT_EQ(error.kind(), UpscaleError::Kind::modelLoadFailed);
}

TEST_F(ModelLocationTest, UserDataFolderComesBeforeTheInstalledOne) {
    const ScopedEnvironment model("LUMIVESPER_UPSCALE_MODEL", std::nullopt);
    const ScopedEnvironment data("XDG_DATA_HOME", directory.string());
    const fs::path user = directory / "lumivesper" / "models" / "realesrgan512.onnx";
    const std::vector<fs::path> expected{user, fs::path(LUMIVESPER_INSTALL_DATADIR) / "models" /
                                                   "realesrgan512.onnx"};
    EXPECT_EQ(upscaleModelCandidates(), expected);

    fs::create_directories(user.parent_path());
    fs::copy_file(exactModel, user);
    EXPECT_EQ(findUpscaleModel(), user);
    const OnnxUpscaleTool found;
    const PixelImage source = noiseImage(512, 512, 13);
    EXPECT_EQ(firstDifference(source, found.upscaleImage(source)), "");
}

} // namespace
} // namespace lumivesper::upscale
