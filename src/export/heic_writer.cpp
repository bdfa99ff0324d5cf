#include "export/heic_writer.h"

#include "export/heic_generator_error.h"
#include "export/heif_box_writer.h"
#include "platform/cancellation.h"
#include "platform/uuid.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace lumivesper::exporting {

namespace {

// Measured peak of one frame in flight, per pixel: the decoded RGBA (4), its planes (1.5) and the
// encoder's own pictures and analysis buffers.
constexpr std::int64_t bytesPerPixelInFlight = 16;
// An unknown frame is budgeted as an 8K one.
constexpr std::int64_t unknownFramePixels = 7680LL * 4320;
// Frames in flight stay within this much per core (two 8K frames on two cores), and within half
// the memory that is free.
constexpr std::int64_t memoryBudgetPerCore = 640LL << 20;

std::int64_t memoryBudget(int cores) {
    const std::int64_t cap = memoryBudgetPerCore * cores;
    const long pages = ::sysconf(_SC_AVPHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0)
        return cap;
    return std::min<std::int64_t>(cap, std::int64_t(pages) * pageSize / 2);
}

int coreCount() {
    return std::max(1u, std::thread::hardware_concurrency());
}

CodedFrame encodeFrame(const platform::PixelImage& image, const HevcEncoderSettings& settings) {
    if (image.empty())
        throw HeicGeneratorError::fileWriteFailed();
    CodedFrame frame;
    frame.width = image.width;
    frame.height = image.height;
    {
        const auto planes = toYCbCr420(image);
        frame.codedWidth = planes.codedWidth;
        frame.codedHeight = planes.codedHeight;
        frame.colour = encodeHevcImage(planes, settings);
    }
    if (!isOpaque(image))
        frame.alpha = encodeHevcImage(alphaPlane(image), settings);
    return frame;
}

// The frames of one finalize(): workers take the next frame in order and leave its result; the
// caller collects results in order.
class EncodeQueue {
public:
    explicit EncodeQueue(std::size_t count) : results_(count), failures_(count) {}

    std::optional<std::size_t> take(const std::stop_token& stop) {
        std::lock_guard lock(mutex_);
        if (halted_ || stop.stop_requested() || next_ >= results_.size())
            return std::nullopt;
        return next_++;
    }
    void finish(std::size_t index, std::optional<CodedFrame> result, std::exception_ptr failure) {
        {
            std::lock_guard lock(mutex_);
            results_[index] = std::move(result);
            failures_[index] = std::move(failure);
        }
        changed_.notify_all();
    }
    // No frame starts after this; running ones finish.
    void halt() {
        {
            std::lock_guard lock(mutex_);
            halted_ = true;
        }
        changed_.notify_all();
    }
    // Waits until frame `index` is done (true) or a stop was requested (false).
    bool waitFor(std::size_t index, const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] {
            return results_[index] || failures_[index] || stop.stop_requested();
        });
        return results_[index] || failures_[index];
    }
    std::exception_ptr failure(std::size_t index) {
        std::lock_guard lock(mutex_);
        return failures_[index];
    }
    std::vector<CodedFrame> results() {
        std::vector<CodedFrame> frames;
        frames.reserve(results_.size());
        for (auto& result : results_)
            frames.push_back(std::move(*result));
        return frames;
    }
    // Makes a waiter look again (after a stop); under the lock, so the wake cannot slip in
    // between its check and its sleep.
    void wake() {
        {
            std::lock_guard lock(mutex_);
        }
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::optional<CodedFrame>> results_;
    std::vector<std::exception_ptr> failures_;
    std::size_t next_ = 0;
    bool halted_ = false;
};

void writeFile(const std::filesystem::path& path, const std::vector<CodedFrame>& frames,
               const std::string& xmp, int xmpFrame) {
    const HeifLayout layout(frames, xmp, static_cast<std::size_t>(xmpFrame));
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    auto put = [&out](const std::vector<std::uint8_t>& bytes) {
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    };
    put(layout.header());
    for (const auto& frame : frames) {
        put(frame.colour.data);
        if (frame.alpha)
            put(frame.alpha->data);
    }
    out.write(xmp.data(), static_cast<std::streamsize>(xmp.size()));
    out.close();
    if (!out)
        throw HeicGeneratorError::fileWriteFailed();
}

} // namespace

