#include "../support/temporary_folder.h"
#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/heic_writer.h"
#include "export/wallpaper_reader.h"
#include "export_test_support.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

namespace lumivesper::exporting {
namespace {

using document::WallpaperImage;
using ::testing::HasSubstr;

// A reader of the boxes written by hand from the file format's layout, sharing nothing with the
// writer: it checks what any reader will rely on.
class BoxReader {
public:
    struct Box {
        std::string type;
        std::size_t body = 0; // offset of the content after the header
        std::size_t end = 0;
    };

    explicit BoxReader(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::uint64_t read(std::size_t at, int size) const {
        EXPECT_LE(at + size, bytes_.size());
        std::uint64_t value = 0;
        for (int i = 0; i < size; ++i)
            value = value << 8 | bytes_.at(at + i);
        return value;
    }
    std::string text(std::size_t at, std::size_t size) const {
        return {bytes_.begin() + at, bytes_.begin() + at + size};
    }
    std::string zeroTerminated(std::size_t& at) const {
        std::string value;
        while (bytes_.at(at) != 0)
            value += static_cast<char>(bytes_.at(at++));
        ++at;
        return value;
    }
    std::vector<Box> children(std::size_t from, std::size_t to) const {
        std::vector<Box> boxes;
        while (from < to) {
            std::uint64_t size = read(from, 4);
            std::size_t header = 8;
            if (size == 1) {
                size = read(from + 8, 8);
                header = 16;
            }
            EXPECT_GE(size, header);
            EXPECT_LE(from + size, to) << "box overruns its parent";
            if (size < header || from + size > to)
                break;
            boxes.push_back({text(from + 4, 4), from + header, std::size_t(from + size)});
            from += size;
        }
        return boxes;
    }
    static const Box& only(const std::vector<Box>& boxes, const std::string& type) {
        const Box* found = nullptr;
        for (const auto& box : boxes)
            if (box.type == type) {
                EXPECT_EQ(found, nullptr) << "two " << type << " boxes";
                found = &box;
            }
        if (!found)
            throw std::runtime_error("no " + type + " box");
        return *found;
    }
    std::size_t size() const { return bytes_.size(); }

private:
    std::vector<std::uint8_t> bytes_;
};

// The parts of a HEIF file a still-image reader needs, read with BoxReader.
struct ParsedFile {
    std::vector<std::string> topLevel;
    std::string majorBrand;
    std::vector<std::string> compatibleBrands;
    std::string handler;
    std::uint32_t primary = 0;
    struct Item {
        std::string type;
        std::string contentType;
        std::uint64_t offset = 0, length = 0;
        std::vector<std::pair<int, bool>> properties; // 1-based ipco index, essential
    };
    std::map<std::uint32_t, Item> items;
    std::vector<std::string> propertyTypes;
    std::vector<std::vector<std::uint8_t>> propertyBodies;
    std::vector<std::tuple<std::string, std::uint32_t, std::uint32_t>> references;
    std::size_t mdatBegin = 0, mdatEnd = 0;
};

ParsedFile parse(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    BoxReader file(std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {}));
    ParsedFile parsed;
    const auto top = file.children(0, file.size());
    for (const auto& box : top)
        parsed.topLevel.push_back(box.type);
    const auto& ftyp = BoxReader::only(top, "ftyp");
    parsed.majorBrand = file.text(ftyp.body, 4);
    for (std::size_t at = ftyp.body + 8; at < ftyp.end; at += 4)
        parsed.compatibleBrands.push_back(file.text(at, 4));
    const auto& mdat = BoxReader::only(top, "mdat");
    parsed.mdatBegin = mdat.body;
    parsed.mdatEnd = mdat.end;

    const auto& meta = BoxReader::only(top, "meta");
    const auto boxes = file.children(meta.body + 4, meta.end); // after version and flags
    parsed.handler = file.text(BoxReader::only(boxes, "hdlr").body + 8, 4);
    parsed.primary = static_cast<std::uint32_t>(file.read(BoxReader::only(boxes, "pitm").body + 4, 2));

