#include "desktop/desktop_background.h"

#include "desktop/background_frames.h"
#include "desktop/background_timer.h"
#include "desktop/command_hook.h"
#include "desktop/gnome_background.h"
#include "desktop/plasma_wallpaper.h"
#include "platform/paths.h"
#include "platform/uuid.h"
#include "sun/solar_position.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

namespace lumivesper::desktop {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* stateFileName = "current.json";
constexpr const char* plasmaPackageId = "lumivesper-ai-dynamic";

// Everything a refresh needs, kept beside the pictures.
struct AppliedBackground {
    DesktopKind desktop = DesktopKind::gnome;
    BackgroundFrames frames;
    fs::path folder;
    std::optional<Location> location;
    std::string command;
    fs::path shown;                  // the picture set from outside last time
    std::optional<HookProcess> hook; // a hook that kept running
};

fs::path plasmaPackageFolder() {
    return platform::dataHome() / "wallpapers" / plasmaPackageId;
}

const char* desktopName(DesktopKind kind) {
    switch (kind) {
    case DesktopKind::gnome:
        return "gnome";
    case DesktopKind::plasma:
        return "plasma";
    case DesktopKind::command:
        return "command";
    }
    return "gnome";
}

json toJson(const AppliedBackground& applied) {
    json frames = json::array();
    for (const auto& frame : applied.frames.frames) {
        json entry{{"file", frame.file.string()}};
        if (frame.altitude)
            entry["altitude"] = *frame.altitude;
        if (frame.azimuth)
            entry["azimuth"] = *frame.azimuth;
        if (frame.hour)
            entry["hour"] = *frame.hour;
        frames.push_back(std::move(entry));
    }
    json state{
        {"desktop", desktopName(applied.desktop)},
        {"kind", applied.frames.kind == BackgroundFrames::Kind::time ? "time" : "appearance"},
        {"name", applied.frames.name},
        {"folder", applied.folder.string()},
        {"frames", std::move(frames)},
        {"light", applied.frames.light.string()},
        {"dark", applied.frames.dark.string()},
        {"command", applied.command},
        {"shown", applied.shown.string()}};
    if (applied.location)
        state["location"] = {applied.location->latitude, applied.location->longitude};
    if (applied.hook)
        state["hook"] = {applied.hook->pid, applied.hook->startTime};
    return state;
}

AppliedBackground fromJson(const json& state) {
    AppliedBackground applied;
    const std::string desktop = state.at("desktop");
    applied.desktop = desktop == "plasma"    ? DesktopKind::plasma
                      : desktop == "command" ? DesktopKind::command
                                             : DesktopKind::gnome;
    applied.frames.kind = state.at("kind") == "time" ? BackgroundFrames::Kind::time
                                                     : BackgroundFrames::Kind::appearance;
    applied.frames.name = state.at("name");
    applied.folder = state.at("folder").get<std::string>();
    for (const auto& entry : state.at("frames")) {
        BackgroundFrame frame{entry.at("file").get<std::string>(), {}, {}, {}};
        if (entry.contains("altitude"))
            frame.altitude = entry["altitude"].get<double>();
        if (entry.contains("azimuth"))
            frame.azimuth = entry["azimuth"].get<double>();
        if (entry.contains("hour"))
            frame.hour = entry["hour"].get<double>();
        applied.frames.frames.push_back(std::move(frame));
    }
    applied.frames.light = state.at("light").get<std::string>();
    applied.frames.dark = state.at("dark").get<std::string>();
    applied.command = state.at("command");
    applied.shown = state.at("shown").get<std::string>();
    if (state.contains("location"))
        applied.location = Location{state["location"][0], state["location"][1]};
    if (state.contains("hook"))
        applied.hook = HookProcess{state["hook"][0], state["hook"][1]};
    return applied;
}

std::optional<AppliedBackground> readState() {
    std::ifstream in(backgroundsFolder() / stateFileName);
    if (!in)
        return std::nullopt;
    try {
        return fromJson(json::parse(in));
    } catch (const json::exception&) {
        return std::nullopt; // a damaged record: as if nothing was applied
    }
}

void writeState(const AppliedBackground& applied) {
    const fs::path path = backgroundsFolder() / stateFileName;
    const fs::path partial = path.string() + ".partial";
    {
        std::ofstream out(partial, std::ios::trunc);
        out << toJson(applied).dump(2) << "\n";
        if (!out)
            throw DesktopBackgroundError("Cannot write " + partial.string());
    }
    fs::rename(partial, path);
}

void writeText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::trunc);
    out << text;
    out.close();
    if (!out)
        throw DesktopBackgroundError("Cannot write " + path.string());
}