EncodePlan planEncoding(int frames, std::int64_t largestPixels, int cores,
                        std::int64_t memoryBudget) {
    const std::int64_t perFrame = std::max<std::int64_t>(1, largestPixels) * bytesPerPixelInFlight;
    const auto byMemory = static_cast<int>(std::max<std::int64_t>(1, memoryBudget / perFrame));
    EncodePlan plan;
    plan.framesInFlight = std::max(1, std::min({frames, cores, byMemory}));
    // Spare cores go to each frame's wavefront rows; a little oversubscription keeps cores busy
    // while a frame is being decoded or converted.
    plan.threadsPerFrame = std::max(1, (cores + plan.framesInFlight - 1) / plan.framesInFlight);
    return plan;
}

HeicWriter::HeicWriter(std::filesystem::path output, HevcEncoderSettings settings,
                       std::stop_token stop)
    : output_(std::move(output)), settings_(std::move(settings)), stop_(std::move(stop)) {
    std::error_code error;
    const auto folder =
        output_.parent_path().empty() ? std::filesystem::path(".") : output_.parent_path();
    if (!std::filesystem::is_directory(folder, error) ||
        std::filesystem::is_directory(output_, error))
        throw HeicGeneratorError::heicCreationFailed();
}

void HeicWriter::addImage(FrameLoader load, std::int64_t pixelCount, std::string xmp) {
    if (!xmp.empty()) {
        if (!xmp_.empty())
            throw HeicGeneratorError::metadataCreationFailed(); // one packet per file
        xmp_ = std::move(xmp);
        xmpFrame_ = imageCount();
    }
    frames_.push_back({std::move(load), pixelCount});
}

void HeicWriter::addImage(platform::PixelImage image, const std::string& xmp) {
    const std::int64_t pixels = std::int64_t(image.width) * image.height;
    auto held = std::make_shared<platform::PixelImage>(std::move(image));
    addImage([held] { return std::move(*held); }, pixels, xmp);
}

void HeicWriter::finalize(const EncodedCallback& onEncoded) {
    if (frames_.empty())
        throw HeicGeneratorError::fileWriteFailed();
    platform::throwIfCancelled(stop_);

    std::int64_t largest = 0;
    for (const auto& frame : frames_)
        largest = std::max(largest, frame.pixelCount > 0 ? frame.pixelCount : unknownFramePixels);
    const int cores = coreCount();
    const auto plan = planEncoding(imageCount(), largest, cores, memoryBudget(cores));
    HevcEncoderSettings settings = settings_;
    settings.threads = plan.threadsPerFrame;

    EncodeQueue queue(frames_.size());
    std::stop_callback wake(stop_, [&queue] { queue.wake(); });
    auto work = [&] {
        while (const auto index = queue.take(stop_)) {
            try {
                auto pixels = frames_[*index].load();
                frames_[*index].load = nullptr; // drops a held image
                auto coded = encodeFrame(pixels, settings);
                queue.finish(*index, std::move(coded), nullptr);
            } catch (const HevcEncodeError&) {
                queue.finish(*index, std::nullopt,
                             std::make_exception_ptr(HeicGeneratorError::fileWriteFailed()));
            } catch (...) {
                queue.finish(*index, std::nullopt, std::current_exception());
            }
        }
    };
    std::exception_ptr failure;
    {
        std::vector<std::jthread> workers;
        for (int i = 0; i < plan.framesInFlight; ++i)
            workers.emplace_back(work);
        for (std::size_t index = 0; index < frames_.size(); ++index) {
            // A stop ends the reports too, even of frames that are already done.
            if (stop_.stop_requested() || !queue.waitFor(index, stop_)) {
                failure = std::make_exception_ptr(platform::CancellationError());
                break;
            }
            if ((failure = queue.failure(index)))
                break;
            if (onEncoded) {
                try {
                    onEncoded(static_cast<int>(index));
                } catch (...) {
                    failure = std::current_exception();
                    break;
                }
            }
        }
        if (failure)
            queue.halt();
        // The workers join here: frames being encoded finish, no new one starts.
    }
    if (failure)
        std::rethrow_exception(failure);
    platform::throwIfCancelled(stop_);

    auto partial = output_;
    partial += ".partial-" + platform::Uuid::generate().toString();
    try {
        writeFile(partial, queue.results(), xmp_, xmpFrame_);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw HeicGeneratorError::fileWriteFailed();
    }
    std::error_code error;
    std::filesystem::rename(partial, output_, error);
    if (error) {
        std::filesystem::remove(partial, error);
        throw HeicGeneratorError::fileWriteFailed();
    }
}

} // namespace lumivesper::exporting