    const auto& iinf = BoxReader::only(boxes, "iinf");
    const int iinfVersion = static_cast<int>(file.read(iinf.body, 1));
    const std::size_t entriesAt = iinf.body + 4 + (iinfVersion == 0 ? 2 : 4);
    for (const auto& infe : file.children(entriesAt, iinf.end)) {
        EXPECT_EQ(infe.type, "infe");
        EXPECT_GE(file.read(infe.body, 1), 2u) << "infe version";
        std::size_t at = infe.body + 4;
        const auto id = static_cast<std::uint32_t>(file.read(at, 2));
        auto& item = parsed.items[id];
        item.type = file.text(at + 4, 4);
        at += 8;
        file.zeroTerminated(at); // name
        if (item.type == "mime")
            item.contentType = file.zeroTerminated(at);
    }

    const auto& iloc = BoxReader::only(boxes, "iloc");
    const int ilocVersion = static_cast<int>(file.read(iloc.body, 1));
    const int offsetSize = static_cast<int>(file.read(iloc.body + 4, 1) >> 4);
    const int lengthSize = static_cast<int>(file.read(iloc.body + 4, 1) & 15);
    const int baseSize = static_cast<int>(file.read(iloc.body + 5, 1) >> 4);
    const int indexSize = ilocVersion >= 1 ? static_cast<int>(file.read(iloc.body + 5, 1) & 15) : 0;
    std::size_t at = iloc.body + 6;
    const auto count = file.read(at, ilocVersion < 2 ? 2 : 4);
    at += ilocVersion < 2 ? 2 : 4;
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto id = static_cast<std::uint32_t>(file.read(at, ilocVersion < 2 ? 2 : 4));
        at += ilocVersion < 2 ? 2 : 4;
        if (ilocVersion >= 1) {
            EXPECT_EQ(file.read(at, 2) & 15, 0u) << "construction method: file offsets";
            at += 2;
        }
        EXPECT_EQ(file.read(at, 2), 0u) << "data in this file";
        const auto base = file.read(at + 2, baseSize);
        at += 2 + baseSize;
        EXPECT_EQ(file.read(at, 2), 1u) << "one extent per item";
        at += 2 + indexSize;
        auto& item = parsed.items.at(id);
        item.offset = base + file.read(at, offsetSize);
        item.length = file.read(at + offsetSize, lengthSize);
        at += offsetSize + lengthSize;
    }

    const auto& iprp = BoxReader::only(boxes, "iprp");
    const auto iprpChildren = file.children(iprp.body, iprp.end);
    const auto& ipco = BoxReader::only(iprpChildren, "ipco");
    for (const auto& property : file.children(ipco.body, ipco.end)) {
        parsed.propertyTypes.push_back(property.type);
        std::vector<std::uint8_t> body;
        for (std::size_t b = property.body; b < property.end; ++b)
            body.push_back(static_cast<std::uint8_t>(file.read(b, 1)));
        parsed.propertyBodies.push_back(body);
    }
    const auto& ipma = BoxReader::only(iprpChildren, "ipma");
    const int ipmaVersion = static_cast<int>(file.read(ipma.body, 1));
    const bool wide = file.read(ipma.body + 1, 3) & 1;
    at = ipma.body + 4;
    const auto entries = file.read(at, 4);
    at += 4;
    for (std::uint64_t e = 0; e < entries; ++e) {
        const auto id = static_cast<std::uint32_t>(file.read(at, ipmaVersion < 1 ? 2 : 4));
        at += ipmaVersion < 1 ? 2 : 4;
        const auto associations = file.read(at++, 1);
        for (std::uint64_t a = 0; a < associations; ++a) {
            const auto value = file.read(at, wide ? 2 : 1);
            at += wide ? 2 : 1;
            const auto high = wide ? 0x8000u : 0x80u;
            parsed.items.at(id).properties.emplace_back(static_cast<int>(value & (high - 1)),
                                                        (value & high) != 0);
        }
    }

