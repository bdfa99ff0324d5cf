#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/upscale/upscale_error.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"
#include "shell/export_driver.h"
#include "shell_fixture.h"
#include "tools/process_runner_error.h"

#include <condition_variable>
#include <fstream>
#include <mutex>

namespace lumivesper::shell {
namespace {

using exporting::HeicPreprocessConfig;
using exporting::ProgressCallback;

class ExportDriverTest : public ShellTest {
protected:
    ExportDriverTest() {
        auto key1 = image("k1.png");
        auto tween = image("t1.png", true);
        auto key2 = image("k2.png");
        state.replaceImages({key1, tween, key2}, "Setup", false);
        state.setMode(document::WallpaperMode::appearance); // keeps this order
    }

    ExportDriver makeDriver(
        ExportDriver::Generator generator,
        ExportDriver::UpscalerFactory upscaler = [] { return nullptr; }) {
        return ExportDriver(state, ui, dialogs, mainThread, std::move(upscaler),
                            std::move(generator));
    }

    bool runUntilDone(ExportDriver& driver) {
        return mainThread.runUntil([&] { return !driver.state().isExportingHeic; },
                                   std::chrono::seconds(20));
    }

    platform::QueuedMainThread mainThread;
    std::filesystem::path destination = folder.path() / "out" / "wall.heic";
};

TEST_F(ExportDriverTest, StatusesFollowTheGeneratorsMessages) {
    std::vector<std::vector<ExportFrameStatus>> seen;
    auto driver = makeDriver(
        [&](auto&&, auto&&, auto, int, auto&&, const ProgressCallback& progress, std::stop_token) {
            progress(0, 6, "Starting generation...");
            progress(1, 6, "Upscaling frame 2/2 (pass 1/2)");
            progress(4, 6, "Regenerating tweens...");
            progress(6, 6, "Encoded image 1/3");
        });
    auto subscription = driver.observe([&] {
        std::vector<ExportFrameStatus> statuses;
        for (const auto& frame : driver.state().exportFrames)
            statuses.push_back(frame.status);
        seen.push_back(statuses);
    });
    driver.exportTo(destination, {false, false, {}});
    EXPECT_EQ(driver.state().exportMessage, "Preparing export...");
    ASSERT_EQ(driver.state().exportFrames.size(), 3u);
    EXPECT_FALSE(driver.state().exportFrames[1].isKeyFrame);
    ASSERT_TRUE(runUntilDone(driver));

    using S = ExportFrameStatus;
    const std::vector<std::vector<S>> expected = {
        {S::pending, S::pending, S::pending},    // started
        {S::pending, S::pending, S::pending},    // "Starting generation..."
        {S::complete, S::pending, S::upscaling}, // key frame 2 of 2: the tween is not touched
        {S::complete, S::blending, S::complete}, {S::complete, S::complete, S::complete},
    };
    ASSERT_GE(seen.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(seen[i], expected[i]) << i;
    EXPECT_EQ(driver.state().exportMessage, "Export complete!");
    EXPECT_DOUBLE_EQ(driver.state().exportProgress, 1.0);
    EXPECT_EQ(ui.lastExportDirectory(), destination.parent_path());
}

TEST(ExportFrameStatusTest, TakesTheFirstFractionOfTheMessage) {
    std::vector<ExportFrameInfo> frames(4);
    frames[1].isKeyFrame = false;
    updateFrameStatuses(frames, "Upscaling frame 3/12 (pass 1/2)");
    EXPECT_EQ(frames[0].status, ExportFrameStatus::complete);
    EXPECT_EQ(frames[1].status, ExportFrameStatus::pending);
    EXPECT_EQ(frames[2].status, ExportFrameStatus::complete);
    EXPECT_EQ(frames[3].status, ExportFrameStatus::upscaling);
    // The tile reports of a pass mark the same frames.
    std::vector<ExportFrameInfo> tiled(4);
    tiled[1].isKeyFrame = false;
    updateFrameStatuses(tiled, "Upscaling frame 3/12 (pass 2/2): tile 40/45");
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_EQ(tiled[i].status, frames[i].status) << i;

    std::vector<ExportFrameInfo> unchanged(2);
    updateFrameStatuses(unchanged, "Upscaling frame without numbers");
    updateFrameStatuses(unchanged, "Creating time-based wallpaper...");
    EXPECT_EQ(unchanged[0].status, ExportFrameStatus::pending);

    std::vector<ExportFrameInfo> onlyTweens(2);
    for (auto& frame : onlyTweens)
        frame.isKeyFrame = false;
    updateFrameStatuses(onlyTweens, "Preprocessed frame 1/1");
    EXPECT_EQ(onlyTweens[0].status, ExportFrameStatus::pending);
    updateFrameStatuses(onlyTweens, "Encoded image 2/2");
    EXPECT_EQ(onlyTweens[1].status, ExportFrameStatus::complete);
}

TEST_F(ExportDriverTest, GeneratorFailureShowsTheGeneralText) {
    auto driver =
        makeDriver([](auto&&...) { throw exporting::HeicGeneratorError::heicCreationFailed(); });
    driver.exportTo(destination, {false, false, {}});
    ASSERT_TRUE(runUntilDone(driver));
    EXPECT_EQ(driver.state().exportMessage, "Export failed. Please try again.");
    EXPECT_FALSE(driver.state().hasExportTask);
}

TEST_F(ExportDriverTest, UpscalerThatCannotLoadShowsItsDescription) {
    bool generatorRan = false;
    auto driver = makeDriver([&](auto&&...) { generatorRan = true; },
                             []() -> std::shared_ptr<upscale::ImageUpscalingTool> {
                                 throw upscale::UpscaleError::modelLoadFailed();
                             });
    driver.exportTo(destination, {true, false, {}});
    ASSERT_TRUE(runUntilDone(driver));
    EXPECT_EQ(driver.state().exportMessage,
              "Export failed: " + upscale::UpscaleError::modelLoadFailed().description());
    EXPECT_FALSE(generatorRan);
}

TEST_F(ExportDriverTest, RunnerErrorsHaveTheirOwnTexts) {
    const auto missing = tools::ProcessRunnerError::missingExecutable("/opt/tool");
    EXPECT_EQ(exportFailureMessage(missing), "Export failed: AI tools are not available.");
    const auto failed =
        tools::ProcessRunnerError::nonZeroExit(tools::ProcessResult{3, "", "boom", std::nullopt},
                                               tools::ProcessRunContext{"/opt/tool", {}, {}});
    EXPECT_EQ(exportFailureMessage(failed),
              "Export failed: AI tools could not process the images.");
}

TEST_F(ExportDriverTest, CancelMidRunEndsWithCancelledAndStopsTheGenerator) {
    std::mutex mutex;
    std::condition_variable changed;
    bool started = false;
    bool sawStop = false;
    {
        auto driver =
            makeDriver([&](auto&&, auto&&, auto, int, auto&&, auto&&, std::stop_token stop) {
                std::unique_lock lock(mutex);
                started = true;
                changed.notify_all();
                std::condition_variable_any wait;
                wait.wait_for(lock, stop, std::chrono::seconds(20), [] { return false; });
                sawStop = stop.stop_requested();
                platform::throwIfCancelled(stop);
            });
        driver.exportTo(destination, {false, false, {}});
        {
            std::unique_lock lock(mutex);
            ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] { return started; }));
        }
        driver.cancelExport();
        EXPECT_FALSE(driver.state().isExportingHeic);
        EXPECT_EQ(driver.state().exportMessage, "Export cancelled");
        EXPECT_TRUE(driver.state().exportFrames.empty());
        mainThread.drain(); // the task's own ending does not bring back a stale state
        EXPECT_EQ(driver.state().exportMessage, "Export cancelled");
    } // the driver joins its worker
    std::lock_guard lock(mutex);
    EXPECT_TRUE(sawStop);
}

