#include "cli/command.h"
#include "export/wallpaper_reader.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace lumivesper::cli {

namespace {

constexpr const char* inspectUsage =
    "Usage: lumivesper-cli inspect FILE.heic [--json]\n\n"
    "Reads a dynamic wallpaper back: its kind, its images and the values the desktop reads.\n"
    "Reads the files of other programs too: solar, h24 and appearance metadata.\n\n"
    "  --json   print one JSON object instead of text\n";

// The shortest text that reads back as the same double: values are shown exactly as stored.
std::string exact(double value) {
    char text[32];
    auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return error == std::errc() ? std::string(text, end) : std::to_string(value);
}

std::string modeOf(const exporting::WallpaperFileInfo& info) {
    return info.kind == "apr" ? "appearance" : "time";
}

std::string kindTitle(const std::string& kind) {
    if (kind == "solar")
        return "solar (time mode, by sun position)";
    if (kind == "h24")
        return "h24 (time mode, by hour of the day)";
    return "apr (appearance mode)";
}

void printText(const exporting::WallpaperFileInfo& info, const std::string& path,
               std::ostream& out) {
    out << "File: " << path << "\n";
    out << "Kind: " << kindTitle(info.kind) << "\n";
    if (info.properties.size() > 1) {
        out << "Properties:";
        for (const auto& property : info.properties)
            out << " apple_desktop:" << property;
        out << "\n";
    }
    out << "XMP form: " << info.xmpForm << "\n";
    out << "Images: " << info.images.size() << " (primary: " << info.primaryIndex << ")\n";
    for (std::size_t n = 0; n < info.images.size(); ++n) {
        const auto& image = info.images[n];
        out << "  [" << n << "] " << image.width << "x" << image.height << " " << image.bitDepth
            << "-bit" << (image.hasAlpha ? " alpha" : "")
            << (image.colourProfile.empty() ? "" : "  " + image.colourProfile)
            << (image.hasXmp ? "  XMP" : "") << "\n";
    }
    if (!info.solarFrames.empty()) {
        out << "Frames: " << info.solarFrames.size() << "\n";
        for (const auto& frame : info.solarFrames) {
            out << "  i=" << frame.index << " altitude=" << exact(frame.altitude)
                << " azimuth=" << exact(frame.azimuth);
            if (frame.light)
                out << " light=" << *frame.light;
            out << "\n";
        }
    }
    if (!info.hourFrames.empty()) {
        out << "Hours: " << info.hourFrames.size() << "\n";
        for (const auto& frame : info.hourFrames)
            out << "  i=" << frame.index << " t=" << exact(frame.dayFraction)
                << " hour=" << exact(frame.dayFraction * 24) << "\n";
    }
    if (info.lightIndex)
        out << "Light image: " << *info.lightIndex << "\n";
    if (info.darkIndex)
        out << "Dark image: " << *info.darkIndex << "\n";
}

void printJson(const exporting::WallpaperFileInfo& info, const std::string& path,
               std::ostream& out) {
    nlohmann::ordered_json json;
    json["file"] = path;
    json["kind"] = info.kind;
    json["mode"] = modeOf(info);
    json["properties"] = info.properties;
    json["xmpForm"] = info.xmpForm;
    json["primaryIndex"] = info.primaryIndex;
    json["images"] = nlohmann::ordered_json::array();
    for (std::size_t n = 0; n < info.images.size(); ++n) {
        const auto& image = info.images[n];
        nlohmann::ordered_json entry{{"index", n},
                                     {"width", image.width},
                                     {"height", image.height},
                                     {"bitDepth", image.bitDepth},
                                     {"hasAlpha", image.hasAlpha},
                                     {"hasXmp", image.hasXmp}};
        if (!image.colourProfile.empty())
            entry["colourProfile"] = image.colourProfile;
        json["images"].push_back(std::move(entry));
    }
    if (!info.solarFrames.empty()) {
        json["frames"] = nlohmann::ordered_json::array();
        for (const auto& frame : info.solarFrames) {
            nlohmann::ordered_json entry{
                {"index", frame.index}, {"altitude", frame.altitude}, {"azimuth", frame.azimuth}};
            if (frame.light)
                entry["light"] = *frame.light;
            json["frames"].push_back(std::move(entry));
        }
    }
    if (!info.hourFrames.empty()) {
        json["hours"] = nlohmann::ordered_json::array();
        for (const auto& frame : info.hourFrames)
            json["hours"].push_back({{"index", frame.index}, {"dayFraction", frame.dayFraction}});
    }
    if (info.lightIndex)
        json["light"] = *info.lightIndex;
    if (info.darkIndex)
        json["dark"] = *info.darkIndex;
    out << json.dump(2) << "\n";
}

} // namespace

int runInspect(const CommandContext& context) {
    std::optional<std::string> file;
    bool asJson = false;
    for (const auto& argument : context.arguments) {
        if (argument == "--help" || argument == "-h") {
            context.out << inspectUsage;
            return exitSuccess;
        }
        if (argument == "--json") {
            asJson = true;
            continue;
        }
        if ((argument.size() > 1 && argument.front() == '-') || file) {
            context.err << "lumivesper-cli inspect: unexpected argument '" << argument << "'\n\n"
                        << inspectUsage;
            return exitUsage;
        }
        file = argument;
    }
    if (!file) {
        context.err << "lumivesper-cli inspect: a FILE.heic is required\n\n" << inspectUsage;
        return exitUsage;
    }
    exporting::WallpaperFileInfo info;
    try {
        info = exporting::readWallpaper(*file);
    } catch (const exporting::WallpaperReadError& error) {
        context.err << "lumivesper-cli inspect: " << *file << ": " << error.what() << "\n";
        return exitFailure;
    }
    const std::size_t records =
        info.kind == "h24" ? info.hourFrames.size() : info.solarFrames.size();
    if (info.kind != "apr" && records != info.images.size())
        context.err << "lumivesper-cli inspect: warning: the metadata lists " << records
                    << " frames but the file holds " << info.images.size() << " images\n";
    if (asJson)
        printJson(info, *file, context.out);
    else
        printText(info, *file, context.out);
    return exitSuccess;
}

} // namespace lumivesper::cli
