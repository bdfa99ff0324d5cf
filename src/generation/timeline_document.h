#pragma once

#include "document/wallpaper_image.h"
#include "generation/generated_image.h"
#include "generation/magic_generate_tables.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

// The document side of a generated day, shared by the generate sheet and the command line: key
// images on disk with their sun positions, then the in-between frames. Worker-thread safe: these
// touch files only, never the live document.
namespace lumivesper::generation {

// Writes `bytes` to `path` through a temporary file and a rename, so that nobody ever sees half
// an image. Throws std::runtime_error.
void writeFileAtomically(const std::filesystem::path& path, const Bytes& bytes);

// The whole file, or none when it cannot be read.
std::optional<Bytes> readFileBytes(const std::filesystem::path& path);

// "original.png" for index 0, else "phase_<index>.png".
std::string keyImageFileName(std::size_t index);

// Saves image `index` of a timeline as it came and makes its record at the phase of that
// position. Throws ImageGenerationError::decodeFailed when the bytes are no image.
document::WallpaperImage saveKeyImage(const Bytes& bytes, std::size_t index,
                                      const std::filesystem::path& folder);

// Writes `bytes` as `fileName` in `folder` and makes a record at `phase`; the same checks.
document::WallpaperImage saveImageAtPhase(const Bytes& bytes, const std::string& fileName,
                                          const TimeOfDayPhase& phase,
                                          const std::filesystem::path& folder);

// An in-between frame at fraction t of the way from `from` to `to`: altitude straight, azimuth
// the short way round the circle, hour forward round the clock.
document::WallpaperImage tweenBetween(const document::WallpaperImage& from,
                                      const document::WallpaperImage& to, double t);

// Reports of the tween step, from the thread that runs it. `status`: the message to show and the
// fraction done. `grown`: after each transition, the whole list so far (the keys with the frames
// made yet behind their sources), so that the document can grow as the frames come.
struct TweenStepReport {
    std::function<void(const std::string& message, double progress)> status;
    std::function<void(const std::vector<document::WallpaperImage>& images)> grown;
};

// Blends `count` frames between each key image and the next, the last wrapping to the first,
// each run in its own folder under `root`. Returns the final list; throws CancellationError when
// stopped and TweenGeneratorError when a blend fails.
std::vector<document::WallpaperImage> addTweens(const std::vector<document::WallpaperImage>& keys,
                                                int count, const std::filesystem::path& root,
                                                std::stop_token stop,
                                                const TweenStepReport& report = {});

} // namespace lumivesper::generation
