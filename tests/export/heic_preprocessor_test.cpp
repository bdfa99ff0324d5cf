#include "../support/temporary_folder.h"
#include "export/export_options.h"
#include "export/frame_resize.h"
#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/heic_preprocessor.h"
#include "export_test_support.h"
#include "platform/image_io.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <vips/vips.h>

namespace lumivesper::exporting {
namespace {

using document::WallpaperImage;
using ::testing::ElementsAre;

class HeicPreprocessorTest : public ::testing::Test {
protected:
    WallpaperImage solid(const std::string& name, int width, int height, std::uint8_t value = 0) {
        return testing::solidImage(folder.path(), name, width, height, value);
    }

    // A 6x4 grey frame in the sky, as the optimized path sees it.
    WallpaperImage grey(const std::string& name, std::uint8_t value, double altitude,
                        bool isTween = false) {
        auto image = solid(name, 6, 4, value);
        image.altitude = altitude;
        image.azimuth = 100;
        image.isTween = isTween;
        return image;
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

    void report(int current, int total, const std::string& message) {
        std::lock_guard lock(mutex);
        reports.push_back(std::to_string(current) + "/" + std::to_string(total) + " " + message);
    }

    HeicPreprocessSession run(const HeicPreprocessConfig& configuration,
                              const std::vector<WallpaperImage>& images) {
        return HeicPreprocessor(configuration).preprocess(images, [this](int c, int t, auto& m) {
            report(c, t, m);
        });
    }

    PreparedFrames prepare(const std::vector<WallpaperImage>& images,
                           const HeicPreprocessConfig& configuration, int total) {
        return HeicGenerator().prepareFrames(
            images, configuration, total, [this](int c, int t, auto& m) { report(c, t, m); }, {});
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
    EXPECT_EQ(upscaler->factorRequests + upscaler->upscales, 0);
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
    EXPECT_THAT(filesIn(session.directory), ElementsAre("frame_0001.png", "frame_0002.png"));

    std::filesystem::remove_all(session.directory);
    reports.clear();
    configuration = config(FrameSize{80, 40}, true); // 20x10 needs two passes of 2
    configuration.upscaleStrategy = upscale::HeicUpscaleStrategy::max;
    upscaler->tilesPerUpscale = 2;
    EXPECT_EQ(run(configuration, {solid("a.png", 20, 10)}).frames.at(0).size, (FrameSize{80, 40}));
    EXPECT_EQ(upscaler->upscales, 2);
    // Each pass is announced as it always was; its tiles follow with the same frame text.
    EXPECT_THAT(reports, ElementsAre("0/1 Upscaling frame 1/1 (pass 1/2)",
                                     "0/1 Upscaling frame 1/1 (pass 1/2): tile 1/2",
                                     "0/1 Upscaling frame 1/1 (pass 1/2): tile 2/2",
                                     "0/1 Upscaling frame 1/1 (pass 2/2)",
                                     "0/1 Upscaling frame 1/1 (pass 2/2): tile 1/2",
                                     "0/1 Upscaling frame 1/1 (pass 2/2): tile 2/2",
                                     "1/1 Preprocessed frame 1/1"));
    EXPECT_THAT(filesIn(configuration.outputDirectory), ElementsAre("frame_0001.png"));
}

TEST_F(HeicPreprocessorTest, FramesTakeTheUpscalerInTheirOrderSoThatAnAnnouncedPassIsTheOneRunning) {
    // Three frames in flight share the upscaler. The driver reads "Upscaling frame 3/N" as "frames 1
    // and 2 are done": frame 3 must not be announced while they still wait for the engine.
    upscaler->tilesPerUpscale = 2;
    upscaler->beforeUpscale = [](const std::filesystem::path&) { // long enough for all to arrive
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    };
    const auto configuration = config(FrameSize{40, 20}, true);
    run(configuration, {solid("a.png", 20, 10), solid("b.png", 20, 10), solid("c.png", 20, 10)});
    std::vector<std::string> upscaling;
    for (const auto& report : reports)
        if (report.find("Upscaling frame") != std::string::npos)
            upscaling.push_back(report.substr(report.find("frame ") + 6));
    EXPECT_THAT(upscaling, ElementsAre("1/3 (pass 1/1)", "1/3 (pass 1/1): tile 1/2",
                                       "1/3 (pass 1/1): tile 2/2", "2/3 (pass 1/1)",
                                       "2/3 (pass 1/1): tile 1/2", "2/3 (pass 1/1): tile 2/2",
                                       "3/3 (pass 1/1)", "3/3 (pass 1/1): tile 1/2",
                                       "3/3 (pass 1/1): tile 2/2"));
}

TEST_F(HeicPreprocessorTest, CountsFinishOutOfOrderWhileFramesKeepTheirOrder) {
    // Only the first frame is small enough to need upscaling, and its pass waits until the other
    // two have finished.
    const auto finishedCount = [&] {
        std::lock_guard lock(mutex);
        return std::count_if(reports.begin(), reports.end(), [](const std::string& report) {
            return report.find("Preprocessed") != std::string::npos;
        });
    };
    upscaler->beforeUpscale = [&](const std::filesystem::path&) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (finishedCount() < 2 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    };
    const auto session = run(config(FrameSize{8, 8}, true),
                             {solid("a.png", 4, 4), solid("b.png", 8, 8), solid("c.png", 12, 12)});
    std::vector<std::string> finished;
    for (const auto& report : reports)
        if (report.find("Preprocessed") != std::string::npos)
            finished.push_back(report);
    EXPECT_THAT(finished, ElementsAre("1/3 Preprocessed frame 1/3", "2/3 Preprocessed frame 2/3",
                                      "3/3 Preprocessed frame 3/3"));
    EXPECT_EQ(upscaler->upscales, 1);
    ASSERT_EQ(session.frames.size(), 3u);
    EXPECT_EQ(session.frames[0].image.fileName, "a.png"); // finished last, kept its slot
    EXPECT_EQ(session.frames[2].image.fileName, "c.png");
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
    platform::PixelImage dithered(64, 64);
    for (std::size_t i = 0; i < dithered.rgba.size(); ++i)
        dithered.rgba[i] = i % 4 == 3 ? 255 : 128;
    dither(dithered, 7);
    int changed = 0;
    double sum = 0;
    for (std::size_t i = 0; i < dithered.rgba.size(); ++i) {
        const int difference = int(dithered.rgba[i]) - (i % 4 == 3 ? 255 : 128);
        EXPECT_LE(std::abs(difference), 6) << i;
        changed += difference != 0;
        sum += difference;
        EXPECT_TRUE(i % 4 != 3 || difference == 0) << "alpha " << i;
    }
    EXPECT_GT(changed, 1000);
    // Mid-grey gets about as much noise (~1% of 255) as it loses (~1% of 128).
    EXPECT_NEAR(sum / (64 * 64 * 3), 255 * 0.01 - 128 * 0.01, 0.5);
}

// A zone plate: grey 0.5 + 0.5 cos(pi k r^2) around the centre, whose local frequency k r (cycles
// per pixel) climbs from 0 at the centre to the source's Nyquist 0.5 at radius `size` / 2.
platform::PixelImage zonePlate(int size) {
    platform::PixelImage image(size, size);
    const double k = 0.5 / (size / 2.0);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const double dx = x + 0.5 - size / 2.0, dy = y + 0.5 - size / 2.0;
            const double value = 127.5 + 127.5 * std::cos(M_PI * k * (dx * dx + dy * dy));
            std::uint8_t* pixel = image.pixel(x, y);
            pixel[0] = pixel[1] = pixel[2] = static_cast<std::uint8_t>(std::lround(value));
            pixel[3] = 255;
        }
    return image;
}

// The standard deviation of the output's grey over the pixels whose place in the source has a
// local frequency between `low` and `high`, as fractions of the output's Nyquist frequency:
// about 90 where the pattern keeps its full contrast, near 0 where it came out flat.
double contrastBetween(const platform::PixelImage& output, int sourceSize, double low,
                       double high) {
    const double scale = double(sourceSize) / output.width; // source pixels per output pixel
    const double k = 0.5 / (sourceSize / 2.0);
    const double nyquist = 0.5 / scale; // in cycles per source pixel
    double sum = 0, squares = 0;
    int count = 0;
    for (int y = 0; y < output.height; ++y)
        for (int x = 0; x < output.width; ++x) {
            const double dx = (x + 0.5) * scale - sourceSize / 2.0;
            const double dy = (y + 0.5) * scale - sourceSize / 2.0;
            const double frequency = k * std::hypot(dx, dy) / nyquist;
            if (frequency < low || frequency > high)
                continue;
            const double grey = output.pixel(x, y)[1];
            sum += grey;
            squares += grey * grey;
            ++count;
        }
    EXPECT_GT(count, 500) << "band " << low << " to " << high;
    const double mean = sum / count;
    return std::sqrt(std::max(0.0, squares / count - mean * mean));
}

TEST(FrameResizeTest, ShrinkingFiltersWhatTheCanvasCannotHoldAndKeepsWhatItCan) {
    constexpr int size = 1024;
    const auto plate = zonePlate(size);
    struct Case {
        int canvas;
        double passLow, passHigh; // in this band, as fractions of the output's Nyquist, contrast
        double stopLow; // from here to (nearly) the source's own Nyquist, flat; 0: nothing to stop
    };
    // 481 is the default path's shrink by 2.13; Lanczos 3 rolls off between about 0.6 and 1.5
    // times the Nyquist frequency, and above that the pattern must be gone (a kernel that is not
    // widened leaves it at nearly full contrast, as moiré). 2181 is an enlargement by the same
    // factor, where the whole pattern lies below the output's Nyquist.
    for (const auto& [canvas, passLow, passHigh, stopLow] :
         {Case{481, 0.05, 0.4, 1.5}, Case{2181, 0.02, 0.25, 0}}) {
        const auto output = fillAndCrop(plate, canvas, canvas);
        ASSERT_EQ(output.width, canvas);
        EXPECT_GT(contrastBetween(output, size, passLow, passHigh), 80) << canvas;
        const double sourceNyquist = double(size) / canvas; // in output terms
        if (stopLow > 0) {
            EXPECT_LT(contrastBetween(output, size, stopLow, 0.95 * sourceNyquist), 4) << canvas;
        }
    }
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

TEST_F(NormalisationTest, DeepGreyCmykAndTurnedInputsBecomeUprightEightBitSrgba) {
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

    auto rgb = halves(3, 230, 20, VIPS_FORMAT_UCHAR, VIPS_INTERPRETATION_sRGB);
    VipsImage* cmyk = nullptr;
    ASSERT_EQ(vips_icc_export(rgb.get(), &cmyk, "output_profile", "cmyk", nullptr), 0)
        << vips_error_buffer();
    const VipsPtr owned(cmyk, &g_object_unref);
    ASSERT_EQ(vips_jpegsave(cmyk, (folder.path() / "cmyk.jpg").c_str(), "Q", 95, nullptr), 0);
    const auto cmykFrame = normalise("cmyk.jpg");
    // A generic CMYK profile does not round-trip exactly; read as RGB the inks would be far off.
    EXPECT_NEAR(cmykFrame.pixel(5, 10)[0], 230, 25);
    EXPECT_NEAR(cmykFrame.pixel(35, 10)[1], 20, 25);
    EXPECT_EQ(cmykFrame.pixel(35, 10)[3], 255);

    vips_image_set_int(rgb.get(), VIPS_META_ORIENTATION, 6); // turn 90° clockwise to view
    ASSERT_EQ(vips_jpegsave(rgb.get(), (folder.path() / "turned.jpg").c_str(), "Q", 95, nullptr),
              0);
    const auto turned = normalise("turned.jpg");
    ASSERT_EQ(std::pair(turned.width, turned.height), std::pair(20, 40));
    EXPECT_GT(turned.pixel(10, 5)[0], 200); // the bright left half ends up on top
    EXPECT_LT(turned.pixel(10, 35)[0], 50);
}

TEST(TweenBlendFactorTest, FollowsTheSunsClimbBetweenTheKeyFrames) {
    const double none = std::nan("");
    auto at = [&](double altitude) {
        WallpaperImage image;
        image.altitude = std::isnan(altitude) ? std::nullopt : std::optional(altitude);
        return image;
    };
    // previous, tween, next, expected: halfway up; a fraction of the climb, not of the run; equal
    // keys; no altitude on a key or on the tween; above and below both, rising and falling.
    const double cases[][4] = {{0, 15, 30, 0.5},   {0, 6, 30, 0.2},    {20, 5, 20, 0.5},
                               {none, 5, 20, 0.5}, {0, none, 20, 0.5}, {0, 50, 30, 1.0},
                               {0, -10, 30, 0.0},  {40, 50, 10, 0.0},  {40, 0, 10, 1.0}};
    for (const auto& [previous, tween, next, expected] : cases)
        EXPECT_DOUBLE_EQ(tweenBlendFactor(at(tween), at(previous), at(next)), expected)
            << previous << ", " << tween << ", " << next;
}

// The optimized path: only key frames are upscaled, and the tweens are blended again from them.
using FramePreparationTest = HeicPreprocessorTest;

TEST_F(FramePreparationTest, OptimizedPathBlendsTweensFromUpscaledKeysWithWrapAround) {
    // The stored tween files are deliberately wrong (value 7): they must not be used.
    const std::vector<WallpaperImage> images = {
        grey("t0.png", 7, 5, true),  // before the first key: previous wraps to the last key
        grey("a.png", 0, 0),         // key, black
        grey("t1.png", 7, 15, true), // halfway between a and b
        grey("b.png", 200, 30),      // key
        grey("t2.png", 7, 10, true), // after the last key: next wraps to the first
    };
    auto configuration = config({}, true);
    configuration.keepPreprocessedFrames = true;
    const auto prepared = prepare(images, configuration, 10);
    ASSERT_EQ(prepared.frames.size(), 5u);
    for (std::size_t n = 0; n < images.size(); ++n) {
        EXPECT_EQ(prepared.frames[n].image.id, images[n].id) << n;
        EXPECT_EQ(platform::readImageSize(prepared.frames[n].url), (platform::ImageSize{12, 8}));
    }
    EXPECT_EQ(upscaler->upscales, 2); // key frames only
    // t0: from b (30) to a (0) at altitude 5: t = 25/30. t1: 0.5. t2: from b to a at 10: 2/3.
    EXPECT_NEAR(platform::loadImage(prepared.frames[0].url).rgba[0], 200 * (1 - 25.0 / 30), 1);
    EXPECT_NEAR(platform::loadImage(prepared.frames[2].url).rgba[0], 100, 1);
    EXPECT_NEAR(platform::loadImage(prepared.frames[4].url).rgba[0], 200 * (1 - 20.0 / 30), 1);
    EXPECT_EQ(prepared.frames[2].url.filename(), "tween_0001.png");

    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.front(), "0/10 Upscaling 2 key frames...");
    EXPECT_EQ(reports.back(), "10/10 Regenerating tweens (3/3)...");
    for (const auto& report : reports) { // the key frames fill 98% at most
        EXPECT_TRUE(report.find("/10 ") != std::string::npos) << report;
        EXPECT_FALSE(report.starts_with("10/10 Preprocessed")) << report;
    }
    EXPECT_FALSE(prepared.cleanup); // kept frames have nothing to clean
}

TEST_F(FramePreparationTest, OnlyTweensCannotBeUpscaled) {
    EXPECT_EQ(
        testing::failure<HeicGeneratorError>([&] {
            prepare({grey("t.png", 1, 5, true), grey("u.png", 1, 6, true)}, config({}, true), 4);
        }),
        "Invalid configuration: No key frames found (only tweens)");
}

TEST_F(FramePreparationTest, AFailedEncodingStillRemovesTheTemporaryFrames) {
    // The encoder fails (no output folder) after preparation; success is covered by the command.
    const auto configuration = config({}, true);
    EXPECT_THROW(HeicGenerator().generate({grey("a.png", 0, 0), grey("t.png", 7, 15, true)},
                                          folder.path() / "none" / "out.heic",
                                          document::WallpaperMode::time, configuration, nullptr),
                 HeicGeneratorError);
    EXPECT_FALSE(std::filesystem::exists(configuration.outputDirectory));
}

TEST(ExportOptionsTest, CanvasPresetsAndCustomSizes) {
    HeicExportOptions options;
    EXPECT_EQ(options.targetSize(), (FrameSize{7680, 4320}));
    options.canvasPreset = HeicCanvasPreset::matchSource;
    EXPECT_EQ(options.targetSize(), std::nullopt);

    options.canvasPreset = HeicCanvasPreset::custom;
    const std::pair<std::string, bool> widths[] = {
        {"100 ", true}, {" 3840\n", true}, {"12.5", true},  {"abc", false}, {"0", false},
        {"-5", false},  {"", false},       {"10px", false}, {"inf", false}};
    for (const auto& [width, valid] : widths) {
        options.customWidth = width;
        EXPECT_EQ(options.targetSize().has_value(), valid) << "'" << width << "'";
        EXPECT_EQ(options.validationError(),
                  valid ? std::nullopt
                        : std::optional<std::string>("Enter a valid custom canvas size."))
            << "'" << width << "'";
    }
    options.resizeEnabled = false;
    EXPECT_EQ(options.targetSize(), std::nullopt);
    EXPECT_EQ(options.validationError(), std::nullopt);
}

TEST(ExportOptionsTest, ConfigurationOnlyWhenSomethingChangesTheFrames) {
    const auto upscaler = std::make_shared<testing::FakeUpscaler>(std::set<int>{4});
    HeicExportOptions options;
    options.resizeEnabled = false;
    EXPECT_FALSE(makePreprocessConfig(options, nullptr)); // upscaling wanted, but no upscaler
    options.upscaleEnabled = false;
    EXPECT_FALSE(makePreprocessConfig(options, upscaler));
    options.resizeEnabled = true;
    const auto config = makePreprocessConfig(options, upscaler);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->upscaler, nullptr);
    EXPECT_EQ(config->upscaleStrategy, upscale::HeicUpscaleStrategy::off);
    EXPECT_EQ(config->targetSize, (FrameSize{7680, 4320}));
}

} // namespace
} // namespace lumivesper::exporting
