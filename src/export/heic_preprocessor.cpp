#include "export/heic_preprocessor.h"

#include "export/frame_resize.h"
#include "export/heic_generator_error.h"
#include "export/upscale/image_upscaling_tool.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"
#include "platform/task_group.h"

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace lumivesper::exporting {

namespace {

std::string framePrefix(std::size_t position) {
    char text[32];
    std::snprintf(text, sizeof text, "frame_%04zu", position + 1);
    return text;
}

void removeQuietly(const std::filesystem::path& path) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

// Shared by the frames in flight: the count of finished frames, and one lock for every report so
// that the callback never runs twice at once.
class ProgressState {
public:
    ProgressState(const ProgressCallback& progress, int total)
        : progress_(progress), total_(total) {}

    void passStarted(std::size_t position, int pass, int passes) {
        std::lock_guard lock(mutex_);
        if (progress_)
            progress_(finished_, total_, passText(position, pass, passes));
    }

    // A tile of a pass: the pass's own text, so that the frame's status reads the same, with the
    // tile after it.
    void tileDone(std::size_t position, int pass, int passes, std::size_t tile, std::size_t tiles) {
        std::lock_guard lock(mutex_);
        if (progress_)
            progress_(finished_, total_,
                      passText(position, pass, passes) + ": tile " + std::to_string(tile) + "/" +
                          std::to_string(tiles));
    }

    void frameFinished() {
        std::lock_guard lock(mutex_);
        ++finished_;
        if (progress_)
            progress_(finished_, total_,
                      "Preprocessed frame " + std::to_string(finished_) + "/" +
                          std::to_string(total_));
    }

private:
    std::string passText(std::size_t position, int pass, int passes) const {
        return "Upscaling frame " + std::to_string(position + 1) + "/" + std::to_string(total_) +
               " (pass " + std::to_string(pass) + "/" + std::to_string(passes) + ")";
    }

    std::mutex mutex_;
    const ProgressCallback& progress_;
    int total_;
    int finished_ = 0;
};

// Frames reach the upscaler in whatever order their loading ends, yet the progress rule reads the
// announcement of frame n's pass as "the frames before n are done". So frames take the upscaler in
// their own order: a frame's passes wait until every frame before it is past its own. This costs
// no time, as the tool runs one image at a time anyway (one network, whose every pass keeps all
// cores or the GPU busy); frames without passes never wait.
class UpscaleTurns {
public:
    explicit UpscaleTurns(std::size_t frames) : past_(frames, false) {}

    // Waits until every frame before `position` is past the upscaler; false when stopped first.
    bool waitFor(std::size_t position, std::stop_token stop) {
        std::unique_lock lock(mutex_);
        return changed_.wait(lock, stop, [&] { return firstNotPast_ >= position; });
    }

    void passed(std::size_t position) {
        {
            std::lock_guard lock(mutex_);
            past_[position] = true;
            while (firstNotPast_ < past_.size() && past_[firstNotPast_])
                ++firstNotPast_;
        }
        changed_.notify_all();
    }

    // Marks its frame past the upscaler when dropped, whichever way the frame ends.
    class Turn {
    public:
        Turn(UpscaleTurns& turns, std::size_t position) : turns_(&turns), position_(position) {}
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn() { pass(); }
        void pass() {
            if (turns_)
                std::exchange(turns_, nullptr)->passed(position_);
        }

    private:
        UpscaleTurns* turns_;
        std::size_t position_;
    };

private:
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<bool> past_;
    std::size_t firstNotPast_ = 0;
};

HeicFrameSource preprocessFrame(const HeicPreprocessConfig& config,
                                const document::WallpaperImage& image, std::size_t position,
                                ProgressState& progress, UpscaleTurns& turns,
                                std::stop_token stop) {
    UpscaleTurns::Turn turn(turns, position);
    if (!image.sourcePath)
        throw HeicGeneratorError::invalidConfiguration("Missing source path for image");
    const auto& folder = config.outputDirectory;
    const std::string prefix = framePrefix(position);
    const auto normalized = folder / (prefix + "_norm.png");
    const auto output = folder / (prefix + ".png");

    // One pixel format and colour space for every frame, whatever the source was.
    FrameSize tracked;
    {
        platform::PixelImage pixels;
        try {
            pixels = platform::loadImage(*image.sourcePath);
        } catch (const platform::ImageIoError&) {
            throw HeicGeneratorError::imageLoadFailed(image.sourcePath->string());
        }
        tracked = {double(pixels.width), double(pixels.height)};
        try {
            platform::writePng(pixels, normalized);
        } catch (const platform::ImageIoError&) {
            throw HeicGeneratorError::fileWriteFailed();
        }
    }
    platform::throwIfCancelled(stop);

    upscale::UpscalePlan plan;
    if (config.upscaler && config.upscaleStrategy != upscale::HeicUpscaleStrategy::off) {
        std::optional<upscale::PlanSize> target;
        if (config.targetSize)
            target = upscale::PlanSize{config.targetSize->width, config.targetSize->height};
        plan = upscale::makePlan(target, config.upscaleStrategy,
                                 config.upscaler->supportedScaleFactors(),
                                 upscale::PlanSize{tracked.width, tracked.height});
    }

    auto current = normalized;
    const int passes = static_cast<int>(plan.steps.size());
    if (passes > 0 && !turns.waitFor(position, stop))
        throw platform::CancellationError();
    for (int pass = 1; pass <= passes; ++pass) {
        progress.passStarted(position, pass, passes);
        const auto next = folder / (prefix + "_up" + std::to_string(pass) + ".png");
        const int scale = plan.steps[pass - 1].scale;
        config.upscaler->upscale(current, next, scale, stop,
                                 [&](std::size_t tile, std::size_t tiles) {
                                     progress.tileDone(position, pass, passes, tile, tiles);
                                 });
        tracked = {tracked.width * scale, tracked.height * scale};
        if (current != normalized)
            removeQuietly(current);
        current = next;
    }
    turn.pass(); // the next frame upscales while this one is resized

    const FrameSize target = config.targetSize.value_or(tracked);
    resizeFrame(current, output, target, config.enableDither);
    if (current != output)
        removeQuietly(current);
    if (normalized != output)
        removeQuietly(normalized);
    return HeicFrameSource{image, output, target};
}

} // namespace

HeicPreprocessSession
HeicPreprocessor::preprocess(const std::vector<document::WallpaperImage>& images,
                             const ProgressCallback& progress, std::stop_token stop) const {
    if (!config_.wantsPreprocessing())
        throw HeicGeneratorError::invalidConfiguration(
            "Preprocess requested without any enabled stages.");
    std::filesystem::create_directories(config_.outputDirectory);

    std::vector<HeicFrameSource> frames(images.size());
    ProgressState state(progress, static_cast<int>(images.size()));
    UpscaleTurns turns(images.size());
    platform::forEachBounded(images.size(), maxConcurrentPreprocess, stop,
                             [&](std::size_t position, std::stop_token itemStop) {
                                 frames[position] = preprocessFrame(
                                     config_, images[position], position, state, turns, itemStop);
                                 state.frameFinished();
                             });
    return HeicPreprocessSession{std::move(frames), config_.outputDirectory,
                                 config_.keepPreprocessedFrames};
}

} // namespace lumivesper::exporting
