#include "../support/temporary_folder.h"
#include "export/frame_resize.h"
#include "export/heic_generator_error.h"
#include "export/heic_preprocessor.h"
#include "fake_upscaler.h"
#include "platform/image_io.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vips/vips.h>

namespace lumivesper::exporting {
namespace {

using document::WallpaperImage;
using ::testing::HasSubstr;

struct Rgb {
    std::uint8_t r, g, b;
};

class HeicPreprocessorTest : public ::testing::Test {
protected:
    WallpaperImage solid(const std::string& name, int width, int height, Rgb colour) {
        platform::PixelImage pixels(width, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                auto* p = pixels.pixel(x, y);
                p[0] = colour.r, p[1] = colour.g, p[2] = colour.b, p[3] = 255;
            }
        return save(name, pixels);
    }

    WallpaperImage save(const std::string& name, const platform::PixelImage& pixels) {
        const auto path = folder.path() / name;
        platform::writePng(pixels, path);
        WallpaperImage image;
        image.fileName = name;
        image.sourcePath = path;
        return image;
    }

    HeicPreprocessConfig config() const {
        HeicPreprocessConfig result;
        result.outputDirectory = folder.path() / "frames";
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

    std::vector<std::string> filesIn(const std::filesystem::path& directory) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    lumivesper::testing::TemporaryFolder folder;
    std::mutex mutex;
    std::vector<std::string> reports;
};

TEST_F(HeicPreprocessorTest, AConfigurationWithoutStagesIsRefused) {
    try {
        run(config(), {solid("a.png", 4, 4, {1, 2, 3})});
        FAIL();
    } catch (const HeicGeneratorError& error) {
        EXPECT_EQ(error.description(),
                  "Invalid configuration: Preprocess requested without any enabled stages.");
    }
}

TEST_F(HeicPreprocessorTest, StrategyOffNeverAsksTheUpscaler) {
    auto upscaler = std::make_shared<testing::FakeUpscaler>(std::set<int>{2, 4});
    auto configuration = config();
    configuration.upscaler = upscaler;
    configuration.upscaleStrategy = upscale::HeicUpscaleStrategy::off;
    configuration.targetSize = FrameSize{40, 20};
    const auto session = run(configuration, {solid("a.png", 10, 10, {9, 9, 9})});
    EXPECT_EQ(upscaler->factorRequests, 0);
    EXPECT_EQ(upscaler->upscales, 0);
    ASSERT_EQ(session.frames.size(), 1u);
    EXPECT_EQ(session.frames[0].size, (FrameSize{40, 20}));
    EXPECT_EQ(platform::readImageSize(session.frames[0].url), (platform::ImageSize{40, 20}));
}

TEST_F(HeicPreprocessorTest, AnotherAspectRatioIsFilledAndCentreCropped) {
    // Top quarter red, middle half green, bottom quarter blue: 1000x1000 into 2000x1000 scales by
    // 2 and keeps only the middle half.
    platform::PixelImage pixels(1000, 1000);
    for (int y = 0; y < 1000; ++y)
        for (int x = 0; x < 1000; ++x) {
            auto* p = pixels.pixel(x, y);
            p[0] = y < 250 ? 255 : 0;
            p[1] = y >= 250 && y < 750 ? 255 : 0;
            p[2] = y >= 750 ? 255 : 0;
            p[3] = 255;
        }
    auto configuration = config();
    configuration.targetSize = FrameSize{2000, 1000};
    const auto session = run(configuration, {save("bands.png", pixels)});
    const auto result = platform::loadImage(session.frames[0].url);
    ASSERT_EQ(result.width, 2000);
    ASSERT_EQ(result.height, 1000);
    for (int y : {10, 250, 500, 750, 989}) {
        for (int x : {0, 1000, 1999}) {
            const auto* p = result.pixel(x, y);
            EXPECT_LE(p[0], 3) << x << "," << y;
            EXPECT_GE(p[1], 252) << x << "," << y;
            EXPECT_LE(p[2], 3) << x << "," << y;
        }
    }
}

TEST_F(HeicPreprocessorTest, WithoutATargetEachFrameKeepsItsOwnSizeAndOnlyFinalFilesRemain) {
    auto configuration = config();
    configuration.enableDither = true;
    const auto session = run(
        configuration, {solid("a.png", 30, 10, {50, 60, 70}), solid("b.png", 12, 16, {1, 1, 1})});
    ASSERT_EQ(session.frames.size(), 2u);
    EXPECT_EQ(session.frames[0].url, configuration.outputDirectory / "frame_0001.png");
    EXPECT_EQ(session.frames[0].size, (FrameSize{30, 10}));
    EXPECT_EQ(session.frames[1].size, (FrameSize{12, 16}));
    EXPECT_EQ(session.frames[1].image.fileName, "b.png");
    EXPECT_EQ(session.directory, configuration.outputDirectory);
    EXPECT_THAT(filesIn(configuration.outputDirectory),
                ::testing::ElementsAre("frame_0001.png", "frame_0002.png"));
}

TEST_F(HeicPreprocessorTest, UpscalingPassesAreReportedAndTheirFilesRemoved) {
    auto upscaler = std::make_shared<testing::FakeUpscaler>(std::set<int>{2});
    auto configuration = config();
    configuration.upscaler = upscaler;
    configuration.upscaleStrategy = upscale::HeicUpscaleStrategy::max;
    configuration.targetSize = FrameSize{80, 40}; // 20x10 needs two passes of 2
    const auto session = run(configuration, {solid("a.png", 20, 10, {10, 200, 30})});
    EXPECT_EQ(upscaler->upscales, 2);
    EXPECT_THAT(reports, ::testing::ElementsAre("0/1 Upscaling frame 1/1 (pass 1/2)",
                                                "0/1 Upscaling frame 1/1 (pass 2/2)",
                                                "1/1 Preprocessed frame 1/1"));
    EXPECT_EQ(session.frames[0].size, (FrameSize{80, 40}));
    EXPECT_THAT(filesIn(configuration.outputDirectory), ::testing::ElementsAre("frame_0001.png"));
}

TEST_F(HeicPreprocessorTest, CountsFinishOutOfOrderWhileFramesKeepTheirOrder) {
    auto upscaler = std::make_shared<testing::FakeUpscaler>(std::set<int>{2});
    // The first frame waits until the other two have finished upscaling.
    upscaler->beforeUpscale = [&](const std::filesystem::path& input) {
        if (input.filename().string().starts_with("frame_0001")) {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while (upscaler->upscales < 2 && std::chrono::steady_clock::now() < deadline)
                std::this_thread::yield();
        }
    };
    auto configuration = config();
    configuration.upscaler = upscaler;
    configuration.upscaleStrategy = upscale::HeicUpscaleStrategy::scale2;
    const auto session =
        run(configuration, {solid("a.png", 4, 4, {1, 0, 0}), solid("b.png", 5, 5, {2, 0, 0}),
                            solid("c.png", 6, 6, {3, 0, 0})});
    std::vector<std::string> finished;
    for (const auto& report : reports)
        if (report.find("Preprocessed") != std::string::npos)
            finished.push_back(report);
    EXPECT_THAT(finished,
                ::testing::ElementsAre("1/3 Preprocessed frame 1/3", "2/3 Preprocessed frame 2/3",
                                       "3/3 Preprocessed frame 3/3"));
    // The first frame's pass began before anything had finished; it finished last.
    ASSERT_EQ(session.frames.size(), 3u);
    EXPECT_EQ(session.frames[0].size, (FrameSize{8, 8}));
    EXPECT_EQ(session.frames[2].size, (FrameSize{12, 12}));
}

TEST_F(HeicPreprocessorTest, AMissingSourceMidRunFailsAndLeavesTheFilesInPlace) {
    auto gone = solid("gone.png", 8, 8, {0, 0, 0});
    std::filesystem::remove(*gone.sourcePath);
    auto configuration = config();
    configuration.targetSize = FrameSize{16, 16};
    try {
        run(configuration,
            {solid("a.png", 8, 8, {5, 5, 5}), gone, solid("c.png", 8, 8, {5, 5, 5})});
        FAIL();
    } catch (const HeicGeneratorError& error) {
        EXPECT_EQ(error.description(), "Failed to load image: " + gone.sourcePath->string());
    }
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
        if (i % 4 == 3) {
            EXPECT_EQ(dithered.rgba[i], 255);
        }
    }
    EXPECT_GT(changed, 1000);
    // Mid-grey gets about as much noise (~1% of 255) as it loses (~1% of 128).
    EXPECT_NEAR(sum / (64 * 64 * 3), 255 * 0.01 - 128 * 0.01, 0.5);
}

// Inputs of unusual formats, made with libvips itself.
class NormalisationTest : public HeicPreprocessorTest {
protected:
    using VipsPtr = std::unique_ptr<VipsImage, decltype(&g_object_unref)>;

