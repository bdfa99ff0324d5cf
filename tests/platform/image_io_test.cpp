#include "platform/image_io.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <vips/vips.h>

namespace lumivesper::platform {
namespace {

namespace fs = std::filesystem;

// Format conversions (grey, 16-bit, CMYK with a profile) are exercised by the export tests, which
// feed such files through the whole preparation of a frame.
class ImageIoTest : public ::testing::Test {
protected:
    ImageIoTest()
        : folder(fs::temp_directory_path() /
                 ("lumivesper-io-" + std::to_string(std::random_device()()))) {
        fs::create_directories(folder);
    }
    ~ImageIoTest() override { fs::remove_all(folder); }
    fs::path folder;
};

TEST_F(ImageIoTest, PngRoundTripsExactly) {
    PixelImage image(3, 2);
    for (std::size_t i = 0; i < image.rgba.size(); ++i)
        image.rgba[i] = static_cast<std::uint8_t>(i * 9);
    writePng(image, folder / "a.png");
    const auto loaded = loadImage(folder / "a.png");
    EXPECT_EQ(loaded.width, 3);
    EXPECT_EQ(loaded.height, 2);
    EXPECT_EQ(loaded.rgba, image.rgba);
    EXPECT_EQ(readImageSize(folder / "a.png"), (ImageSize{3, 2}));
    EXPECT_EQ(loadPreview(folder / "a.png", 1024).width, 3); // never enlarged
}

TEST_F(ImageIoTest, OrientationTagTurnsTheImageUpright) {
    writePng(PixelImage(1, 1), folder / "start.png"); // starts libvips for the raw calls below
    VipsImage* wide = nullptr;
    ASSERT_EQ(vips_black(&wide, 40, 20, "bands", 3, nullptr), 0);
    vips_image_set_int(wide, VIPS_META_ORIENTATION, 6); // shown turned a quarter clockwise
    const auto path = folder / "turned.jpg";
    ASSERT_EQ(vips_image_write_to_file(wide, path.c_str(), nullptr), 0);
    g_object_unref(wide);
    EXPECT_EQ(readImageSize(path), (ImageSize{20, 40}));
    EXPECT_EQ(loadImage(path).height, 40);
    const auto preview = loadPreview(path, 10);
    EXPECT_EQ(preview.width, 5);
    EXPECT_EQ(preview.height, 10);
}

TEST_F(ImageIoTest, UnreadableFilesFailWithTheirPath) {
    std::ofstream(folder / "junk.png") << "definitely not a png";
    for (const auto& path : {folder / "junk.png", folder / "missing.png"}) {
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
