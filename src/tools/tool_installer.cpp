#include "tools/tool_installer.h"

#include "platform/cancellation.h"
#include "platform/uuid.h"
#include "tools/process_runner.h"
#include "tools/tool_error.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace lumivesper::tools {

namespace {

namespace fs = std::filesystem;

// Removes a half-made folder unless the installation took it over.
class FolderGuard {
public:
    explicit FolderGuard(fs::path folder) : folder_(std::move(folder)) {}
    ~FolderGuard() {
        if (folder_.empty())
            return;
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    FolderGuard(const FolderGuard&) = delete;
    FolderGuard& operator=(const FolderGuard&) = delete;

    void release() { folder_.clear(); }

private:
    fs::path folder_;
};

// A tool's name becomes a folder name, so it must stay one plain component.
bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           !name.starts_with('.');
}

bool isRelativeInside(const fs::path& path) {
    if (path.empty() || path.is_absolute())
        return false;
    return std::none_of(path.begin(), path.end(),
                        [](const fs::path& part) { return part == ".."; });
}

fs::path nearestExistingFolder(fs::path path) {
    std::error_code error;
    while (!path.empty() && !fs::exists(path, error)) {
        if (path == path.parent_path())
            break;
        path = path.parent_path();
    }
    return path.empty() ? fs::path(".") : path;
}

} // namespace

ToolInstaller::ToolInstaller(ToolLogger& logger, ToolState& state, fs::path toolsDirectory)
    : logger_(logger), state_(state), toolsDirectory_(std::move(toolsDirectory)) {}

std::int64_t ToolInstaller::availableSpace() const {
    std::error_code error;
    const fs::space_info space = fs::space(nearestExistingFolder(toolsDirectory_), error);
    if (error)
        throw ToolError::toolsDirectoryUnavailable();
    return static_cast<std::int64_t>(space.available);
}

void ToolInstaller::ensureDiskSpace(std::int64_t requiredBytes) const {
    const std::int64_t available = availableSpace();
    if (available < requiredBytes) {
        logger_.log("Not enough disk space: need " + std::to_string(requiredBytes) + " bytes, " +
                    std::to_string(available) + " available");
        throw ToolError::insufficientDiskSpace(requiredBytes, available);
    }
}

void ToolInstaller::extract(const fs::path& archive, const fs::path& destination,
                            std::stop_token stop) const {
    try {
        const auto unzip = findExecutable("unzip");
        if (!unzip)
            throw ProcessRunnerError::missingExecutable("unzip");
        fs::create_directories(destination);
        // -o: the destination is ours and fresh, so never stop to ask about overwriting.
        runProcess({*unzip, {"-q", "-o", archive.string(), "-d", destination.string()}, {}}, stop);
    } catch (const platform::CancellationError&) {
        throw;
    } catch (const std::exception& error) {
        logger_.log("Extraction of " + archive.string() + " failed: " + error.what());
        throw ToolError::extractionFailed(std::current_exception());
    }
}

std::vector<std::string> ToolInstaller::verify(const ToolPackage& package,
                                               const fs::path& toolFolder) const {
    std::error_code error;
    const fs::path executable = toolFolder / package.executable;
    if (!fs::exists(executable, error))
        throw ToolError::executableNotFound();

    std::vector<std::string> problems;
    if (!fs::is_regular_file(executable, error) || ::access(executable.c_str(), X_OK) != 0)
        problems.push_back("Not an executable file: " + package.executable.string());
    const fs::path modelsFolder = toolFolder / package.modelsDirectory;
    if (!fs::is_directory(modelsFolder, error))
        problems.push_back("Models folder missing: " + package.modelsDirectory.string());
    if (!problems.empty())
        throw ToolError::verificationFailed(std::move(problems));

    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator(modelsFolder, error))
        if (entry.is_regular_file(error))
            found.insert(entry.path().stem().string());
    std::vector<std::string> missing;
    for (const auto& model : package.requiredModels)
        if (!found.contains(model))
            missing.push_back(model);
    if (!missing.empty())
        throw ToolError::modelsUnavailable(std::move(missing));
    return {found.begin(), found.end()};
}

ToolInfo ToolInstaller::install(const ToolPackage& package, const fs::path& archive,
                                std::stop_token stop) {
    std::lock_guard serial(serial_);
    if (!isPlainName(package.name) || !isRelativeInside(package.executable) ||
        !isRelativeInside(package.modelsDirectory))
        throw ToolError::installationFailed("the package \"" + package.name +
                                            "\" names a place outside its folder");
    std::error_code error;
    fs::create_directories(toolsDirectory_, error);
    if (error || !fs::is_directory(toolsDirectory_))
        throw ToolError::toolsDirectoryUnavailable();
    ensureDiskSpace(package.requiredSpace);
    logger_.log("Installing " + package.name + " " + package.version + " from " + archive.string());

    // Unpacked beside the tools, so that the final step is a rename within one file system.
    const std::string suffix = platform::Uuid::generate().toString();
    const fs::path staging = toolsDirectory_ / (".install-" + suffix);
    FolderGuard stagingGuard(staging);
    extract(archive, staging, stop);
    std::vector<std::string> models = verify(package, staging);
    platform::throwIfCancelled(stop);

    const fs::path folder = toolsDirectory_ / package.name;
    const fs::path previous = toolsDirectory_ / (".previous-" + suffix);
    const bool hadPrevious = fs::exists(folder, error);
    if (hadPrevious) {
        fs::rename(folder, previous, error);
        if (error)
            throw ToolError::installationFailed("cannot replace " + folder.string() + ": " +
                                                error.message());
    }
    FolderGuard previousGuard(hadPrevious ? previous : fs::path());
    const auto restorePrevious = [&] {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
        if (hadPrevious) {
            fs::rename(previous, folder, ignored);
            previousGuard.release();
        }
    };
    fs::rename(staging, folder, error);
    if (error) {
        restorePrevious();
        throw ToolError::installationFailed("cannot move the tool into " + folder.string() + ": " +
                                            error.message());
    }
    stagingGuard.release();

    const std::string now = isoTimestamp(std::chrono::system_clock::now());
    ToolInfo info;
    info.status = toolStatusInstalled;
    info.executable = (folder / package.executable).string();
    info.modelsDir = (folder / package.modelsDirectory).string();
    info.installedAt = now;
    info.verifiedAt = now;
    info.version = package.version;
    info.availableModels = std::move(models);
    try {
        state_.update([&](ToolStateData& data) { data.tools[package.name] = info; });
    } catch (...) {
        restorePrevious();
        throw;
    }
    logger_.log("Installed " + package.name + " in " + folder.string());
    return info;
}

} // namespace lumivesper::tools
