#include "generation/timeline_document.h"

#include "document/image_hours.h"
#include "export/tween_generator.h"
#include "generation/image_generation_error.h"
#include "platform/atomic_file.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/image_io.h"
#include "platform/uuid.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace lumivesper::generation {

namespace fs = std::filesystem;
using document::WallpaperImage;

void writeFileAtomically(const fs::path& path, const Bytes& bytes) {
    platform::writeFileAtomically(
        path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::optional<Bytes> readFileBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    Bytes bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad())
        return std::nullopt;
    return bytes;
}

std::string keyImageFileName(std::size_t index) {
    return index == 0 ? "original.png" : "phase_" + std::to_string(index) + ".png";
}

WallpaperImage saveImageAtPhase(const Bytes& bytes, const std::string& fileName,
                                const TimeOfDayPhase& phase, const fs::path& folder) {
    const fs::path path = folder / fileName;
    writeFileAtomically(path, bytes);
    WallpaperImage image;
    try {
        image.thumbnail = std::make_shared<const platform::PixelImage>(platform::loadPreview(path));
    } catch (const platform::ImageIoError&) {
        throw ImageGenerationError::decodeFailed();
    }
    image.fileName = fileName;
    image.sourcePath = path;
    image.altitude = phase.altitude;
    image.azimuth = phase.azimuth;
    return image;
}

WallpaperImage saveKeyImage(const Bytes& bytes, std::size_t index, const fs::path& folder) {
    return saveImageAtPhase(bytes, keyImageFileName(index), keyImagePhase(index), folder);
}

WallpaperImage tweenBetween(const WallpaperImage& from, const WallpaperImage& to, double t) {
    WallpaperImage tween;
    tween.isTween = true;
    tween.parentId = from.id;
    const double a0 = from.altitude.value_or(0), a1 = to.altitude.value_or(0);
    tween.altitude = a0 + (a1 - a0) * t;
    const double b0 = from.azimuth.value_or(0), b1 = to.azimuth.value_or(0);
    double d = std::fmod(b1 - b0, 360.0);
    if (d < -180)
        d += 360;
    else if (d > 180)
        d -= 360;
    double azimuth = std::fmod(b0 + d * t, 360.0);
    if (azimuth < 0)
        azimuth += 360;
    tween.azimuth = azimuth;
    const double h0 = document::effectiveHour(from), h1 = document::effectiveHour(to);
    double span = h1 - h0;
    if (span < 0)
        span += 24;
    tween.timeOfDay = std::fmod(h0 + t * span, 24.0);
    return tween;
}

std::vector<WallpaperImage> addTweens(const std::vector<WallpaperImage>& keys, int count,
                                      const fs::path& root, std::stop_token stop,
                                      const TweenStepReport& report) {
    std::vector<WallpaperImage> images = keys;
    if (count < 1 || keys.empty())
        return images;
    platform::consoleLine("🎬 Starting tween generation: " + std::to_string(count) +
                          " tweens per transition");
    const exporting::TweenGenerator generator;
    const int total = std::max(1, static_cast<int>(keys.size()) * count);
    int done = 0;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        platform::throwIfCancelled(stop);
        const WallpaperImage& source = keys[i];
        const WallpaperImage& next = keys[(i + 1) % keys.size()];
        if (report.status)
            report.status("Tweening " + source.fileName + "...", static_cast<double>(done) / total);
        if (!source.sourcePath || !next.sourcePath)
            throw exporting::TweenGeneratorError(
                exporting::TweenGeneratorError::Case::imageLoadFailed);

        std::string prefix = source.fileName;
        std::replace(prefix.begin(), prefix.end(), '.', '_');
        const fs::path folder = root / platform::Uuid::generate().toString();
        fs::create_directories(folder);
        const auto paths = generator.generateAndSaveTweens(*source.sourcePath, *next.sourcePath,
                                                           count, folder, prefix, {}, stop);

        std::vector<WallpaperImage> frames;
        for (int k = 1; k <= static_cast<int>(paths.size()); ++k) {
            WallpaperImage frame = tweenBetween(source, next, static_cast<double>(k) / (count + 1));
            const fs::path& path = paths[static_cast<std::size_t>(k - 1)];
            frame.fileName = path.filename().string();
            frame.sourcePath = path;
            try {
                frame.thumbnail =
                    std::make_shared<const platform::PixelImage>(platform::loadPreview(path));
            } catch (const platform::ImageIoError&) {
                platform::consoleLine("⚠️ Could not read back " + path.string());
            }
            frames.push_back(std::move(frame));
        }
        const auto behind = std::find_if(images.begin(), images.end(),
                                         [&](const auto& image) { return image.id == source.id; }) +
                            1;
        images.insert(behind, frames.begin(), frames.end());
        done += static_cast<int>(frames.size());
        if (report.grown)
            report.grown(images);
    }
    if (report.status)
        report.status("Tweening complete!", 1.0);
    platform::consoleLine("✅ Tween generation complete: " + std::to_string(done) + " total frames");
    return images;
}

} // namespace lumivesper::generation