TEST_F(ExportDriverTest, ClosingStopsAnExportAfterTheFrameInHandAndWritesNothing) {
    std::vector<document::WallpaperImage> images;
    for (const std::string name : {"a.png", "b.png", "c.png"}) {
        platform::PixelImage pixels(16, 8);
        std::fill(pixels.rgba.begin(), pixels.rgba.end(), std::uint8_t{255});
        platform::writePng(pixels, folder.path() / name);
        images.push_back(image(name));
        images.back().sourcePath = folder.path() / name;
    }
    state.replaceImages(images, "Setup", false);
    state.setMode(document::WallpaperMode::time);
    std::filesystem::create_directories(destination.parent_path());

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> messages;
    {
        auto driver = makeDriver([&](const auto& frames, const auto& output, auto mode, int,
                                     const auto& config, auto&&, std::stop_token stop) {
            exporting::HeicGenerator().generate(
                frames, output, mode, config,
                [&](int, int, const std::string& message) {
                    std::unique_lock lock(mutex);
                    messages.push_back(message);
                    changed.notify_all();
                    // As if the next frame took minutes: only the driver's going ends the wait.
                    if (message == "Encoded image 1/3")
                        std::condition_variable_any().wait_for(lock, stop, std::chrono::seconds(20),
                                                               [] { return false; });
                },
                stop);
        });
        driver.exportTo(destination, {false, false, {}});
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] {
            return !messages.empty() && messages.back() == "Encoded image 1/3";
        }));
    } // the driver goes, as when the application quits
    // Frames already encoding in parallel may still report; the file is never written.
    EXPECT_EQ(messages.back().rfind("Encoded image", 0), 0u) << messages.back();
    EXPECT_FALSE(std::filesystem::exists(destination));
}

