#include "../support/temporary_folder.h"
#include "export/frame_resize.h"
#include "export/heic_generator_error.h"
#include "export/heic_preprocessor.h"
#include "export_test_support.h"
#include "platform/image_io.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vips/vips.h>

namespace lumivesper::exporting {
namespace {

using document::WallpaperImage;
using ::testing::ElementsAre;

class HeicPreprocessorTest : public ::testing::Test {
protected:
    WallpaperImage solid(const std::string& name, int width, int height) {
        return testing::solidImage(folder.path(), name, width, height);
    }

    HeicPreprocessConfig config(std::optional<FrameSize> target = {}, bool twice = false) {
        HeicPreprocessConfig result;
        result.outputDirectory = folder.path() / "frames";
        result.targetSize = target;
        if (twice) {
            result.upscaler = upscaler;
            result.upscaleStrategy = upscale::HeicUpscaleStrategy::scale2;
        }
        return result;
    }

    HeicPreprocessSession run(const HeicPreprocessConfig& configuration,
                              const std::vector<WallpaperImage>& images) {
        return HeicPreprocessor(configuration)
            .preprocess(images, [this](int current, int total, const std::string& message) {
                std::lock_guard lock(mutex);
                reports.push_back(std::to_string(current) + "/" + std::to_string(total) + " " +
                                  message);
            });
    }

    static std::set<std::string> filesIn(const std::filesystem::path& directory) {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            names.insert(entry.path().filename().string());
        return names;
    }

