// Exports frames made from photographs through HeicGenerator and, in the same run, encodes the
// same PNGs with heif-enc at its defaults; prints wall time, bytes and PSNR of both (each file
// decoded with libheif and compared with its PNGs), and the process's peak resident memory.
//
//   export_bench [options]
//     --photos DIR      photographs to scale and crop to the frame size (default: the MATE nature
//                       backgrounds); without any, textured frames are drawn instead
//     --frames N        frame count (12)           --size WxH       frame size (3840x2160)
//     --work DIR        where PNGs and files go (a temporary folder); existing PNGs are reused
//     --quality Q       the export's quality (the default)
//     --preset P --tune T --crf C   encoder settings instead of --quality (tune "none": no tune)
//     --sweep P1,P2:C1,C2          our export for each preset and rate factor (tune from --tune)
//     --no-reference    skip heif-enc          --heif-enc PATH   the reference encoder to run
//     --ours-only-peak  export once and print only the peak memory (run alone for an honest peak)

#include "export/heic_generator.h"
#include "export/hevc_frame_encoder.h"
#include "platform/image_io.h"
#include "heif_psnr.h"
#include "textured_frame.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>
#include <vips/vips.h>

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;
using lumivesper::exporting::HevcEncoderSettings;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void fail(const std::string& message) {
    std::fprintf(stderr, "export_bench: %s\n", message.c_str());
    std::exit(1);
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

// A photograph scaled to cover the frame and cropped at its centre, or a drawn landscape.
void writeFrame(const std::optional<fs::path>& photo, int width, int height, int index, int count,
                const fs::path& png) {
    VipsImage* image = nullptr;
    std::vector<std::uint8_t> rgb;
    if (photo) {
        if (vips_thumbnail(photo->c_str(), &image, width, "height", height, "crop",
                           VIPS_INTERESTING_CENTRE, nullptr) != 0)
            fail("cannot read " + photo->string() + ": " + vips_error_buffer());
    } else {
        rgb = lumivesper::bench::makeFrame(width, height, index, count);
        image = vips_image_new_from_memory(rgb.data(), rgb.size(), width, height, 3,
                                           VIPS_FORMAT_UCHAR);
    }
    if (!image || vips_pngsave(image, png.c_str(), "compression", 1, nullptr) != 0)
        fail("cannot write " + png.string() + ": " + vips_error_buffer());
    g_object_unref(image);
}

struct FileFigures {
    double seconds = 0;
    double cpuSeconds = 0; // all threads together: the work, whatever else the machine runs
    std::uintmax_t bytes = 0;
    double psnr = 0;
};

double psnrOf(const fs::path& heic, const std::vector<fs::path>& pngs) {
    try {
        return lumivesper::bench::heifPsnr(heic, static_cast<int>(pngs.size()), [&](int n) {
            return lumivesper::platform::loadImage(pngs[n]);
        });
    } catch (const std::exception& error) {
        fail(error.what());
    }
}

double cpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

FileFigures exportWith(const HevcEncoderSettings& settings,
                       const std::vector<lumivesper::document::WallpaperImage>& images,
                       const fs::path& output) {
    const auto start = Clock::now();
    const double cpuStart = cpuSeconds(RUSAGE_SELF);
    lumivesper::exporting::HeicGenerator(settings).generate(
        images, output, lumivesper::document::WallpaperMode::time, std::nullopt, nullptr);
    return {secondsSince(start), cpuSeconds(RUSAGE_SELF) - cpuStart, fs::file_size(output), 0};
}

long peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

void printRow(const char* name, const FileFigures& figures, int frames) {
    std::printf("%-34s %7.2f s %6.2f s/frame (CPU %6.1f s) %9ju bytes %8ju bytes/frame  "
                "PSNR %.3f dB\n",
                name, figures.seconds, figures.seconds / frames, figures.cpuSeconds, figures.bytes,
                figures.bytes / frames, figures.psnr);
}

} // namespace