bool isTime(const AppliedBackground& applied) {
    return applied.frames.kind == BackgroundFrames::Kind::time;
}

int secondsAfter(std::chrono::system_clock::time_point midnight,
                 std::chrono::system_clock::time_point now) {
    return static_cast<int>(std::clamp<long long>(
        std::chrono::duration_cast<std::chrono::seconds>(now - midnight).count(), 0, 86399));
}

// The picture for the moment: by the sun's schedule, or for appearance wallpapers the light one
// while the sun is up.
fs::path pictureNow(const AppliedBackground& applied, std::chrono::system_clock::time_point now) {
    const auto zone = sun::TimeZone::current();
    const Location location = applied.location.value_or(Location{});
    if (!isTime(applied)) {
        if (!applied.location)
            return applied.frames.light;
        const auto sun = sun::solarPosition(now, zone, location.latitude, location.longitude);
        return sun && sun->altitude < 0 ? applied.frames.dark : applied.frames.light;
    }
    const auto midnight = localMidnight(now, zone);
    const auto schedule = scheduleDay(applied.frames.frames, location, midnight, zone);
    return applied.frames.frames.at(frameAt(schedule, secondsAfter(midnight, now))).file;
}

void presentGnome(const AppliedBackground& applied, std::chrono::system_clock::time_point now) {
    const auto& frames = applied.frames;
    if (!isTime(applied)) {
        writeText(gnomeBackgroundPropertiesFile(),
                  gnomeBackgroundPropertiesXml(frames.name, frames.light, frames.dark));
        setGnomeBackground(frames.light, frames.dark);
        return;
    }
    const auto zone = sun::TimeZone::current();
    const auto midnight = localMidnight(now, zone);
    const auto schedule = scheduleDay(frames.frames, *applied.location, midnight, zone);
    const auto localDay = std::chrono::floor<std::chrono::days>(
        midnight + std::chrono::seconds(zone.secondsFromUtc(midnight)));
    const fs::path slideshow = applied.folder / "slideshow.xml";
    writeText(slideshow,
              gnomeSlideshowXml(frames.frames, schedule, std::chrono::year_month_day(localDay)));
    writeText(gnomeBackgroundPropertiesFile(),
              gnomeBackgroundPropertiesXml(frames.name, slideshow));
    setGnomeBackground(slideshow, slideshow);
}

// Sets the picture of the moment from outside (Plasma's tool, a hook) when it changed.
void presentPicture(AppliedBackground& applied, std::chrono::system_clock::time_point now) {
    const fs::path picture = pictureNow(applied, now);
    if (picture == applied.shown && (applied.desktop != DesktopKind::command || applied.hook))
        return;
    if (applied.desktop == DesktopKind::plasma) {
        applyPlasmaWallpaper(picture);
    } else {
        const auto previous = applied.hook;
        applied.hook = startCommandHook(applied.command, picture);
        if (previous)
            stopCommandHook(*previous);
    }
    applied.shown = picture;
}

void present(AppliedBackground& applied, std::chrono::system_clock::time_point now) {
    if (applied.desktop == DesktopKind::gnome)
        return presentGnome(applied, now);
    if (applied.desktop == DesktopKind::plasma && !isTime(applied)) {
        // Installed where Plasma's wallpaper settings list packages, so that it can be chosen
        // there too; its pictures are links to ours.
        const fs::path folder = plasmaPackageFolder();
        std::error_code ignored;
        fs::remove_all(folder, ignored);
        writePlasmaPackage(folder, plasmaPackageId, applied.frames.name, applied.frames.light,
                           applied.frames.dark);
        applyPlasmaWallpaper(folder);
        return;
    }
    presentPicture(applied, now);
}

std::string folderName(const std::string& name) {
    std::string result;
    for (const char c : name)
        result += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' ? c : '-';
    if (result.empty())
        result = "wallpaper";
    return result + "-" + platform::Uuid::generate().toString().substr(0, 8);
}

// Only the pictures of `keep` stay: applying again never piles up.
void removeOtherFolders(const fs::path& keep) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(backgroundsFolder(), error))
        if (entry.is_directory() && entry.path() != keep)
            fs::remove_all(entry.path(), error);
}

} // namespace

