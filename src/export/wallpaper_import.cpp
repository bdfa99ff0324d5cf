#include "export/wallpaper_import.h"

#include "document/json_coding.h"
#include "document/project.h"
#include "document/project_io.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"
#include "platform/uuid.h"
#include "sun/hours.h"
#include "sun/solar_time_samples.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

namespace lumivesper::exporting {

namespace fs = std::filesystem;

namespace {

std::string frameFileName(const std::string& stem, std::size_t index) {
    char number[16];
    std::snprintf(number, sizeof number, "%02zu", index + 1);
    return stem + "-" + number + ".png";
}

ImportedFrame frame(const std::string& stem, long long index) {
    ImportedFrame result;
    result.imageIndex = static_cast<std::size_t>(index);
    result.image.fileName = frameFileName(stem, result.imageIndex);
    return result;
}

void writeProject(const fs::path& file, const ImportedDocument& document) {
    std::vector<document::WallpaperImage> images;
    for (const auto& entry : document.frames)
        images.push_back(entry.image);
    const auto project =
        document::makeProject(document.mode, std::move(images), "", document::defaultMagicSize,
                              document::defaultMagicTweenCount, "");
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << nlohmann::json(project).dump(2);
    out.flush();
    if (!out)
        throw WallpaperImportError("Cannot write " + file.string());
}

// Removes the half-built package on every way out but success.
class StagingFolder {
public:
    explicit StagingFolder(fs::path path) : path_(std::move(path)) {}
    ~StagingFolder() {
        if (path_.empty())
            return;
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    const fs::path& path() const { return path_; }
    void moveTo(const fs::path& target) {
        std::error_code error;
        fs::rename(path_, target, error);
        if (error)
            throw WallpaperImportError("Cannot move the package to " + target.string() + ": " +
                                       error.message());
        path_.clear();
    }

private:
    fs::path path_;
};

} // namespace

ImportedDocument importedDocument(const WallpaperFileInfo& info, const std::string& stem) {
    ImportedDocument document;
    if (info.kind == "apr") {
        document.mode = document::WallpaperMode::appearance;
        auto light = frame(stem, *info.lightIndex);
        light.image.isLight = true;
        auto dark = frame(stem, *info.darkIndex);
        dark.image.isLight = false;
        document.frames = {std::move(light), std::move(dark)};
        return document;
    }
    const bool solar = info.kind == "solar";
    for (const auto& record : solar ? info.solarFrames : decltype(info.solarFrames){}) {
        auto entry = frame(stem, record.index);
        entry.image.altitude = record.altitude;
        entry.image.azimuth = record.azimuth;
        if (record.light)
            entry.image.isLight = *record.light != 0;
        document.frames.push_back(std::move(entry));
    }
    for (const auto& record : solar ? decltype(info.hourFrames){} : info.hourFrames) {
        auto entry = frame(stem, record.index);
        const double hour = std::fmod(record.dayFraction * 24.0, 24.0);
        const auto sun = sun::referenceSunPosition(hour);
        entry.image.altitude = sun.altitude;
        entry.image.azimuth = sun.azimuth;
        entry.image.timeOfDay = hour;
        document.frames.push_back(std::move(entry));
    }
    // The document keeps time frames in the order of the day; writing them so makes a reopened
    // project and its export list them the same way.
    std::stable_sort(
        document.frames.begin(), document.frames.end(), [](const auto& a, const auto& b) {
            return sun::effectiveHour(a.image.timeOfDay, a.image.altitude, a.image.azimuth) <
                   sun::effectiveHour(b.image.timeOfDay, b.image.altitude, b.image.azimuth);
        });
    return document;
}

fs::path importDynamicWallpaper(const fs::path& wallpaper, const fs::path& packageOut,
                                std::stop_token stop, const ProgressCallback& progress) {
    std::error_code error;
    if (fs::exists(packageOut, error))
        throw WallpaperImportError(packageOut.string() + " already exists");
    const WallpaperFile file(wallpaper);
    std::string stem = wallpaper.stem().string();
    if (!document::isPlainFileName(stem) || stem.starts_with('.'))
        stem = "frame";
    const ImportedDocument document = importedDocument(file.info(), stem);

    const fs::path parent =
        packageOut.parent_path().empty() ? fs::path(".") : packageOut.parent_path();
    StagingFolder staging(parent / ("." + packageOut.filename().string() + ".partial-" +
                                    platform::Uuid::generate().toString()));
    fs::create_directories(staging.path() / document::imagesFolderName, error);
    if (error)
        throw WallpaperImportError("Cannot create " + staging.path().string() + ": " +
                                   error.message());

    // Each image once, however many records show it.
    std::map<std::size_t, std::string> images;
    for (const auto& entry : document.frames)
        images.emplace(entry.imageIndex, entry.image.fileName);
    const int total = static_cast<int>(images.size());
    int done = 0;
    for (const auto& [index, fileName] : images) {
        platform::throwIfCancelled(stop);
        const fs::path target = staging.path() / document::imagesFolderName / fileName;
        try {
            platform::writePng(file.decodeImage(index), target);
        } catch (const platform::ImageIoError& writeError) {
            throw WallpaperImportError(writeError.what());
        }
        ++done;
        if (progress)
            progress(done, total,
                     "Decoded image " + std::to_string(done) + "/" + std::to_string(total));
    }
    platform::throwIfCancelled(stop);
    writeProject(staging.path() / document::projectFileName, document);
    staging.moveTo(packageOut);
    return packageOut;
}

} // namespace lumivesper::exporting