    lumivesper::testing::TemporaryFolder folder;
    std::shared_ptr<testing::FakeUpscaler> upscaler =
        std::make_shared<testing::FakeUpscaler>(std::set<int>{2});
    std::mutex mutex;
    std::vector<std::string> reports;
};

TEST_F(HeicPreprocessorTest, NoStageIsRefusedAndStrategyOffNeverAsksTheUpscaler) {
    EXPECT_EQ(testing::failure<HeicGeneratorError>([&] { run(config(), {solid("a.png", 4, 4)}); }),
              "Invalid configuration: Preprocess requested without any enabled stages.");
    auto configuration = config(FrameSize{40, 20}, true);
    configuration.upscaleStrategy = upscale::HeicUpscaleStrategy::off;
    const auto session = run(configuration, {solid("a.png", 10, 10)});
    EXPECT_EQ(upscaler->factorRequests, 0);
    EXPECT_EQ(upscaler->upscales, 0);
    ASSERT_EQ(session.frames.size(), 1u);
    EXPECT_EQ(platform::readImageSize(session.frames[0].url), (platform::ImageSize{40, 20}));
}

TEST_F(HeicPreprocessorTest, AnotherAspectRatioIsFilledAndCentreCropped) {
    // Top quarter red, middle half green, bottom quarter blue: 1000x1000 into 2000x1000 scales by
    // 2 and keeps only the middle half.
    platform::PixelImage pixels(1000, 1000);
    const std::uint8_t red[] = {255, 0, 0, 255}, green[] = {0, 255, 0, 255},
                       blue[] = {0, 0, 255, 255};
    for (int y = 0; y < 1000; ++y)
        for (int x = 0; x < 1000; ++x)
            std::copy_n(y < 250 ? red : y < 750 ? green : blue, 4, pixels.pixel(x, y));
    const auto bands = solid("bands.png", 1, 1);
    platform::writePng(pixels, *bands.sourcePath);
    const auto session = run(config(FrameSize{2000, 1000}), {bands});
    const auto result = platform::loadImage(session.frames[0].url);
    ASSERT_EQ(std::pair(result.width, result.height), std::pair(2000, 1000));
    for (int y : {10, 250, 500, 750, 989})
        for (int x : {0, 1000, 1999}) {
            const auto* p = result.pixel(x, y);
            EXPECT_TRUE(p[0] <= 3 && p[1] >= 252 && p[2] <= 3) << x << "," << y;
        }
}

TEST_F(HeicPreprocessorTest, FramesKeepTheirSizeWithoutATargetAndOnlyFinalFilesRemain) {
    auto configuration = config();
    configuration.enableDither = true;
    const auto session = run(configuration, {solid("a.png", 30, 10), solid("b.png", 12, 16)});
    ASSERT_EQ(session.frames.size(), 2u);
    EXPECT_EQ(session.frames[0].url, configuration.outputDirectory / "frame_0001.png");
    EXPECT_EQ(session.frames[0].size, (FrameSize{30, 10}));
    EXPECT_EQ(session.frames[1].size, (FrameSize{12, 16}));
    EXPECT_EQ(session.frames[1].image.fileName, "b.png");
    EXPECT_THAT(filesIn(session.directory), ElementsAre("frame_0001.png", "frame_0002.png"));

    std::filesystem::remove_all(session.directory);
    reports.clear();
    configuration = config(FrameSize{80, 40}, true); // 20x10 needs two passes of 2
    configuration.upscaleStrategy = upscale::HeicUpscaleStrategy::max;
    EXPECT_EQ(run(configuration, {solid("a.png", 20, 10)}).frames.at(0).size, (FrameSize{80, 40}));
    EXPECT_EQ(upscaler->upscales, 2);
    EXPECT_THAT(reports,
                ElementsAre("0/1 Upscaling frame 1/1 (pass 1/2)",
                            "0/1 Upscaling frame 1/1 (pass 2/2)", "1/1 Preprocessed frame 1/1"));
    EXPECT_THAT(filesIn(configuration.outputDirectory), ElementsAre("frame_0001.png"));
}

TEST_F(HeicPreprocessorTest, CountsFinishOutOfOrderWhileFramesKeepTheirOrder) {
    // The first frame waits until the other two have finished upscaling.
    upscaler->beforeUpscale = [&](const std::filesystem::path& input) {
        if (input.filename().string().starts_with("frame_0001")) {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while (upscaler->upscales < 2 && std::chrono::steady_clock::now() < deadline)
                std::this_thread::yield();
        }
    };
    const auto session =
        run(config({}, true), {solid("a.png", 4, 4), solid("b.png", 5, 5), solid("c.png", 6, 6)});
    std::vector<std::string> finished;
    for (const auto& report : reports)
        if (report.find("Preprocessed") != std::string::npos)
            finished.push_back(report);
    EXPECT_THAT(finished, ElementsAre("1/3 Preprocessed frame 1/3", "2/3 Preprocessed frame 2/3",
                                      "3/3 Preprocessed frame 3/3"));
    // The first frame's pass began before anything had finished; it finished last.
    ASSERT_EQ(session.frames.size(), 3u);
    EXPECT_EQ(session.frames[0].size, (FrameSize{8, 8}));
    EXPECT_EQ(session.frames[2].size, (FrameSize{12, 12}));
}

TEST_F(HeicPreprocessorTest, AMissingSourceMidRunFailsAndLeavesTheFilesInPlace) {
    auto gone = solid("gone.png", 8, 8);
    std::filesystem::remove(*gone.sourcePath);
    const auto configuration = config(FrameSize{16, 16});
    EXPECT_EQ(testing::failure<HeicGeneratorError>([&] {
                  run(configuration, {solid("a.png", 8, 8), gone, solid("c.png", 8, 8)});
              }),
              "Failed to load image: " + gone.sourcePath->string());
    ASSERT_TRUE(std::filesystem::exists(configuration.outputDirectory));
    EXPECT_FALSE(filesIn(configuration.outputDirectory).empty());
}

TEST(DitherTest, ChangesPixelsByAtMostTwoPercentAndIsNotANoOp) {
    platform::PixelImage image(64, 64);
    for (std::size_t i = 0; i < image.rgba.size(); ++i)
        image.rgba[i] = i % 4 == 3 ? 255 : 128;
    auto dithered = image;
    dither(dithered, 7);
    int changed = 0;
    double sum = 0;
    for (std::size_t i = 0; i < image.rgba.size(); ++i) {
        const int difference = int(dithered.rgba[i]) - int(image.rgba[i]);
        EXPECT_LE(std::abs(difference), 6) << i;
        changed += difference != 0;
        sum += difference;
        EXPECT_TRUE(i % 4 != 3 || dithered.rgba[i] == 255) << "alpha " << i;
    }
    EXPECT_GT(changed, 1000);
    // Mid-grey gets about as much noise (~1% of 255) as it loses (~1% of 128).
    EXPECT_NEAR(sum / (64 * 64 * 3), 255 * 0.01 - 128 * 0.01, 0.5);
}

// Inputs of unusual formats, made with libvips itself: 40x20, the left half one value and the right
// half another, so that orientation shows.
class NormalisationTest : public HeicPreprocessorTest {
protected:
    using VipsPtr = std::unique_ptr<VipsImage, decltype(&g_object_unref)>;