    static VipsPtr own(VipsImage* image) { return VipsPtr(image, &g_object_unref); }

    // A 40x20 image: left half one colour, right half another (so orientation is visible).
    static VipsPtr halves(int bands, double left, double right) {
        VipsImage* black = nullptr;
        vips_black(&black, 40, 20, "bands", bands, nullptr);
        auto base = own(black);
        VipsImage* x = nullptr;
        vips_xyz(&x, 40, 20, nullptr);
        auto coords = own(x);
        VipsImage* column = nullptr;
        vips_extract_band(coords.get(), &column, 0, nullptr);
        auto columnImage = own(column);
        VipsImage* mask = nullptr;
        vips_relational_const1(columnImage.get(), &mask, VIPS_OPERATION_RELATIONAL_LESS, 20,
                               nullptr);
        auto maskImage = own(mask);
        VipsImage* out = nullptr;
        std::vector<double> l(bands, left), r(bands, right);
        VipsImage* leftImage = nullptr;
        VipsImage* rightImage = nullptr;
        vips_linear(base.get(), &leftImage, std::vector<double>(bands, 1).data(), l.data(), bands,
                    nullptr);
        vips_linear(base.get(), &rightImage, std::vector<double>(bands, 1).data(), r.data(), bands,
                    nullptr);
        auto li = own(leftImage), ri = own(rightImage);
        vips_ifthenelse(maskImage.get(), li.get(), ri.get(), &out, nullptr);
        return own(out);
    }

