#include "export/upscale/tile_upscaler.h"
#include "export/upscale/upscale_error.h"
#include "platform/cancellation.h"

#include <gtest/gtest.h>

namespace lumivesper::upscale {
namespace {

using platform::PixelImage;

// Tiles are told apart by the red value the fake network paints: the call's number.
class TiledDrawingTest : public ::testing::Test {
protected:
    TileRunner stampingRunner() {
        return [this](const PixelImage& tile) {
            seen.push_back(tile);
            PixelImage result(tile.width * 4, tile.height * 4);
            for (std::size_t i = 0; i < result.rgba.size(); i += 4) {
                result.rgba[i] = static_cast<std::uint8_t>(seen.size());
                result.rgba[i + 3] = 255;
            }
            return result;
        };
    }

    // Each pixel holds its own coordinates, so a crop shows where it was taken.
    static PixelImage coordinateImage(int width, int height) {
        PixelImage image(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                std::uint8_t* p = image.pixel(x, y);
                p[0] = static_cast<std::uint8_t>(x & 0xff);
                p[1] = static_cast<std::uint8_t>(x >> 8);
                p[2] = static_cast<std::uint8_t>(y & 0xff);
                p[3] = static_cast<std::uint8_t>(y >> 8);
            }
        }
        return image;
    }

    static TileOrigin originOf(const PixelImage& tile) {
        const std::uint8_t* p = tile.pixel(0, 0);
        return {p[0] | p[1] << 8, p[2] | p[3] << 8};
    }

    std::vector<PixelImage> seen;
};

struct OriginsCase {
    int width;
    int height;
    std::vector<TileOrigin> origins;
};

class TileOriginsTest : public ::testing::TestWithParam<OriginsCase> {};

TEST_P(TileOriginsTest, StepByStrideAndClampToTheEdges) {
    const auto& c = GetParam();
    EXPECT_EQ(tileOrigins(c.width, c.height), c.origins);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, TileOriginsTest,
    ::testing::Values(
        // 0 and 480 both clamp to 0 on each axis: four runs of one tile.
        OriginsCase{512, 512, {{0, 0}, {0, 0}, {0, 0}, {0, 0}}},
        // The last tile moves back to 488: a 504-pixel overlap at the right edge.
        OriginsCase{1000, 512, {{0, 0}, {480, 0}, {488, 0}, {0, 0}, {480, 0}, {488, 0}}},
        // 960 lands past the edge again and repeats tile 480.
        OriginsCase{992, 512, {{0, 0}, {480, 0}, {480, 0}, {0, 0}, {480, 0}, {480, 0}}},
        OriginsCase{600, 700, {{0, 0}, {88, 0}, {0, 188}, {88, 188}}}));

TEST_F(TiledDrawingTest, CropsEachTileAtItsOrigin) {
    const PixelImage image = coordinateImage(1000, 700);
    const PixelImage result = upscaleTiled(image, stampingRunner());

    EXPECT_EQ(result.width, 4000);
    EXPECT_EQ(result.height, 2800);
    std::vector<TileOrigin> origins;
    for (const auto& tile : seen) {
        ASSERT_EQ(tile.width, 512);
        ASSERT_EQ(tile.height, 512);
        origins.push_back(originOf(tile));
        const TileOrigin corner = originOf(tile);
        const std::uint8_t* last = tile.pixel(511, 511);
        EXPECT_EQ((TileOrigin{last[0] | last[1] << 8, last[2] | last[3] << 8}),
                  (TileOrigin{corner.x + 511, corner.y + 511}));
    }
    EXPECT_EQ(origins, tileOrigins(1000, 700));
}

TEST_F(TiledDrawingTest, LaterTilesOverwriteTheOverlapWithoutBlending) {
    const PixelImage result = upscaleTiled(coordinateImage(1000, 600), stampingRunner());
    // Row one: tiles 1 to 3 at x 0, 480, 488; row two (y 88): tiles 4 to 6.
    auto stampAt = [&](int x, int y) { return result.pixel(x, y)[0]; };
    EXPECT_EQ(stampAt(0, 0), 1);
    EXPECT_EQ(stampAt(1919, 351), 1);
    EXPECT_EQ(stampAt(1920, 351), 2); // tile 2 drew over tile 1 from 4 * 480
    EXPECT_EQ(stampAt(1951, 351), 2);
    EXPECT_EQ(stampAt(1952, 351), 3); // and tile 3 over tile 2 from 4 * 488
    EXPECT_EQ(stampAt(3999, 351), 3);
    EXPECT_EQ(stampAt(0, 352), 4); // the second row overwrote the first from 4 * 88
    EXPECT_EQ(stampAt(1951, 2399), 5);
    EXPECT_EQ(stampAt(3999, 2399), 6);
}

TEST_F(TiledDrawingTest, ExactTileSizeRunsFourTimes) {
    const PixelImage result = upscaleTiled(coordinateImage(512, 512), stampingRunner());
    EXPECT_EQ(seen.size(), 4u);
    EXPECT_EQ(result.width, 2048);
    EXPECT_EQ(result.height, 2048);
    EXPECT_EQ(result.pixel(1000, 1000)[0], 4);
}

TEST_F(TiledDrawingTest, RefusesImagesSmallerThanATile) {
    for (auto [width, height] : {std::pair{511, 2000}, std::pair{2000, 511}}) {
        try {
            upscaleTiled(coordinateImage(width, height), stampingRunner());
            ADD_FAILURE() << width << "x" << height << " was accepted";
        } catch (const UpscaleError& error) {
            EXPECT_EQ(error.kind(), UpscaleError::Kind::invalidInputSize);
            EXPECT_EQ(error.description(), "Input image is smaller than the 512x512 tile size.");
        }
    }
    EXPECT_TRUE(seen.empty());
}

TEST_F(TiledDrawingTest, TileOfTheWrongSizeIsMissingOutput) {
    const TileRunner halfSize = [](const PixelImage& tile) {
        return PixelImage(tile.width * 2, tile.height * 2);
    };
    try {
        upscaleTiled(coordinateImage(512, 512), halfSize);
        FAIL() << "a 2x tile was drawn";
    } catch (const UpscaleError& error) {
        EXPECT_EQ(error.kind(), UpscaleError::Kind::missingOutput);
    }
}

TEST_F(TiledDrawingTest, StopsBetweenTiles) {
    std::stop_source stop;
    const TileRunner stamp = stampingRunner();
    const TileRunner stopAfterTwo = [&](const PixelImage& tile) {
        PixelImage result = stamp(tile);
        if (seen.size() == 2)
            stop.request_stop();
        return result;
    };
    EXPECT_THROW(upscaleTiled(coordinateImage(1000, 1000), stopAfterTwo, {}, stop.get_token()),
                 platform::CancellationError);
    EXPECT_EQ(seen.size(), 2u);
}

} // namespace
} // namespace lumivesper::upscale
