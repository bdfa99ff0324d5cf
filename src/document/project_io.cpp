#include "document/project_io.h"

#include "document/json_coding.h"
#include "document/package_path.h"
#include "platform/atomic_file.h"
#include "platform/console.h"
#include "platform/image_io.h"

#include <fstream>
#include <memory>
#include <sstream>
#include <system_error>
#include <unordered_set>

namespace lumivesper::document {

namespace fs = std::filesystem;

namespace {

platform::FileFilter packageFilter() {
    return {"Lumivesper AI Project", {packageExtension}};
}

platform::FileFilter imageFilter() {
    return {"Images",
            {"heic", "heif", "avif", "jpg", "jpeg", "png", "tif", "tiff", "webp", "gif", "bmp"}};
}

void requirePlainFileNames(const std::vector<WallpaperImage>& images) {
    for (const auto& image : images)
        if (!isPlainFileName(image.fileName))
            throw ProjectPackageError("The image file name \"" + image.fileName +
                                      "\" would lie outside the package's images folder.");
}

// The document keys its images by id (sorting, selection, undo); a file with a repeated id would
// open and then fail at the first edit, so it is refused here like any other malformed file.
void requireUniqueIds(const std::vector<WallpaperImage>& images) {
    std::unordered_set<Uuid> seen;
    for (const auto& image : images)
        if (!seen.insert(image.id).second)
            throw ProjectPackageError("The image id " + image.id.toString() +
                                      " appears more than once in \"" +
                                      std::string(projectFileName) + "\".");
}

std::string readProjectFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ProjectPackageError(
            "The file \"" + std::string(projectFileName) +
            "\" could not be opened: " + std::generic_category().message(errno) + ".");
    std::stringstream buffer;
    buffer << in.rdbuf();
    if (in.bad())
        throw ProjectPackageError("The file \"" + std::string(projectFileName) +
                                  "\" could not be read.");
    return buffer.str();
}

Project decodeProject(const std::string& text) {
    try {
        return nlohmann::json::parse(text).get<Project>();
    } catch (const nlohmann::json::parse_error& error) {
        throw ProjectPackageError("The data in \"" + std::string(projectFileName) +
                                  "\" isn't valid JSON (" + error.what() + ").");
    } catch (const DecodingError& error) {
        throw ProjectPackageError("The data in \"" + std::string(projectFileName) +
                                  "\" couldn't be read: " + error.what() + ".");
    } catch (const nlohmann::json::exception& error) {
        throw ProjectPackageError("The data in \"" + std::string(projectFileName) +
                                  "\" couldn't be read: " + error.what() + ".");
    }
}

// Both spellings of one file count as "already in the package": removing the target before the
// copy would otherwise delete the only copy.
bool isSameFile(const fs::path& from, const fs::path& to) {
    if (from.string() == to.string())
        return true;
    std::error_code error;
    return fs::equivalent(from, to, error) && !error;
}

void copyIntoPackage(const WallpaperImage& image, const fs::path& to) {
    // Copied beside the target and renamed over it, so that a failed copy leaves the file that
    // was there before.
    const fs::path partial = to.parent_path() / ("." + to.filename().string() + ".partial");
    std::error_code error;
    fs::copy_file(*image.sourcePath, partial, fs::copy_options::overwrite_existing, error);
    if (!error)
        fs::rename(partial, to, error);
    if (error) {
        std::error_code ignored;
        fs::remove(partial, ignored);
        throw ProjectPackageError("The file \"" + image.fileName + "\" couldn't be copied from \"" +
                                  image.sourcePath->string() + "\": " + error.message() + ".");
    }
}

void writeProjectFile(const fs::path& file, const Project& project) {
    // Pretty and sorted: nlohmann's object keeps its keys in lexicographic order.
    const std::string text = nlohmann::json(project).dump(2);
    // Replaced whole, so that a crash or a full disk leaves the former project readable.
    try {
        platform::writeFileAtomically(file, text);
    } catch (const platform::FileWriteError& error) {
        throw ProjectPackageError("The file \"" + std::string(projectFileName) +
                                  "\" couldn't be written: " + error.code().message() + ".");
    }
}

void createFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw ProjectPackageError("The folder \"" + folder.string() +
                                  "\" couldn't be created: " + error.message() + ".");
    if (!fs::is_directory(folder, error))
        throw ProjectPackageError("\"" + folder.string() + "\" is not a folder.");
}

} // namespace

bool isPlainFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\\\0", 3)) == std::string::npos;
}

