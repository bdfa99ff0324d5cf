#include "../../support/temporary_folder.h"
#include "export/upscale/tile_time_cache.h"
#include "export/upscale/upscale_estimate.h"

#include <fstream>
#include <gtest/gtest.h>

namespace lumivesper::upscale {
namespace {

// The count must be what the tiler really runs, edge repeats and all.
TEST(UpscaleEstimateTest, TilesPerPassMatchTheTilersOrigins) {
    for (const auto& [width, height] : {std::pair{512, 512},
                                        {992, 512},
                                        {1000, 700},
                                        {1024, 576},
                                        {4096, 2304},
                                        {513, 2000},
                                        {960, 961}})
        EXPECT_EQ(tilesPerPass(width, height), tileOrigins(width, height).size())
            << width << "x" << height;
    EXPECT_EQ(tilesPerPass(0, 512), 0u);
}

TEST(UpscaleEstimateTest, PassesRunOnThePreviousPassesOutput) {
    // 1024x576 to 8K under auto: two passes of 4, over 1024x576 (3x2) and 4096x2304 (9x5).
    const PlanSize source{1024, 576};
    const auto plan = makePlan(PlanSize{7680, 4320}, HeicUpscaleStrategy::auto_, {4}, source);
    ASSERT_EQ(plan.steps.size(), 2u);
    EXPECT_EQ(tilesForPlan(source, plan), 6u + 45u);

    // Frames already at the canvas are not upscaled and cost nothing.
    const auto workload = upscaleWorkload({source, {7680, 4320}, source}, PlanSize{7680, 4320},
                                          HeicUpscaleStrategy::auto_, {4});
    EXPECT_EQ(workload, (UpscaleWorkload{2, 102}));
    // Without a canvas each frame takes one pass of its strategy's factor.
    EXPECT_EQ(upscaleWorkload({{2048, 1152}}, std::nullopt, HeicUpscaleStrategy::scale4, {4}),
              (UpscaleWorkload{1, 5 * 3}));
    EXPECT_EQ(upscaleWorkload({source}, PlanSize{7680, 4320}, HeicUpscaleStrategy::off, {4}),
              UpscaleWorkload{});
}

TEST(UpscaleEstimateTest, DurationsReadAsPeopleSayThem) {
    EXPECT_EQ(formatDuration(0.4), "0 s");
    EXPECT_EQ(formatDuration(45.2), "45 s");
    EXPECT_EQ(formatDuration(59.6), "1 min");
    EXPECT_EQ(formatDuration(12 * 60 + 20), "12 min");
    EXPECT_EQ(formatDuration(3600), "1 h");
    EXPECT_EQ(formatDuration(2 * 3600 + 5 * 60 + 10), "2 h 5 min");
    EXPECT_EQ(formatDuration(-3), "0 s");
}

TEST(UpscaleEstimateTest, TextStatesTheWorkAndTheTimeWhenMeasured) {
    const UpscaleWorkload workload{12, 612};
    EXPECT_EQ(upscaleEstimateText(workload, 15.0),
              "Upscaling takes about 2 h 33 min: 612 tiles in 12 frames, 15.0 s a tile as "
              "measured on this computer.");
    EXPECT_EQ(upscaleEstimateText({1, 1}, 40.04),
              "Upscaling takes about 40 s: 1 tile in 1 frame, 40.0 s a tile as measured on this "
              "computer.");
    EXPECT_EQ(upscaleEstimateText(workload, std::nullopt),
              "Upscaling: 612 tiles in 12 frames. The time a tile takes on this computer is "
              "measured by the first export.");
    EXPECT_EQ(upscaleEstimateText({}, 15.0),
              "No upscaling needed: the images already fill the canvas.");
}

class TileTimeCacheTest : public ::testing::Test {
protected:
    testing::TemporaryFolder folder;
    std::filesystem::path model = folder.path() / "model.onnx";
    TileTimeCache cache{folder.path() / "cache" / "tile-times.json"};

    void writeModel(const std::string& bytes) { std::ofstream(model, std::ios::binary) << bytes; }
};

TEST_F(TileTimeCacheTest, MeasurementsAreKeptPerModelDeviceAndThreads) {
    writeModel("first");
    const std::string key = tileTimeKey(model, "cpu", 2);
    EXPECT_FALSE(cache.secondsPerTile(key)); // nothing yet, not even the folder
    cache.record(key, 21.5);
    cache.record(tileTimeKey(model, "cpu", 16), 3.0);
    EXPECT_EQ(cache.secondsPerTile(key), 21.5);
    EXPECT_EQ(TileTimeCache(cache.file()).secondsPerTile(tileTimeKey(model, "cpu", 16)), 3.0);
    EXPECT_FALSE(cache.secondsPerTile(tileTimeKey(model, "a GPU", 2)));
    cache.record(key, 19.0); // the latest wins
    EXPECT_EQ(cache.secondsPerTile(key), 19.0);
    cache.record(key, -1); // nonsense is not kept
    EXPECT_EQ(cache.secondsPerTile(key), 19.0);

    // Another model at the same place is another model.
    writeModel("a different, longer model");
    EXPECT_NE(tileTimeKey(model, "cpu", 2), key);
}

TEST_F(TileTimeCacheTest, AnUnreadableFileIsNoMeasurementAndIsReplaced) {
    std::filesystem::create_directories(cache.file().parent_path());
    std::ofstream(cache.file()) << "{ not json";
    EXPECT_FALSE(cache.secondsPerTile("key"));
    cache.record("key", 2.0);
    EXPECT_EQ(cache.secondsPerTile("key"), 2.0);
}

} // namespace
} // namespace lumivesper::upscale