TEST_F(ExportDriverTest, AFailedOrCancelledExportRemovesItsFramesUnlessTheyAreKept) {
    const auto frames = folder.path() / "LumivesperAIPreprocess-1";
    struct Case {
        std::exception_ptr ending;
        bool keep;
    };
    for (const auto& [ending, keep] :
         {Case{std::make_exception_ptr(exporting::HeicGeneratorError::fileWriteFailed()), false},
          Case{std::make_exception_ptr(platform::CancellationError()), false},
          Case{std::make_exception_ptr(exporting::HeicGeneratorError::fileWriteFailed()), true}}) {
        auto makeConfig = [&](std::shared_ptr<upscale::ImageUpscalingTool>) {
            HeicPreprocessConfig config;
            config.enableDither = true;
            config.outputDirectory = frames;
            config.keepPreprocessedFrames = keep;
            return std::optional(config);
        };
        // As preprocessing does when a later frame fails: the first frame's file is written.
        auto driver = makeDriver([&](auto&&, auto&&, auto, int, const auto& config, auto&&, auto) {
            std::filesystem::create_directories(config->outputDirectory);
            std::ofstream(config->outputDirectory / "frame_0001.png") << "pixels";
            std::rethrow_exception(ending);
        });
        driver.exportTo(destination, {false, keep, makeConfig});
        ASSERT_TRUE(runUntilDone(driver));
        EXPECT_EQ(std::filesystem::exists(frames / "frame_0001.png"), keep)
            << driver.state().exportMessage;
    }
}

TEST_F(ExportDriverTest, KeptFramesChangeTheClosingMessageOnlyWithAConfiguration) {
    auto withConfig = [](std::shared_ptr<upscale::ImageUpscalingTool>) {
        return std::optional<HeicPreprocessConfig>(HeicPreprocessConfig{});
    };
    auto noConfig = [](std::shared_ptr<upscale::ImageUpscalingTool>) {
        return std::optional<HeicPreprocessConfig>();
    };
    auto driver = makeDriver([](auto&&...) {});
    driver.exportTo(destination, {false, true, withConfig});
    ASSERT_TRUE(runUntilDone(driver));
    EXPECT_EQ(driver.state().exportMessage, "Export complete! Preprocessed frames kept for reuse.");
    driver.exportTo(destination, {false, true, noConfig});
    ASSERT_TRUE(runUntilDone(driver));
    EXPECT_EQ(driver.state().exportMessage, "Export complete!");
}

TEST_F(ExportDriverTest, SavePanelSuggestsTheProjectsName) {
    EXPECT_EQ(suggestedExportFileName(std::nullopt), "dynamic-wallpaper.heic");
    EXPECT_EQ(suggestedExportFileName(std::filesystem::path("/p/Fjord Day.lvesper")),
              "Fjord Day.heic");

    auto driver = makeDriver([](auto&&...) {});
    dialogs.saveAnswers = {std::nullopt};
    driver.startExport({false, false, {}});
    dialogs.mainThread.drain();
    ASSERT_EQ(dialogs.savePanels.size(), 1u);
    EXPECT_EQ(dialogs.savePanels[0].nameFieldStringValue, "dynamic-wallpaper.heic");
    EXPECT_FALSE(driver.state().isExportingHeic); // cancelled panel: nothing happens
}

TEST_F(ExportDriverTest, SheetOptionsReachTheGeneratorAsAConfiguration) {
    std::optional<HeicPreprocessConfig> received;
    bool upscalerMade = false;
    auto driver =
        makeDriver([&](auto&&, auto&&, auto, int, const std::optional<HeicPreprocessConfig>& config,
                       auto&&, std::stop_token) { received = config; },
                   [&]() -> std::shared_ptr<upscale::ImageUpscalingTool> {
                       upscalerMade = true;
                       return nullptr; // as when no model is installed
                   });
    ui.setExportOptions({}); // defaults: 8K canvas, upscaling on
    driver.exportTo(destination, exportSettings(ui.exportOptions()));
    ASSERT_TRUE(runUntilDone(driver));
    EXPECT_TRUE(upscalerMade);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->targetSize, (exporting::FrameSize{7680, 4320}));
    EXPECT_FALSE(received->upscaler);

    auto options = ui.exportOptions();
    options.resizeEnabled = false;
    options.upscaleEnabled = false;
    ui.setExportOptions(options);
    upscalerMade = false;
    driver.exportTo(destination, exportSettings(ui.exportOptions()));
    ASSERT_TRUE(runUntilDone(driver));
    EXPECT_FALSE(upscalerMade);
    EXPECT_FALSE(received); // the sources go straight to the encoder
}

} // namespace
} // namespace lumivesper::shell
