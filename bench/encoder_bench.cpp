// The encoding stage alone, for machines without our image library: JPEG photographs (already at
// the frame size) become PNGs, then HeicWriter encodes them, decoding each PNG on its workers as
// the export does, and in the same run heif-enc encodes the same PNGs at its defaults. Prints wall
// time, bytes and PSNR of both. Needs only libjpeg, libpng, libheif and x265, so it can be shipped
// with its libraries to another machine.
//
//   encoder_bench JPEG_FOLDER WORK_FOLDER [HEIF_ENC_COMMAND] [--sweep P1,P2:C1,C2] [--tune T]

#include "export/heic_writer.h"
#include "heif_psnr.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <jpeglib.h>
#include <png.h>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using lumivesper::platform::PixelImage;

[[noreturn]] void fail(const std::string& message) {
    std::fprintf(stderr, "encoder_bench: %s\n", message.c_str());
    std::exit(1);
}

PixelImage readJpeg(const fs::path& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        fail("cannot open " + path.string());
    jpeg_decompress_struct decoder{};
    jpeg_error_mgr errors{};
    decoder.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decoder);
    jpeg_stdio_src(&decoder, file);
    jpeg_read_header(&decoder, TRUE);
    decoder.out_color_space = JCS_RGB;
    jpeg_start_decompress(&decoder);
    PixelImage image(static_cast<int>(decoder.output_width),
                     static_cast<int>(decoder.output_height));
    std::vector<std::uint8_t> row(std::size_t(image.width) * 3);
    while (decoder.output_scanline < decoder.output_height) {
        const int y = static_cast<int>(decoder.output_scanline);
        JSAMPROW rows[] = {row.data()};
        jpeg_read_scanlines(&decoder, rows, 1);
        for (int x = 0; x < image.width; ++x) {
            std::copy_n(&row[std::size_t(x) * 3], 3, image.pixel(x, y));
            image.pixel(x, y)[3] = 255;
        }
    }
    jpeg_finish_decompress(&decoder);
    jpeg_destroy_decompress(&decoder);
    std::fclose(file);
    return image;
}

PixelImage readPng(const fs::path& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str()))
        fail("cannot read " + path.string());
    png.format = PNG_FORMAT_RGBA;
    PixelImage image(static_cast<int>(png.width), static_cast<int>(png.height));
    if (!png_image_finish_read(&png, nullptr, image.rgba.data(), 0, nullptr))
        fail("cannot decode " + path.string());
    return image;
}

// RGB, fast compression, as the export writes its temporary frames.
void writePng(const PixelImage& image, const fs::path& path) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        fail("cannot write " + path.string());
    png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(writer);
    png_init_io(writer, file);
    png_set_IHDR(writer, info, image.width, image.height, 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(writer, 1);
    png_set_filter(writer, 0, PNG_FILTER_UP);
    png_write_info(writer, info);
    std::vector<std::uint8_t> row(std::size_t(image.width) * 3);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x)
            std::copy_n(image.pixel(x, y), 3, &row[std::size_t(x) * 3]);
        png_write_row(writer, row.data());
    }
    png_write_end(writer, nullptr);
    png_destroy_write_struct(&writer, &info);
    std::fclose(file);
}

std::int64_t pngPixels(const fs::path& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str()))
        fail("cannot read " + path.string());
    png_image_free(&png);
    return std::int64_t(png.width) * png.height;
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

void report(const std::string& name, double seconds, const fs::path& file,
            const std::vector<fs::path>& pngs) {
    const double psnr = lumivesper::bench::heifPsnr(file, static_cast<int>(pngs.size()),
                                                    [&](int n) { return readPng(pngs[n]); });
    const auto bytes = fs::file_size(file);
    std::printf("%-30s %8.2f s %7.2f s/frame %10ju bytes %9ju bytes/frame  PSNR %.3f dB\n",
                name.c_str(), seconds, seconds / pngs.size(), bytes, bytes / pngs.size(), psnr);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3)
        fail("usage: encoder_bench JPEG_FOLDER WORK_FOLDER [HEIF_ENC_COMMAND] [--sweep P:C] "
             "[--tune T]");
    const fs::path jpegs = argv[1], work = argv[2];
    std::string heifEnc, sweep;
    auto settings =
        lumivesper::exporting::encoderSettingsForQuality(lumivesper::exporting::defaultQuality);
    for (int i = 3; i < argc; ++i) {
        const std::string argument = argv[i];
        if ((argument == "--sweep" || argument == "--tune") && i + 1 < argc)
            (argument == "--sweep" ? sweep : settings.tune) = argv[++i];
        else
            heifEnc = argument;
    }
    fs::create_directories(work);

    std::vector<fs::path> sources;
    for (const auto& entry : fs::directory_iterator(jpegs))
        if (entry.path().extension() == ".jpg")
            sources.push_back(entry.path());
    std::sort(sources.begin(), sources.end());
    std::vector<fs::path> pngs;
    std::string pngList;
    for (const auto& source : sources) {
        pngs.push_back(work / source.filename().replace_extension(".png"));
        if (!fs::exists(pngs.back()))
            writePng(readJpeg(source), pngs.back());
        pngList += " '" + pngs.back().string() + "'";
    }
    if (pngs.empty())
        fail("no JPEGs in " + jpegs.string());
    std::printf("%zu frames; %u hardware threads\n", pngs.size(),
                std::thread::hardware_concurrency());

    std::vector<std::pair<std::string, lumivesper::exporting::HevcEncoderSettings>> runs{
        {"ours", settings}};
    if (!sweep.empty()) {
        runs.clear();
        const auto halves = split(sweep, ':');
        for (const auto& preset : split(halves.at(0), ','))
            for (const auto& crf : split(halves.at(1), ',')) {
                auto swept = settings;
                swept = lumivesper::exporting::withPresetAndOptions(swept, preset);
                swept.constantRateFactor = std::stod(crf);
                runs.emplace_back("ours " + preset + " crf " + crf, swept);
            }
    }
    for (const auto& [name, runSettings] : runs) {
        const auto output = work / "ours.heic";
        const auto start = Clock::now();
        lumivesper::exporting::HeicWriter writer(output, runSettings);
        for (const auto& png : pngs)
            writer.addImage([png] { return readPng(png); }, pngPixels(png));
        writer.finalize();
        report(name, secondsSince(start), output, pngs);
    }

    if (!heifEnc.empty()) {
        const auto output = work / "heif-enc.heic";
        const std::string command = heifEnc + " -o '" + output.string() + "'" + pngList;
        const auto start = Clock::now();
        if (std::system((command + " > /dev/null").c_str()) != 0)
            fail("failed: " + command);
        report("heif-enc (defaults)", secondsSince(start), output, pngs);
    }
    return 0;
}