    for (const auto& iref : boxes)
        if (iref.type == "iref") {
            EXPECT_EQ(file.read(iref.body, 1), 0u) << "16-bit item ids";
            for (const auto& reference : file.children(iref.body + 4, iref.end)) {
                const auto from = static_cast<std::uint32_t>(file.read(reference.body, 2));
                const auto targets = file.read(reference.body + 2, 2);
                for (std::uint64_t t = 0; t < targets; ++t)
                    parsed.references.emplace_back(
                        reference.type, from,
                        static_cast<std::uint32_t>(file.read(reference.body + 4 + 2 * t, 2)));
            }
        }
    return parsed;
}

class HeicFileLayoutTest : public ::testing::Test {
protected:
    lumivesper::testing::TemporaryFolder folder;
    std::filesystem::path output = folder.path() / "out.heic";
};

TEST_F(HeicFileLayoutTest, TwoHundredFramesShareAHandfulOfPropertiesAndEveryReaderPartIsThere) {
    constexpr int frames = 200;
    std::vector<WallpaperImage> images;
    for (int n = 0; n < frames; ++n) {
        auto image = testing::solidImage(folder.path(), "f" + std::to_string(n) + ".png", 24, 16,
                                         static_cast<std::uint8_t>(n));
        image.altitude = n * 0.25;
        images.push_back(image);
    }
    HeicGenerator().generate(images, output, document::WallpaperMode::time, std::nullopt, nullptr);

    const auto file = parse(output);
    EXPECT_EQ(file.topLevel, (std::vector<std::string>{"ftyp", "meta", "mdat"}));
    EXPECT_EQ(file.majorBrand, "heic");
    EXPECT_THAT(file.compatibleBrands, ::testing::IsSupersetOf({"mif1", "heic"}));
    EXPECT_EQ(file.handler, "pict");
    ASSERT_EQ(file.items.size(), frames + 1u);
    EXPECT_LE(file.propertyTypes.size(), 10u);

    std::ifstream in(output, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    std::vector<std::uint32_t> pictures;
    std::uint32_t xmpItem = 0;
    for (const auto& [id, item] : file.items) {
        EXPECT_GE(item.offset, file.mdatBegin) << "item " << id;
        EXPECT_LE(item.offset + item.length, file.mdatEnd) << "item " << id;
        if (item.type == "mime") {
            EXPECT_EQ(item.contentType, "application/rdf+xml");
            EXPECT_THAT(bytes.substr(item.offset, item.length), HasSubstr("apple_desktop:solar"));
            xmpItem = id;
            continue;
        }
        ASSERT_EQ(item.type, "hvc1");
        pictures.push_back(id);
        // Every picture: its decoder configuration (essential), its size, its colour.
        std::map<std::string, std::pair<std::vector<std::uint8_t>, bool>> properties;
        for (const auto& [index, essential] : item.properties) {
            ASSERT_GE(index, 1);
            ASSERT_LE(index, static_cast<int>(file.propertyTypes.size()));
            properties[file.propertyTypes[index - 1]] = {file.propertyBodies[index - 1], essential};
        }
        ASSERT_TRUE(properties.count("hvcC") && properties.count("ispe") &&
                    properties.count("colr"))
            << "item " << id;
        EXPECT_TRUE(properties["hvcC"].second);
        const auto& hvcC = properties["hvcC"].first;
        EXPECT_EQ(hvcC.at(0), 1) << "configuration version";
        EXPECT_EQ(hvcC.at(21) & 3, 3) << "4-byte NAL lengths";
        // The first NAL unit of the coded data is a picture of the IRAP kind, sized as stored.
        const auto firstLength = BoxReader(std::vector<std::uint8_t>(
                                               bytes.begin() + item.offset,
                                               bytes.begin() + item.offset + 4))
                                     .read(0, 4);
        EXPECT_LE(firstLength + 4, item.length);
        const int nalType = (static_cast<std::uint8_t>(bytes[item.offset + 4]) >> 1) & 0x3F;
        EXPECT_TRUE(nalType >= 16 && nalType <= 23) << "NAL type " << nalType;
        // A 24×16 picture is coded padded and cropped back; the crop says so.
        const auto& ispe = properties["ispe"].first;
        const auto clap = properties.find("clap");
        ASSERT_NE(clap, properties.end());
        const auto& crop = clap->second.first;
        const auto word = [](const std::vector<std::uint8_t>& b, std::size_t at) {
            return std::uint32_t(b.at(at)) << 24 | b.at(at + 1) << 16 | b.at(at + 2) << 8 |
                   b.at(at + 3);
        };
        EXPECT_EQ(word(crop, 0) / word(crop, 4), 24u);
        EXPECT_EQ(word(crop, 8) / word(crop, 12), 16u);
        EXPECT_GE(word(ispe, 4), 24u);
        EXPECT_GE(word(ispe, 8), 16u);
        const auto& colr = properties["colr"].first;
        EXPECT_EQ(std::string(colr.begin(), colr.begin() + 4), "nclx");
        EXPECT_EQ(std::vector(colr.begin() + 4, colr.end()),
                  (std::vector<std::uint8_t>{0, 1, 0, 13, 0, 6, 0x80}));
    }
    EXPECT_EQ(file.primary, pictures.front());
    EXPECT_EQ(file.references, (std::vector<std::tuple<std::string, std::uint32_t, std::uint32_t>>{
                                   {"cdsc", xmpItem, file.primary}}));

    // And libheif, through our reader, sees the frames in order with the metadata.
    const auto info = readWallpaper(output);
    ASSERT_EQ(info.images.size(), std::size_t(frames));
    EXPECT_EQ(std::pair(info.images[199].width, info.images[199].height), std::pair(24, 16));
    ASSERT_EQ(info.solarFrames.size(), std::size_t(frames));
    EXPECT_DOUBLE_EQ(info.solarFrames[199].altitude, 49.75);
}

TEST_F(HeicFileLayoutTest, ColoursOddSizesAndTranslucencySurviveTheRoundTrip) {
    // Saturated primaries, greys and a skin tone in blocks, on a 67×35 picture.
    const std::uint8_t colours[][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255},
                                       {0, 0, 0},   {128, 128, 128}, {224, 172, 140}, {20, 60, 200}};
    platform::PixelImage picture(67, 35);
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const auto& colour = colours[(x / 17 + 4 * (y / 18)) % 8];
            std::copy_n(colour, 3, picture.pixel(x, y));
            picture.pixel(x, y)[3] = x < 33 ? 255 : 90;
        }
    HeicWriter writer(output);
    writer.addImage(picture, "<x:xmpmeta/>");
    writer.finalize();

