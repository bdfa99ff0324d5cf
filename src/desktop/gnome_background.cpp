#include "desktop/gnome_background.h"

#include "desktop/desktop_background_error.h"
#include "platform/paths.h"
#include "tools/process_runner.h"

#include <algorithm>
#include <cctype>
#include <pugixml.hpp>
#include <sstream>

namespace lumivesper::desktop {

namespace fs = std::filesystem;

namespace {

constexpr const char* backgroundSchema = "org.gnome.desktop.background";
constexpr int secondsPerDay = 86400;

std::string xmlText(const pugi::xml_document& document) {
    std::ostringstream out;
    document.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

void addStatic(pugi::xml_node root, const fs::path& file, int seconds) {
    auto node = root.append_child("static");
    node.append_child("duration").text().set((std::to_string(seconds) + ".0").c_str());
    node.append_child("file").text().set(file.c_str());
}

void addTransition(pugi::xml_node root, const fs::path& from, const fs::path& to, int seconds) {
    auto node = root.append_child("transition");
    node.append_attribute("type") = "overlay";
    node.append_child("duration").text().set((std::to_string(seconds) + ".0").c_str());
    node.append_child("from").text().set(from.c_str());
    node.append_child("to").text().set(to.c_str());
}

tools::ProcessResult gsettings(std::vector<std::string> arguments) {
    const auto program = tools::findExecutable("gsettings");
    if (!program)
        throw DesktopBackgroundError(
            "The gsettings tool was not found: install GLib's tools (libglib2.0-bin).");
    try {
        return tools::runProcess({*program, std::move(arguments), std::nullopt});
    } catch (const tools::ProcessRunnerError& error) {
        std::string detail = error.result() ? error.result()->standardError : error.description();
        while (!detail.empty() && detail.back() == '\n')
            detail.pop_back();
        throw DesktopBackgroundError("gsettings failed: " + detail);
    }
}

} // namespace

std::string gnomeSlideshowXml(const std::vector<BackgroundFrame>& frames,
                              const std::vector<ScheduledChange>& schedule,
                              std::chrono::year_month_day day, int fadeSeconds) {
    pugi::xml_document document;
    auto root = document.append_child("background");
    auto start = root.append_child("starttime");
    start.append_child("year").text().set(static_cast<int>(day.year()));
    start.append_child("month").text().set(static_cast<unsigned>(day.month()));
    start.append_child("day").text().set(static_cast<unsigned>(day.day()));
    for (const char* field : {"hour", "minute", "second"})
        start.append_child(field).text().set(0);
    if (schedule.empty())
        return xmlText(document);
    auto fileOf = [&](std::size_t n) { return frames.at(schedule[n].frame).file; };
    const std::size_t count = schedule.size();
    if (count == 1) {
        addStatic(root, fileOf(0), secondsPerDay);
        return xmlText(document);
    }
    // Until the first change the last picture of the day goes on from the night before.
    if (schedule[0].second > 0)
        addStatic(root, fileOf(count - 1), schedule[0].second);
    for (std::size_t n = 0; n < count; ++n) {
        const int end = n + 1 < count ? schedule[n + 1].second : secondsPerDay;
        const int length = end - schedule[n].second;
        const int fade = std::min(fadeSeconds, length / 2);
        if (fade > 0)
            addTransition(root, fileOf(n == 0 ? count - 1 : n - 1), fileOf(n), fade);
        addStatic(root, fileOf(n), length - fade);
    }
    return xmlText(document);
}

std::string gnomeBackgroundPropertiesXml(const std::string& name, const fs::path& file,
                                         const fs::path& darkFile) {
    pugi::xml_document document;
    document.append_child(pugi::node_doctype).set_value("wallpapers SYSTEM \"gnome-wp-list.dtd\"");
    auto wallpaper = document.append_child("wallpapers").append_child("wallpaper");
    wallpaper.append_attribute("deleted") = "false";
    wallpaper.append_child("name").text().set(name.c_str());
    wallpaper.append_child("filename").text().set(file.c_str());
    if (!darkFile.empty())
        wallpaper.append_child("filename-dark").text().set(darkFile.c_str());
    wallpaper.append_child("options").text().set("zoom");
    wallpaper.append_child("shade_type").text().set("solid");
    wallpaper.append_child("pcolor").text().set("#000000");
    wallpaper.append_child("scolor").text().set("#000000");
    return xmlText(document);
}

fs::path gnomeBackgroundPropertiesFile() {
    return platform::dataHome() / "gnome-background-properties" / "lumivesper-ai.xml";
}

std::string fileUri(const fs::path& path) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string uri = "file://";
    for (const unsigned char c : path.string()) {
        if (std::isalnum(c) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~') {
            uri += static_cast<char>(c);
            continue;
        }
        uri += '%';
        uri += hex[c >> 4];
        uri += hex[c & 15];
    }
    return uri;
}

void setGnomeBackground(const fs::path& light, const fs::path& dark) {
    gsettings({"set", backgroundSchema, "picture-uri", fileUri(light)});
    gsettings({"set", backgroundSchema, "picture-uri-dark", fileUri(dark)});
    gsettings({"set", backgroundSchema, "picture-options", "zoom"});
}

void resetGnomeBackgroundIfUnder(const fs::path& folder) {
    const std::string prefix = fileUri(folder);
    for (const char* key : {"picture-uri", "picture-uri-dark"}) {
        const auto current = gsettings({"get", backgroundSchema, key}).standardOutput;
        if (current.find(prefix) != std::string::npos)
            gsettings({"reset", backgroundSchema, key});
    }
}

} // namespace lumivesper::desktop