    platform::PixelImage normalise(const std::filesystem::path& path) {
        WallpaperImage image;
        image.fileName = path.filename().string();
        image.sourcePath = path;
        auto configuration = config();
        // A target equal to the upright source size: the run is valid and changes no pixel.
        configuration.targetSize = FrameSize{double(platform::readImageSize(path).width),
                                             double(platform::readImageSize(path).height)};
        const auto session = run(configuration, {image});
        return platform::loadImage(session.frames[0].url);
    }
};

TEST_F(NormalisationTest, SixteenBitPngBecomesEightBitRgba) {
    auto image = halves(3, 65535, 0);
    VipsImage* cast = nullptr;
    vips_cast(image.get(), &cast, VIPS_FORMAT_USHORT, nullptr);
    auto wide = own(cast);
    wide->Type = VIPS_INTERPRETATION_RGB16;
    const auto path = folder.path() / "deep.png";
    ASSERT_EQ(vips_pngsave(wide.get(), path.c_str(), "bitdepth", 16, nullptr), 0);
    const auto frame = normalise(path);
    EXPECT_EQ(frame.pixel(5, 5)[0], 255);
    EXPECT_EQ(frame.pixel(35, 5)[0], 0);
    EXPECT_EQ(frame.pixel(35, 5)[3], 255);
}

TEST_F(NormalisationTest, GreyJpegBecomesRgb) {
    auto image = halves(1, 200, 40);
    VipsImage* cast = nullptr;
    vips_cast(image.get(), &cast, VIPS_FORMAT_UCHAR, nullptr);
    auto grey = own(cast);
    grey->Type = VIPS_INTERPRETATION_B_W;
    const auto path = folder.path() / "grey.jpg";
    ASSERT_EQ(vips_jpegsave(grey.get(), path.c_str(), "Q", 95, nullptr), 0);
    const auto frame = normalise(path);
    const auto* left = frame.pixel(5, 10);
    EXPECT_NEAR(left[0], 200, 4);
    EXPECT_NEAR(left[1], 200, 4);
    EXPECT_NEAR(left[2], 200, 4);
    EXPECT_NEAR(frame.pixel(35, 10)[2], 40, 4);
}

TEST_F(NormalisationTest, CmykJpegWithProfileIsConvertedToSrgb) {
    auto image = halves(3, 230, 20);
    VipsImage* cast = nullptr;
    vips_cast(image.get(), &cast, VIPS_FORMAT_UCHAR, nullptr);
    auto rgb = own(cast);
    rgb->Type = VIPS_INTERPRETATION_sRGB;
    VipsImage* cmykRaw = nullptr;
    ASSERT_EQ(vips_icc_export(rgb.get(), &cmykRaw, "output_profile", "cmyk", nullptr), 0)
        << vips_error_buffer();
    auto cmyk = own(cmykRaw);
    const auto path = folder.path() / "cmyk.jpg";
    ASSERT_EQ(vips_jpegsave(cmyk.get(), path.c_str(), "Q", 95, nullptr), 0) << vips_error_buffer();
    const auto frame = normalise(path);
    // A generic CMYK profile does not round-trip exactly; read as RGB the inks would be far off.
    EXPECT_NEAR(frame.pixel(5, 10)[0], 230, 25);
    EXPECT_NEAR(frame.pixel(35, 10)[1], 20, 25);
    EXPECT_EQ(frame.pixel(35, 10)[3], 255);
}

TEST_F(NormalisationTest, ExifOrientationIsApplied) {
    auto image = halves(3, 250, 0);
    VipsImage* cast = nullptr;
    vips_cast(image.get(), &cast, VIPS_FORMAT_UCHAR, nullptr);
    auto rgb = own(cast);
    rgb->Type = VIPS_INTERPRETATION_sRGB;
    VipsImage* copy = nullptr;
    vips_copy(rgb.get(), &copy, nullptr);
    auto tagged = own(copy);
    vips_image_set_int(tagged.get(), VIPS_META_ORIENTATION, 6); // turn 90° clockwise to view
    const auto path = folder.path() / "rotated.jpg";
    ASSERT_EQ(vips_jpegsave(tagged.get(), path.c_str(), "Q", 95, nullptr), 0);
    const auto frame = normalise(path);
    ASSERT_EQ(frame.width, 20);
    ASSERT_EQ(frame.height, 40);
    // The bright left half ends up on top.
    EXPECT_GT(frame.pixel(10, 5)[0], 200);
    EXPECT_LT(frame.pixel(10, 35)[0], 50);
}

} // namespace
} // namespace lumivesper::exporting