    const auto decoded = platform::loadImage(output);
    ASSERT_EQ(std::pair(decoded.width, decoded.height), std::pair(67, 35));
    // Block centres, away from the edges where 4:2:0 chroma blends neighbours.
    for (const auto& [x, y] : {std::pair{8, 8}, {25, 8}, {42, 8}, {59, 8}, {8, 26}, {25, 26},
                              {42, 26}, {59, 26}}) {
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(decoded.pixel(x, y)[c], picture.pixel(x, y)[c], 6)
                << "at " << x << "," << y << " channel " << c;
    }
    const auto file = parse(output);
    EXPECT_EQ(file.items.size(), 3u); // colour, alpha, XMP
    bool auxiliary = false;
    for (const auto& [type, from, to] : file.references)
        auxiliary |= type == "auxl" && to == file.primary && file.items.at(from).type == "hvc1";
    EXPECT_TRUE(auxiliary);
}

TEST_F(HeicFileLayoutTest, QualityTradesBytesAndLowerQualityNeverGrowsTheFile) {
    platform::PixelImage picture(256, 128);
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x)
            for (int c = 0; c < 3; ++c)
                picture.pixel(x, y)[c] = static_cast<std::uint8_t>((x * 7 + y * 13 * (c + 1)) ^ (x * y));
    for (std::size_t i = 3; i < picture.rgba.size(); i += 4)
        picture.rgba[i] = 255;
    std::vector<std::uintmax_t> sizes;
    for (int quality : {10, defaultQuality, 90}) {
        HeicWriter writer(output, encoderSettingsForQuality(quality));
        writer.addImage(picture);
        writer.finalize();
        sizes.push_back(std::filesystem::file_size(output));
    }
    EXPECT_LT(sizes[0], sizes[1]);
    EXPECT_LT(sizes[1], sizes[2]);
    EXPECT_EQ(encoderSettingsForQuality(-5).constantRateFactor,
              encoderSettingsForQuality(0).constantRateFactor);
    EXPECT_EQ(encoderSettingsForQuality(400).constantRateFactor, 0.0);
}