LoadedPackage readPackage(const fs::path& url, bool withPreviews) {
    LoadedPackage package;
    package.project = decodeProject(readProjectFile(url / projectFileName));
    requirePlainFileNames(package.project.images);
    requireUniqueIds(package.project.images);
    for (auto& image : package.project.images) {
        const fs::path path = url / imagesFolderName / image.fileName;
        std::error_code error;
        if (!fs::is_regular_file(path, error)) {
            platform::consoleLine("ERROR: Image file not found: " + path.string());
            package.missingFileNames.push_back(image.fileName);
            continue;
        }
        image.sourcePath = path;
        if (!withPreviews)
            continue;
        try {
            image.thumbnail =
                std::make_shared<const platform::PixelImage>(platform::loadPreview(path));
        } catch (const std::exception&) {
            platform::consoleLine("Warning: Failed to load thumbnail for: " + path.string());
        }
    }
    return package;
}

void ProjectIO::showImportPanel(std::optional<fs::path> directory,
                                std::function<void(std::vector<fs::path>)> completion) {
    platform::OpenPanelSettings settings;
    settings.allowsMultipleSelection = true;
    settings.filter = imageFilter();
    settings.directory = std::move(directory);
    auto chosen = dialogs_.runOpenPanel(settings);
    if (!chosen.empty() && completion)
        completion(std::move(chosen));
}

void ProjectIO::showOpenPanel(std::optional<fs::path> directory,
                              std::function<void(fs::path)> completion) {
    platform::OpenPanelSettings settings;
    settings.allowsMultipleSelection = false;
    settings.canChooseFiles = true;
    settings.canChooseDirectories = false;
    settings.treatsFilePackagesAsDirectories = false;
    settings.packageExtensions = {packageExtension};
    settings.filter = packageFilter();
    settings.directory = std::move(directory);
    dialogs_.showOpenPanel(std::move(settings),
                           [completion = std::move(completion)](std::vector<fs::path> chosen) {
                               if (completion)
                                   completion(std::move(chosen.front()));
                           });
}

void ProjectIO::showSavePanel(std::string defaultName, std::optional<fs::path> directory,
                              std::function<void(fs::path)> completion,
                              std::function<void()> cancelled) {
    platform::SavePanelSettings settings;
    settings.title = "Save Project";
    settings.nameFieldStringValue = std::move(defaultName);
    settings.canCreateDirectories = true;
    settings.filter = packageFilter();
    settings.directory = std::move(directory);
    dialogs_.showSavePanel(std::move(settings), std::move(completion), std::move(cancelled));
}

void ProjectIO::save(const fs::path& packagePath, AppState& appState) {
    const fs::path url = normalisedPackagePath(packagePath);
    try {
        requirePlainFileNames(appState.images());
        createFolder(url);
        const fs::path imagesFolder = url / imagesFolderName;
        createFolder(imagesFolder);

        // Copied records point at their copies at once, so that a failure half-way leaves them
        // pointing into the half-written package.
        const std::vector<WallpaperImage> images = appState.images();
        for (const auto& image : images) {
            if (!image.sourcePath)
                continue; // its file was missing at load; the record is kept all the same
            const fs::path to = imagesFolder / image.fileName;
            if (isSameFile(*image.sourcePath, to))
                continue;
            copyIntoPackage(image, to);
            platform::consoleLine("Copied " + image.fileName + " to package");
            appState.setSourcePath(image.id, to);
        }

        writeProjectFile(url / projectFileName,
                         makeProject(appState.mode(), appState.images(), appState.lastMagicPrompt(),
                                     appState.lastMagicSize(), appState.lastMagicTweenCount(),
                                     appState.lastMagicStartingImageFileName()));
    } catch (const std::exception& error) {
        // Our own errors, and the encoder's for names that are not UTF-8.
        platform::consoleLine(std::string("Failed to save project: ") + error.what());
        dialogs_.runAlert({"Save Failed",
                           std::string("Could not save project: ") + error.what(),
                           platform::AlertStyle::critical,
                           {}});
        return;
    }
    appState.markSaved(url, appState.images());
    appState.addRecentProject(url);
}

void ProjectIO::load(const fs::path& packagePath, AppState& appState) {
    const fs::path url = normalisedPackagePath(packagePath);
    LoadedPackage package;
    try {
        package = readPackage(url, loadsPreviews_);
    } catch (const std::exception& error) {
        // Our own errors, and the encoder's for names that are not UTF-8.
        platform::consoleLine(std::string("Failed to load project: ") + error.what());
        dialogs_.runAlert({"Load Failed",
                           std::string("Could not load project: ") + error.what(),
                           platform::AlertStyle::critical,
                           {}});
        return;
    }
    Project& project = package.project;
    appState.openProject(std::move(project.images), project.mode, url,
                         std::move(project.magicPrompt), std::move(project.magicSize),
                         project.magicTweenCount, std::move(project.magicStartingImageFileName));
    appState.addRecentProject(url);
    if (package.missingFileNames.empty())
        return;
    std::string names;
    for (const auto& name : package.missingFileNames)
        names += (names.empty() ? "" : "\n") + name;
    dialogs_.runAlert({"Missing Images",
                       "The following images could not be found:\n\n" + names,
                       platform::AlertStyle::warning,
                       {}});
}

} // namespace lumivesper::document