int main(int argc, char** argv) {
    int frames = 12, width = 3840, height = 2160;
    std::optional<fs::path> photos = fs::path("/usr/share/backgrounds/mate/nature");
    fs::path work = fs::temp_directory_path() / "lumivesper-export-bench";
    HevcEncoderSettings settings =
        lumivesper::exporting::encoderSettingsForQuality(lumivesper::exporting::defaultQuality);
    std::string sweep, heifEnc = "heif-enc";
    bool reference = true, peakOnly = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc)
                fail(argument + " needs a value");
            return argv[++i];
        };
        if (argument == "--frames")
            frames = std::stoi(value());
        else if (argument == "--size") {
            const auto parts = split(value(), 'x');
            if (parts.size() != 2)
                fail("--size wants WxH");
            width = std::stoi(parts[0]);
            height = std::stoi(parts[1]);
        } else if (argument == "--photos")
            photos = value();
        else if (argument == "--work")
            work = value();
        else if (argument == "--quality")
            settings = lumivesper::exporting::encoderSettingsForQuality(std::stoi(value()));
        else if (argument == "--preset")
            settings.preset = value();
        else if (argument == "--tune") {
            settings.tune = value();
            if (settings.tune == "none")
                settings.tune.clear();
        } else if (argument == "--crf")
            settings.constantRateFactor = std::stod(value());
        else if (argument == "--sweep")
            sweep = value();
        else if (argument == "--no-reference")
            reference = false;
        else if (argument == "--heif-enc")
            heifEnc = value();
        else if (argument == "--ours-only-peak")
            peakOnly = true;
        else
            fail("unknown option " + argument + " (see the comment at the top of export_bench.cpp)");
    }
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    fs::create_directories(work);

    std::vector<fs::path> sources;
    if (photos && fs::is_directory(*photos))
        for (const auto& entry : fs::directory_iterator(*photos))
            if (entry.is_regular_file())
                sources.push_back(entry.path());
    std::sort(sources.begin(), sources.end());

    std::vector<lumivesper::document::WallpaperImage> images;
    std::vector<fs::path> pngs;
    std::string pngList;
    for (int n = 0; n < frames; ++n) {
        const auto png = work / ("frame_" + std::to_string(n) + "_" + std::to_string(width) + "x" +
                                 std::to_string(height) + ".png");
        if (!fs::exists(png))
            writeFrame(sources.empty() ? std::nullopt
                                       : std::optional(sources[n % sources.size()]),
                       width, height, n, frames, png);
        lumivesper::document::WallpaperImage image;
        image.fileName = png.filename().string();
        image.sourcePath = png;
        image.altitude = -10.0 + 70.0 * n / frames;
        image.azimuth = 90.0 + 180.0 * n / frames;
        images.push_back(image);
        pngs.push_back(png);
        pngList += " '" + png.string() + "'";
    }

    if (peakOnly) {
        const auto figures = exportWith(settings, images, work / "ours.heic");
        std::printf("%d frames %dx%d: %.2f s, %ju bytes, peak resident memory %ld MB\n", frames,
                    width, height, figures.seconds, figures.bytes, peakMegabytes());
        return 0;
    }

    std::printf("%d frames %dx%d from %s; %u hardware threads; load average at start: ", frames,
                width, height, sources.empty() ? "drawn landscapes" : photos->c_str(),
                std::thread::hardware_concurrency());
    double load[3] = {0, 0, 0};
    if (getloadavg(load, 3) == 3)
        std::printf("%.2f %.2f %.2f", load[0], load[1], load[2]);
    std::printf("\n");

    std::vector<std::pair<std::string, HevcEncoderSettings>> runs;
    if (sweep.empty()) {
        runs.emplace_back("ours", settings);
    } else {
        const auto halves = split(sweep, ':');
        if (halves.size() != 2)
            fail("--sweep wants PRESETS:RATE_FACTORS");
        for (const auto& preset : split(halves[0], ','))
            for (const auto& crf : split(halves[1], ',')) {
                auto swept = settings;
                swept = lumivesper::exporting::withPresetAndOptions(swept, preset);
                swept.constantRateFactor = std::stod(crf);
                runs.emplace_back("ours " + preset + "/" +
                                      (swept.tune.empty() ? "none" : swept.tune) + " crf " + crf,
                                  swept);
            }
    }
    for (const auto& [name, runSettings] : runs) {
        const auto output = work / "ours.heic";
        auto figures = exportWith(runSettings, images, output);
        figures.psnr = psnrOf(output, pngs);
        printRow(name.c_str(), figures, frames);
        std::fflush(stdout);
    }

    if (reference) {
        const auto output = work / "heif-enc.heic";
        const std::string command =
            "'" + heifEnc + "' -o '" + output.string() + "'" + pngList + " > /dev/null";
        const auto start = Clock::now();
        const double cpuStart = cpuSeconds(RUSAGE_CHILDREN);
        if (std::system(command.c_str()) != 0)
            fail("heif-enc failed: " + command);
        FileFigures figures{secondsSince(start), cpuSeconds(RUSAGE_CHILDREN) - cpuStart,
                            fs::file_size(output), 0};
        figures.psnr = psnrOf(output, pngs);
        printRow("heif-enc (defaults)", figures, frames);
    }
    std::printf("Peak resident memory of this process: %ld MB\n", peakMegabytes());
    return 0;
}
