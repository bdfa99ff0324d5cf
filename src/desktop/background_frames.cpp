#include "desktop/background_frames.h"

#include "document/project_io.h"
#include "export/wallpaper_reader.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"

#include <map>
#include <set>

namespace lumivesper::desktop {

namespace fs = std::filesystem;

namespace {

// Writes each picture once, however many frames show it, and tells its file by a key.
template <typename Key> class PictureWriter {
public:
    PictureWriter(fs::path folder, std::stop_token stop,
                  const exporting::ProgressCallback& progress, int total)
        : folder_(std::move(folder)), stop_(std::move(stop)), progress_(progress), total_(total) {}

    template <typename Decode> fs::path file(const Key& key, Decode&& decode) {
        if (auto found = files_.find(key); found != files_.end())
            return found->second;
        platform::throwIfCancelled(stop_);
        const fs::path path = folder_ / ("frame-" + std::to_string(files_.size() + 1) + ".png");
        platform::writePng(decode(), path);
        files_.emplace(key, path);
        if (progress_)
            progress_(static_cast<int>(files_.size()), total_,
                      "Prepared picture " + std::to_string(files_.size()) + "/" +
                          std::to_string(total_));
        return path;
    }

private:
    fs::path folder_;
    std::stop_token stop_;
    const exporting::ProgressCallback& progress_;
    int total_;
    std::map<Key, fs::path> files_;
};

BackgroundFrames fromWallpaperFile(const fs::path& source, const fs::path& folder,
                                   std::stop_token stop,
                                   const exporting::ProgressCallback& progress) {
    const exporting::WallpaperFile file(source);
    const auto& info = file.info();
    BackgroundFrames result;
    std::set<long long> used;
    for (const auto& frame : info.solarFrames)
        used.insert(frame.index);
    for (const auto& frame : info.hourFrames)
        used.insert(frame.index);
    if (info.kind == "apr")
        used = {*info.lightIndex, *info.darkIndex};
    PictureWriter<long long> writer(folder, stop, progress, static_cast<int>(used.size()));
    auto picture = [&](long long index) {
        return writer.file(index,
                           [&] { return file.decodeImage(static_cast<std::size_t>(index)); });
    };
    if (info.kind == "apr") {
        result.kind = BackgroundFrames::Kind::appearance;
        result.light = picture(*info.lightIndex);
        result.dark = picture(*info.darkIndex);
        return result;
    }
    if (info.kind == "solar")
        for (const auto& frame : info.solarFrames)
            result.frames.push_back({picture(frame.index), frame.altitude, frame.azimuth, {}});
    else
        for (const auto& frame : info.hourFrames)
            result.frames.push_back({picture(frame.index), {}, {}, frame.dayFraction * 24.0});
    return result;
}

BackgroundFrames fromPackage(const fs::path& source, const fs::path& folder, std::stop_token stop,
                             const exporting::ProgressCallback& progress) {
    const auto package = document::readPackage(source);
    if (!package.missingFileNames.empty())
        throw document::ProjectPackageError("The image \"" + package.missingFileNames.front() +
                                            "\" of the project is missing.");
    const auto& project = package.project;
    BackgroundFrames result;
    PictureWriter<fs::path> writer(folder, stop, progress, static_cast<int>(project.images.size()));
    auto picture = [&](const document::WallpaperImage& image) {
        return writer.file(*image.sourcePath,
                           [&] { return platform::loadImage(*image.sourcePath); });
    };
    if (project.mode == document::WallpaperMode::appearance) {
        // The same choice as the export: the first light image, then the first dark one.
        const document::WallpaperImage *light = nullptr, *dark = nullptr;
        for (const auto& image : project.images) {
            const bool isLight = image.isLight.value_or(true);
            if (isLight && !light)
                light = &image;
            if (!isLight && !dark)
                dark = &image;
        }
        if (!light || !dark)
            throw document::ProjectPackageError(
                "An appearance project needs a light and a dark image.");
        result.kind = BackgroundFrames::Kind::appearance;
        result.light = picture(*light);
        result.dark = picture(*dark);
        return result;
    }
    if (project.images.empty())
        throw document::ProjectPackageError("The project has no images.");
    for (const auto& image : project.images)
        result.frames.push_back(
            {picture(image), image.altitude.value_or(0.0), image.azimuth.value_or(0.0), {}});
    return result;
}

} // namespace

BackgroundFrames extractBackgroundFrames(const fs::path& source, const fs::path& folder,
                                         std::stop_token stop,
                                         const exporting::ProgressCallback& progress) {
    fs::create_directories(folder);
    std::error_code error;
    BackgroundFrames result = fs::is_directory(source, error)
                                  ? fromPackage(source, folder, std::move(stop), progress)
                                  : fromWallpaperFile(source, folder, std::move(stop), progress);
    result.name = source.stem().string();
    return result;
}

} // namespace lumivesper::desktop