std::optional<DesktopKind> detectDesktop() {
    const char* value = std::getenv("XDG_CURRENT_DESKTOP");
    std::string desktops = value ? value : "";
    std::transform(desktops.begin(), desktops.end(), desktops.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if (desktops.find("kde") != std::string::npos)
        return DesktopKind::plasma;
    for (const char* name : {"gnome", "unity", "budgie"})
        if (desktops.find(name) != std::string::npos)
            return DesktopKind::gnome;
    return std::nullopt;
}

fs::path backgroundsFolder() {
    return platform::dataHome() / "lumivesper" / "backgrounds";
}

ApplyResult applyDesktopBackground(const ApplyRequest& request, std::stop_token stop,
                                   const exporting::ProgressCallback& progress) {
    AppliedBackground applied;
    const auto previous = readState();
    if (!request.command.empty()) {
        applied.desktop = DesktopKind::command;
        applied.command = request.command;
    } else if (const auto desktop = request.desktop ? request.desktop : detectDesktop()) {
        applied.desktop = *desktop;
    } else {
        throw DesktopBackgroundError(
            "This desktop is neither GNOME nor Plasma: name one with --desktop gnome|plasma, or "
            "give a command that sets a picture, such as --command 'swaybg -i {}'.");
    }
    applied.location = request.location ? request.location
                       : previous       ? previous->location
                                        : std::nullopt;

    fs::create_directories(backgroundsFolder());
    applied.folder = backgroundsFolder() / folderName(request.source.stem().string());
    try {
        applied.frames = extractBackgroundFrames(request.source, applied.folder, stop, progress);
        if (isTime(applied) && !applied.location)
            throw DesktopBackgroundError(
                "A time wallpaper follows the sun where you are: give your place with --lat and "
                "--lon.");
        present(applied, std::chrono::system_clock::now());
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(applied.folder, ignored);
        throw;
    }
    if (previous && previous->hook && !(applied.hook && applied.hook->pid == previous->hook->pid))
        stopCommandHook(*previous->hook);
    writeState(applied);
    removeOtherFolders(applied.folder);

    ApplyResult result;
    result.lines.push_back(std::string("Desktop: ") + desktopName(applied.desktop));
    result.lines.push_back("Pictures: " + applied.folder.string());
    if (applied.desktop == DesktopKind::gnome)
        result.lines.push_back("Listed in Settings: " + gnomeBackgroundPropertiesFile().string());
    const bool followsClock = isTime(applied) || (applied.desktop == DesktopKind::command &&
                                                  applied.location.has_value());
    if (followsClock && !request.refreshCommand.empty()) {
        result.warnings =
            installBackgroundTimer(request.refreshCommand, applied.desktop == DesktopKind::gnome
                                                               ? TimerSchedule::daily
                                                               : TimerSchedule::everyFiveMinutes);
        result.lines.push_back("Timer: " + (userUnitFolder() / timerUnitName).string());
    } else {
        result.warnings = removeBackgroundTimer();
    }
    return result;
}

ApplyResult refreshDesktopBackground(std::chrono::system_clock::time_point now) {
    auto applied = readState();
    if (!applied)
        throw DesktopBackgroundError(
            "No dynamic wallpaper is applied: run apply with a file first.");
    if (isTime(*applied) && !applied->location)
        throw DesktopBackgroundError(
            "The applied wallpaper has no location; apply it again with --lat and --lon.");
    present(*applied, now);
    writeState(*applied);
    ApplyResult result;
    result.lines.push_back("Refreshed: " + applied->folder.string());
    return result;
}

ApplyResult removeDesktopBackground() {
    ApplyResult result;
    result.warnings = removeBackgroundTimer();
    const auto applied = readState();
    if (applied && applied->hook)
        stopCommandHook(*applied->hook);
    // GNOME may still show our pictures after another desktop's apply: reset wherever it can be.
    try {
        resetGnomeBackgroundIfUnder(backgroundsFolder());
    } catch (const DesktopBackgroundError& error) {
        if (applied && applied->desktop == DesktopKind::gnome)
            result.warnings.push_back(error.what());
    }
    std::error_code error;
    fs::remove(gnomeBackgroundPropertiesFile(), error);
    fs::remove_all(plasmaPackageFolder(), error);
    fs::remove_all(backgroundsFolder(), error);
    result.lines.push_back("Removed: " + backgroundsFolder().string());
    return result;
}

} // namespace lumivesper::desktop
