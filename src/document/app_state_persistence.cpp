// The parts of AppState that live in the defaults store: the recent-projects list and the
// client's identity and resumption keys against the generation server.
#include "document/app_state.h"
#include "document/json_coding.h"
#include "document/package_path.h"
#include "platform/console.h"
#include "settings/defaults.h"

#include <algorithm>
#include <chrono>

namespace lumivesper::document {

namespace {

// The display names the way a list of strings prints: ["First", "Second"].
std::string displayNamesDescription(const std::vector<RecentProject>& projects) {
    std::string text = "[";
    for (std::size_t i = 0; i < projects.size(); ++i) {
        if (i > 0)
            text += ", ";
        text += nlohmann::json(projects[i].displayName)
                    .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    return text + "]";
}

} // namespace

AppState::AppState(settings::Defaults& defaults) : defaults_(&defaults) {
    loadRecentProjects();
    loadGenerationState();
}

void AppState::loadRecentProjects() {
    if (!defaults_)
        return;
    const auto data = defaults_->data(recentProjectsKey);
    if (!data) {
        platform::consoleLine("📂 No recent projects found in the settings file");
        recentProjects_.clear();
        notify(AppStateField::recentProjects);
        return;
    }
    try {
        // The stored value stays as it is when it does not decode, until the next save.
        recentProjects_ =
            nlohmann::json::parse(data->begin(), data->end()).get<std::vector<RecentProject>>();
    } catch (const std::exception& error) {
        platform::consoleLine(std::string("Failed to load recent projects: ") + error.what());
        recentProjects_.clear();
        notify(AppStateField::recentProjects);
        return;
    }
    platform::consoleLine("📂 Loaded " + std::to_string(recentProjects_.size()) +
                          " recent projects");
    platform::consoleLine("📂 Projects: " + displayNamesDescription(recentProjects_));
    notify(AppStateField::recentProjects);
}

void AppState::addRecentProject(const std::filesystem::path& url) {
    const std::string path = normalisedPackagePath(url).string();
    if (path.empty()) {
        platform::consoleLine("⚠️ addRecentProject: empty path");
        return;
    }
    platform::consoleLine("➕ Adding recent project: " + path);
    // Entries stored in another spelling of the same package count as the same.
    std::erase_if(recentProjects_, [&](const RecentProject& entry) {
        return normalisedPackagePath(entry.path).string() == path;
    });
    recentProjects_.insert(
        recentProjects_.begin(),
        RecentProject{path, recentDisplayName(path), std::chrono::system_clock::now()});
    if (recentProjects_.size() > maximumRecentProjects)
        recentProjects_.resize(maximumRecentProjects);
    platform::consoleLine("📝 Recent projects count: " + std::to_string(recentProjects_.size()));
    platform::consoleLine("📝 Recent projects: " + displayNamesDescription(recentProjects_));
    notify(AppStateField::recentProjects);
    saveRecentProjects();
}

void AppState::saveRecentProjects() {
    if (!defaults_)
        return;
    // A path that is not UTF-8 is stored with replacement characters: that one entry will not
    // open again, but the others keep being saved.
    const std::string encoded = nlohmann::json(recentProjects_).dump(
        -1, ' ', false, nlohmann::json::error_handler_t::replace);
    defaults_->setData(recentProjectsKey,
                       std::vector<std::uint8_t>(encoded.begin(), encoded.end()));
    platform::consoleLine("💾 Saved " + std::to_string(recentProjects_.size()) +
                          " recent projects to the settings file");
}

void AppState::clearRecentProjects() {
    recentProjects_.clear();
    notify(AppStateField::recentProjects);
    saveRecentProjects();
}

void AppState::loadGenerationState() {
    if (!defaults_)
        return;
    clientId_ = defaults_->stringOrInsert(clientIdKey, [] { return Uuid::generate().toString(); });
    // Each setter persists all three fields, so the first one removes the two keys not read yet:
    // after a launch only the job id survives. The order is deliberate; keep it.
    setCurrentGenerationJobId(defaults_->string(currentGenerationJobIdKey));
    setCurrentGenerationIdempotencyKey(defaults_->string(currentGenerationIdempotencyKeyKey));
    setCurrentGenerationLastEventId(defaults_->string(currentGenerationLastEventIdKey));
}

void AppState::persistGenerationState() {
    if (!defaults_)
        return;
    const auto store = [this](const char* key, const std::optional<std::string>& value) {
        if (value)
            defaults_->setString(key, *value);
        else
            defaults_->remove(key);
    };
    store(currentGenerationJobIdKey, currentGenerationJobId_);
    store(currentGenerationIdempotencyKeyKey, currentGenerationIdempotencyKey_);
    store(currentGenerationLastEventIdKey, currentGenerationLastEventId_);
}

void AppState::setSourcePath(const Uuid& id, std::optional<std::filesystem::path> path) {
    const auto found = std::find_if(images_.begin(), images_.end(),
                                    [&](const WallpaperImage& image) { return image.id == id; });
    if (found == images_.end())
        return;
    if (found->sourcePath == path)
        return;
    found->sourcePath = std::move(path);
    rowsChanged_.notify({ImageRowChange::Kind::changed,
                         static_cast<std::size_t>(found - images_.begin()), 1, 0});
    notify(AppStateField::images);
}

void AppState::fillDisplayPreview(const Uuid& id,
                                  std::shared_ptr<const platform::PixelImage> preview) {
    const auto found = std::find_if(images_.begin(), images_.end(),
                                    [&](const WallpaperImage& image) { return image.id == id; });
    if (found == images_.end() || found->thumbnail || !preview)
        return;
    found->thumbnail = std::move(preview);
    rowsChanged_.notify({ImageRowChange::Kind::changed,
                         static_cast<std::size_t>(found - images_.begin()), 1, 0});
    notify(AppStateField::images);
}

bool AppState::replaceImageFile(const Uuid& id, std::filesystem::path path,
                                std::shared_ptr<const platform::PixelImage> thumbnail) {
    const auto found = std::find_if(images_.begin(), images_.end(),
                                    [&](const WallpaperImage& image) { return image.id == id; });
    if (found == images_.end())
        return false;
    found->sourcePath = std::move(path);
    found->thumbnail = std::move(thumbnail);
    rowsChanged_.notify({ImageRowChange::Kind::changed,
                         static_cast<std::size_t>(found - images_.begin()), 1, 0});
    notify(AppStateField::images);
    return true;
}

} // namespace lumivesper::document