    static VipsPtr halves(int bands, double left, double right, VipsBandFormat format,
                          VipsInterpretation interpretation) {
        std::vector<double> values(40 * 20 * bands);
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = i / bands % 40 < 20 ? left : right;
        VipsPtr memory(vips_image_new_from_memory_copy(values.data(),
                                                       values.size() * sizeof(double), 40, 20,
                                                       bands, VIPS_FORMAT_DOUBLE),
                       &g_object_unref);
        VipsImage* cast = nullptr;
        vips_cast(memory.get(), &cast, format, nullptr);
        cast->Type = interpretation;
        return VipsPtr(cast, &g_object_unref);
    }

    // Runs with a target equal to the upright source size: valid, and it changes no pixel.
    platform::PixelImage normalise(const std::string& name) {
        const auto path = folder.path() / name;
        const auto size = platform::readImageSize(path);
        WallpaperImage image;
        image.sourcePath = path;
        const auto session =
            run(config(FrameSize{double(size.width), double(size.height)}), {image});
        return platform::loadImage(session.frames[0].url);
    }
};

TEST_F(NormalisationTest, SixteenBitPngAndGreyJpegBecomeEightBitRgba) {
    auto wide = halves(3, 65535, 0, VIPS_FORMAT_USHORT, VIPS_INTERPRETATION_RGB16);
    ASSERT_EQ(
        vips_pngsave(wide.get(), (folder.path() / "deep.png").c_str(), "bitdepth", 16, nullptr), 0);
    const auto frame = normalise("deep.png");
    EXPECT_EQ(frame.pixel(5, 5)[0], 255);
    EXPECT_EQ(frame.pixel(35, 5)[0], 0);
    EXPECT_EQ(frame.pixel(35, 5)[3], 255);

    auto grey = halves(1, 200, 40, VIPS_FORMAT_UCHAR, VIPS_INTERPRETATION_B_W);
    ASSERT_EQ(vips_jpegsave(grey.get(), (folder.path() / "grey.jpg").c_str(), "Q", 95, nullptr), 0);
    const auto greyFrame = normalise("grey.jpg");
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(greyFrame.pixel(5, 10)[channel], 200, 4);
    EXPECT_NEAR(greyFrame.pixel(35, 10)[2], 40, 4);
}

TEST_F(NormalisationTest, CmykJpegWithAProfileBecomesSrgbAndExifOrientationIsApplied) {
    auto rgb = halves(3, 230, 20, VIPS_FORMAT_UCHAR, VIPS_INTERPRETATION_sRGB);
    VipsImage* cmyk = nullptr;
    ASSERT_EQ(vips_icc_export(rgb.get(), &cmyk, "output_profile", "cmyk", nullptr), 0)
        << vips_error_buffer();
    const VipsPtr owned(cmyk, &g_object_unref);
    ASSERT_EQ(vips_jpegsave(cmyk, (folder.path() / "cmyk.jpg").c_str(), "Q", 95, nullptr), 0);
    const auto frame = normalise("cmyk.jpg");
    // A generic CMYK profile does not round-trip exactly; read as RGB the inks would be far off.
    EXPECT_NEAR(frame.pixel(5, 10)[0], 230, 25);
    EXPECT_NEAR(frame.pixel(35, 10)[1], 20, 25);
    EXPECT_EQ(frame.pixel(35, 10)[3], 255);

    vips_image_set_int(rgb.get(), VIPS_META_ORIENTATION, 6); // turn 90° clockwise to view
    ASSERT_EQ(vips_jpegsave(rgb.get(), (folder.path() / "turned.jpg").c_str(), "Q", 95, nullptr),
              0);
    const auto turned = normalise("turned.jpg");
    ASSERT_EQ(std::pair(turned.width, turned.height), std::pair(20, 40));
    EXPECT_GT(turned.pixel(10, 5)[0], 200); // the bright left half ends up on top
    EXPECT_LT(turned.pixel(10, 35)[0], 50);
}

} // namespace
} // namespace lumivesper::exporting
