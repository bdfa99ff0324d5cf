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
    "Reads a dynamic wallpaper back: its kind, its images and the values the desktop reads.\n\n"
    "  --json   print one JSON object instead of text\n";

// The shortest text that reads back as the same double: values are shown exactly as stored.
std::string exact(double value) {
    char text[32];
    auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return error == std::errc() ? std::string(text, end) : std::to_string(value);
}

void printText(const exporting::WallpaperFileInfo& info, const std::string& path,
               std::ostream& out) {
    const bool solar = info.kind == "solar";
    out << "File: " << path << "\n";
    out << "Kind: " << info.kind << (solar ? " (time mode)" : " (appearance mode)") << "\n";
    out << "Images: " << info.images.size() << " (primary: " << info.primaryIndex << ")\n";
    for (std::size_t n = 0; n < info.images.size(); ++n) {
        const auto& image = info.images[n];
        out << "  [" << n << "] " << image.width << "x" << image.height
            << (image.hasXmp ? "  XMP" : "") << "\n";
    }
    if (solar) {
        out << "Frames: " << info.solarFrames.size() << "\n";
        for (const auto& frame : info.solarFrames)
            out << "  i=" << frame.index << " altitude=" << exact(frame.altitude)
                << " azimuth=" << exact(frame.azimuth) << " light=" << frame.light << "\n";
    } else {
        out << "Light image: " << *info.lightIndex << "\n";
        out << "Dark image: " << *info.darkIndex << "\n";
    }
}

void printJson(const exporting::WallpaperFileInfo& info, const std::string& path,
               std::ostream& out) {
    nlohmann::ordered_json json;
    json["file"] = path;
    json["kind"] = info.kind;
    json["mode"] = info.kind == "solar" ? "time" : "appearance";
    json["primaryIndex"] = info.primaryIndex;
    json["images"] = nlohmann::ordered_json::array();
    for (std::size_t n = 0; n < info.images.size(); ++n)
        json["images"].push_back({{"index", n},
                                  {"width", info.images[n].width},
                                  {"height", info.images[n].height},
                                  {"hasXmp", info.images[n].hasXmp}});
    if (info.kind == "solar") {
        json["frames"] = nlohmann::ordered_json::array();
        for (const auto& frame : info.solarFrames)
            json["frames"].push_back({{"index", frame.index},
                                      {"altitude", frame.altitude},
                                      {"azimuth", frame.azimuth},
                                      {"light", frame.light}});
    } else {
        json["light"] = *info.lightIndex;
        json["dark"] = *info.darkIndex;
    }
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
    if (info.kind == "solar" && info.solarFrames.size() != info.images.size())
        context.err << "lumivesper-cli inspect: warning: the metadata lists "
                    << info.solarFrames.size() << " frames but the file holds "
                    << info.images.size() << " images\n";
    if (asJson)
        printJson(info, *file, context.out);
    else
        printText(info, *file, context.out);
    return exitSuccess;
}

} // namespace lumivesper::cli
