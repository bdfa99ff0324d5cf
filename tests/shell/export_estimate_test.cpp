#include "../support/temporary_folder.h"
#include "platform/image_io.h"
#include "shell/export_estimate.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>

namespace lumivesper::shell {
namespace {

class UpscaleEstimatorTest : public ::testing::Test {
protected:
    document::WallpaperImage photo(const std::string& name, int width, int height,
                                   bool isTween = false) {
        platform::PixelImage pixels(width, height);
        document::WallpaperImage image;
        image.fileName = name;
        image.isTween = isTween;
        image.sourcePath = folder.path() / name;
        platform::writePng(pixels, *image.sourcePath);
        return image;
    }

    bool waitForText(const std::string& expected) {
        return mainThread.runUntil([&] { return estimator.text() == expected; },
                                   std::chrono::seconds(20));
    }

    testing::TemporaryFolder folder;
    platform::QueuedMainThread mainThread;
    std::optional<double> seconds = 10.0;
    UpscaleEstimator estimator{mainThread, [this] { return seconds; }};
};

// Key frames are read from their files; tweens, blended from the upscaled keys, cost nothing.
TEST_F(UpscaleEstimatorTest, CountsTheKeyFramesTilesUnderTheOptions) {
    const std::vector<document::WallpaperImage> images{
        photo("a.png", 1024, 576), photo("t.png", 1024, 576, true), photo("b.png", 1024, 576)};
    exporting::HeicExportOptions options; // 8K, upscaling on, auto: 51 tiles a frame
    int notified = 0;
    auto subscription = estimator.observe([&] { ++notified; });
    estimator.request(images, options);
    EXPECT_TRUE(waitForText("Upscaling takes about 17 min: 102 tiles in 2 frames, 10.0 s a tile "
                            "as measured on this computer."))
        << estimator.text();
    EXPECT_EQ(notified, 1);

    options.upscaleEnabled = false;
    estimator.request(images, options);
    EXPECT_EQ(estimator.text(), "");
    EXPECT_EQ(notified, 2);

    seconds.reset();
    options.upscaleEnabled = true;
    options.canvasPreset = exporting::HeicCanvasPreset::matchSource; // one pass of 4 each
    estimator.request(images, options);
    EXPECT_TRUE(waitForText("Upscaling: 12 tiles in 2 frames. The time a tile takes on this "
                            "computer is measured by the first export."))
        << estimator.text();
}

// Counts what reaches the main thread, so that a test knows when a worker has reported.
class CountingMainThread final : public platform::MainThread {
public:
    void post(std::function<void()> work) override {
        queue.post(std::move(work));
        ++posts;
    }
    platform::QueuedMainThread queue;
    std::atomic<int> posts = 0;
};

TEST_F(UpscaleEstimatorTest, ANewerRequestDropsTheOlderResult) {
    const std::vector<document::WallpaperImage> images{photo("a.png", 1024, 576)};
    CountingMainThread main;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::promise<void> entered;
    std::atomic<int> calls = 0;
    UpscaleEstimator racing(main, [&]() -> std::optional<double> {
        if (++calls == 1) {
            entered.set_value();
            released.wait(); // the first request is still measuring...
        }
        return 10.0;
    });
    std::vector<std::string> shown;
    auto subscription = racing.observe([&] { shown.push_back(racing.text()); });
    exporting::HeicExportOptions options;
    racing.request(images, options);
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    options.canvasPreset = exporting::HeicCanvasPreset::apple6k; // one pass of 4 reaches 6K
    racing.request(images, options);                             // ...when the second one is asked
    const std::string newer = "Upscaling takes about 1 min: 6 tiles in 1 frame, 10.0 s a tile "
                              "as measured on this computer.";
    ASSERT_TRUE(
        main.queue.runUntil([&] { return racing.text() == newer; }, std::chrono::seconds(20)));
    release.set_value();
    ASSERT_TRUE(main.queue.runUntil([&] { return main.posts == 2; }, std::chrono::seconds(20)));
    main.queue.drain();
    EXPECT_EQ(shown, std::vector<std::string>{newer});
}

} // namespace
} // namespace lumivesper::shell
