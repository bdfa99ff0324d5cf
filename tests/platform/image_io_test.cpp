#include "platform/image_io.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <vips/vips.h>

namespace lumivesper::platform {
namespace {

namespace fs = std::filesystem;

class ImageIoTest : public ::testing::Test {
protected:
    ImageIoTest() {
        std::random_device random;
        folder = fs::temp_directory_path() / ("lumivesper-image-io-" + std::to_string(random()));
        fs::create_directories(folder);
        loadImage(writeFixture()); // starts libvips for the raw calls below
    }
    ~ImageIoTest() override { fs::remove_all(folder); }

    fs::path writeFixture() {
        PixelImage image(3, 2);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 3; ++x) {
                auto* p = image.pixel(x, y);
                p[0] = static_cast<std::uint8_t>(x * 100);
                p[1] = static_cast<std::uint8_t>(y * 200);
                p[2] = 7;
                p[3] = 255;
            }
        const auto path = folder / "fixture.png";
        writePng(image, path);
        return path;
    }

    // Saves an image made by libvips directly, for formats our writer does not produce.
    fs::path saveWithVips(VipsImage* image, const std::string& name) {
        const auto path = folder / name;
        EXPECT_EQ(vips_image_write_to_file(image, path.c_str(), nullptr), 0) << vips_error_buffer();
        g_object_unref(image);
        return path;
    }

    fs::path folder;
};

TEST_F(ImageIoTest, PngRoundTripsExactly) {
    const auto loaded = loadImage(writeFixture());
    ASSERT_EQ(loaded.width, 3);
    ASSERT_EQ(loaded.height, 2);
    EXPECT_EQ(loaded.pixel(2, 1)[0], 200);
    EXPECT_EQ(loaded.pixel(2, 1)[1], 200);
    EXPECT_EQ(loaded.pixel(2, 1)[2], 7);
    EXPECT_EQ(loaded.pixel(2, 1)[3], 255);
    EXPECT_EQ(readImageSize(folder / "fixture.png"), (ImageSize{3, 2}));
}

TEST_F(ImageIoTest, GreyAndSixteenBitImagesArriveAsEightBitRgba) {
    VipsImage* grey = nullptr;
    ASSERT_EQ(vips_black(&grey, 4, 2, nullptr), 0);
    VipsImage* lifted = nullptr;
    ASSERT_EQ(vips_linear1(grey, &lifted, 1.0, 40.0, "uchar", TRUE, nullptr), 0);
    g_object_unref(grey);
    const auto loaded = loadImage(saveWithVips(lifted, "grey.png"));
    EXPECT_EQ(loaded.width, 4);
    EXPECT_EQ(loaded.pixel(1, 1)[0], 40);
    EXPECT_EQ(loaded.pixel(1, 1)[2], 40);
    EXPECT_EQ(loaded.pixel(1, 1)[3], 255);

    VipsImage* wide = nullptr;
    VipsImage* base = nullptr;
    ASSERT_EQ(vips_black(&base, 2, 2, "bands", 3, nullptr), 0);
    ASSERT_EQ(vips_linear1(base, &wide, 1.0, 65535.0, "uchar", FALSE, nullptr), 0);
    g_object_unref(base);
    VipsImage* cast = nullptr;
    ASSERT_EQ(vips_cast_ushort(wide, &cast, nullptr), 0);
    g_object_unref(wide);
    cast->Type = VIPS_INTERPRETATION_RGB16;
    const auto deep = loadImage(saveWithVips(cast, "deep.png"));
    EXPECT_EQ(deep.pixel(0, 0)[0], 255);
    EXPECT_EQ(deep.pixel(0, 0)[3], 255);
}

TEST_F(ImageIoTest, OrientationTagTurnsTheImageUpright) {
    VipsImage* wide = nullptr;
    ASSERT_EQ(vips_black(&wide, 40, 20, "bands", 3, nullptr), 0);
    vips_image_set_int(wide, VIPS_META_ORIENTATION, 6); // rotate 90° clockwise to display
    const auto path = saveWithVips(wide, "turned.jpg");
    EXPECT_EQ(readImageSize(path), (ImageSize{20, 40}));
    const auto loaded = loadImage(path);
    EXPECT_EQ(loaded.width, 20);
    EXPECT_EQ(loaded.height, 40);
    const auto preview = loadPreview(path, 10);
    EXPECT_EQ(preview.height, 10);
    EXPECT_EQ(preview.width, 5);
}

TEST_F(ImageIoTest, PreviewNeverEnlarges) {
    const auto preview = loadPreview(writeFixture(), 1024);
    EXPECT_EQ(preview.width, 3);
    EXPECT_EQ(preview.height, 2);
}

TEST_F(ImageIoTest, UnreadableFilesFailWithTheirPath) {
    const auto junk = folder / "junk.png";
    std::FILE* file = std::fopen(junk.c_str(), "w");
    std::fputs("definitely not a png", file);
    std::fclose(file);
    for (const auto& path : {junk, folder / "missing.png"}) {
        try {
            loadImage(path);
            FAIL() << path;
        } catch (const ImageIoError& error) {
            EXPECT_NE(std::string(error.what()).find(path.string()), std::string::npos);
        }
    }
    EXPECT_THROW(writePng(PixelImage(), folder / "empty.png"), ImageIoError);
}

} // namespace
} // namespace lumivesper::platform