class HeicWriterStopTest : public HeicFileLayoutTest {
protected:
    HeicWriterStopTest() {
        std::ofstream(output) << "previous";
        for (int n = 0; n < 6; ++n)
            sources.push_back(*testing::solidImage(folder.path(), std::to_string(n) + ".png", 32,
                                                   32, static_cast<std::uint8_t>(40 * n))
                                   .sourcePath);
    }
    void addAll(HeicWriter& writer, int failingFrame = -1) {
        for (int n = 0; n < static_cast<int>(sources.size()); ++n)
            writer.addImage(
                [this, n, failingFrame] {
                    if (n == failingFrame)
                        throw HeicGeneratorError::imageLoadFailed(sources[n].string());
                    return platform::loadImage(sources[n]);
                },
                32 * 32);
    }
    void expectPreviousFileAlone() {
        std::ifstream in(output);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "previous");
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            EXPECT_THAT(entry.path().filename().string(), ::testing::Not(HasSubstr("partial")));
    }

    std::vector<std::filesystem::path> sources;
    std::vector<int> encoded;
};

TEST_F(HeicWriterStopTest, AStopBetweenFramesWritesNothing) {
    std::stop_source stop;
    HeicWriter writer(output, encoderSettingsForQuality(defaultQuality), stop.get_token());
    addAll(writer);
    EXPECT_THROW(writer.finalize([&](int index) {
        encoded.push_back(index);
        if (index == 1)
            stop.request_stop();
    }),
                 platform::CancellationError);
    EXPECT_EQ(encoded, (std::vector{0, 1}));
    expectPreviousFileAlone();

    std::stop_source early;
    early.request_stop();
    HeicWriter stopped(output, encoderSettingsForQuality(defaultQuality), early.get_token());
    addAll(stopped);
    EXPECT_THROW(stopped.finalize(), platform::CancellationError);
    expectPreviousFileAlone();
}

TEST_F(HeicWriterStopTest, TheFirstFailingFrameInOrderIsReportedAfterTheFramesBeforeIt) {
    HeicWriter writer(output);
    addAll(writer, 3);
    EXPECT_EQ(testing::failure<HeicGeneratorError>(
                  [&] { writer.finalize([&](int index) { encoded.push_back(index); }); }),
              "Failed to load image: " + sources[3].string());
    EXPECT_EQ(encoded, (std::vector{0, 1, 2}));
    expectPreviousFileAlone();
}

TEST(EncodePlanTest, FramesInFlightFollowCoresAndMemory) {
    constexpr std::int64_t uhd = 3840 * 2160, eightK = 7680LL * 4320, gigabyte = 1LL << 30;
    struct Case {
        int frames;
        std::int64_t pixels;
        int cores;
        std::int64_t budget;
        int inFlight, threads;
    };
    const Case cases[] = {
        {12, uhd, 2, gigabyte, 2, 1},           // two cores: a frame each
        {12, eightK, 16, gigabyte, 2, 8},       // memory binds: two 8K frames share the cores
        {12, uhd, 16, 16 * gigabyte, 12, 2},    // every frame at once, spare cores shared
        {1, uhd, 16, 16 * gigabyte, 1, 16},     // a single frame gets every core
        {3, 64 * 64, 2, 1, 1, 2},               // a budget below one frame still encodes
    };
    for (const auto& c : cases) {
        const auto plan = planEncoding(c.frames, c.pixels, c.cores, c.budget);
        EXPECT_EQ(std::pair(plan.framesInFlight, plan.threadsPerFrame),
                  std::pair(c.inFlight, c.threads))
            << c.frames << " frames of " << c.pixels << " on " << c.cores << " cores";
    }
}

} // namespace
} // namespace lumivesper::exporting
