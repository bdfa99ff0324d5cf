#include "document/app_state.h"
#include "document/image_row_changes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace lumivesper::document {
namespace {

using Kind = ImageRowChange::Kind;

WallpaperImage named(const std::string& name, double altitude = 0.0) {
    WallpaperImage image;
    image.fileName = name;
    image.altitude = altitude;
    image.azimuth = 0.0;
    return image;
}

// Plays the steps on a copy of `before` as a list model would, taking inserted and changed rows
// from `after`; a step numbered outside the list it applies to fails the test.
std::vector<WallpaperImage> replay(std::vector<WallpaperImage> rows,
                                   const std::vector<ImageRowChange>& changes,
                                   const std::vector<WallpaperImage>& after) {
    for (const auto& change : changes) {
        const auto first = static_cast<std::ptrdiff_t>(change.first);
        const auto count = static_cast<std::ptrdiff_t>(change.count);
        switch (change.kind) {
        case Kind::removed:
            EXPECT_LE(change.first + change.count, rows.size());
            rows.erase(rows.begin() + first, rows.begin() + first + count);
            break;
        case Kind::inserted:
            EXPECT_LE(change.first, rows.size());
            rows.insert(rows.begin() + first, after.begin() + first,
                        after.begin() + first + count);
            break;
        case Kind::changed:
            EXPECT_LE(change.first + change.count, rows.size());
            std::copy(after.begin() + first, after.begin() + first + count, rows.begin() + first);
            break;
        case Kind::moved: {
            EXPECT_LT(change.first, rows.size());
            EXPECT_LT(change.destination, rows.size());
            auto moved = rows[change.first];
            rows.erase(rows.begin() + first);
            rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(change.destination), moved);
            break;
        }
        }
    }
    return rows;
}

void expectSameRows(const std::vector<WallpaperImage>& actual,
                    const std::vector<WallpaperImage>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t row = 0; row < actual.size(); ++row)
        EXPECT_TRUE(sameContent(actual[row], expected[row])) << "row " << row;
}

TEST(ImageRowChangesTest, ReplayingTheStepsOfRandomEditsGivesTheNewList) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 300; ++round) {
        std::vector<WallpaperImage> before;
        const int size = static_cast<int>(random() % 12);
        for (int i = 0; i < size; ++i)
            before.push_back(named("image" + std::to_string(i)));
        // Keep some, edit some, shuffle, and add new ones anywhere.
        std::vector<WallpaperImage> after;
        for (const auto& image : before) {
            if (random() % 4 == 0)
                continue;
            auto kept = image;
            if (random() % 5 == 0)
                kept.altitude = 30.0;
            after.push_back(kept);
        }
        std::shuffle(after.begin(), after.end(), random);
        for (int added = static_cast<int>(random() % 4); added > 0; --added)
            after.insert(after.begin() + static_cast<std::ptrdiff_t>(random() % (after.size() + 1)),
                         named("new"));

        expectSameRows(replay(before, diffImageRows(before, after), after), after);
    }
}

TEST(ImageRowChangesTest, StepsAreFewAndCoalesced) {
    std::vector<WallpaperImage> before;
    for (int i = 0; i < 6; ++i)
        before.push_back(named("image" + std::to_string(i)));

    // The first image taken to the end is one move, not five.
    std::vector<WallpaperImage> rotated(before.begin() + 1, before.end());
    rotated.push_back(before.front());
    const auto moves = diffImageRows(before, rotated);
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_EQ(moves[0].kind, Kind::moved);
    EXPECT_EQ(moves[0].first, 0u);
    EXPECT_EQ(moves[0].destination, 5u);

    // Two runs of removals arrive bottom up; three new rows in one run are one insertion.
    std::vector<WallpaperImage> after = {before[0], before[3], named("x"), named("y"), named("z")};
    const auto steps = diffImageRows(before, after);
    ASSERT_EQ(steps.size(), 3u);
    EXPECT_EQ(steps[0].kind, Kind::removed);
    EXPECT_EQ(steps[0].first, 4u);
    EXPECT_EQ(steps[0].count, 2u);
    EXPECT_EQ(steps[1].kind, Kind::removed);
    EXPECT_EQ(steps[1].first, 1u);
    EXPECT_EQ(steps[1].count, 2u);
    EXPECT_EQ(steps[2].kind, Kind::inserted);
    EXPECT_EQ(steps[2].first, 2u);
    EXPECT_EQ(steps[2].count, 3u);

    EXPECT_TRUE(diffImageRows(before, before).empty());
}

// What AppState's operations tell a list model, and what they leave unsaid.
class AppStateRowsTest : public ::testing::Test {
protected:
    AppStateRowsTest() {
        rowSubscription = state.observeImageRows(
            [this](const ImageRowChange& change) { steps.push_back(change); });
        fieldSubscription = state.observe([this](AppStateFields fields) {
            if (fields.contains(AppStateField::selection))
                ++selectionNotices;
            if (fields.contains(AppStateField::images))
                ++imageNotices;
        });
    }
    void forget() {
        steps.clear();
        selectionNotices = 0;
        imageNotices = 0;
    }

    AppState state;
    std::vector<ImageRowChange> steps;
    int selectionNotices = 0;
    int imageNotices = 0;
    platform::Subscription rowSubscription;
    platform::Subscription fieldSubscription;
};

TEST_F(AppStateRowsTest, SortedAdditionsAndEditsArriveAsSingleRows) {
    auto dawn = named("dawn");
    dawn.timeOfDay = 6.0;
    auto noon = named("noon");
    noon.timeOfDay = 12.0;
    state.addImage(noon);
    state.addImage(dawn);
    forget();

    auto evening = named("evening");
    evening.timeOfDay = 20.0;
    state.addImage(evening);
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].kind, Kind::inserted);
    EXPECT_EQ(steps[0].first, 2u);

    forget();
    auto renamed = *state.image(noon.id);
    renamed.fileName = "midday";
    state.updateImage(renamed);
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].kind, Kind::changed);
    EXPECT_EQ(steps[0].first, 1u);
    EXPECT_EQ(selectionNotices, 0);
}

TEST_F(AppStateRowsTest, ReorderingMovesRowsAndUndoMovesThemBack) {
    UndoManager undo;
    state.setUndoManager(&undo);
    state.setMode(WallpaperMode::appearance);
    const auto a = named("a"), b = named("b"), c = named("c");
    for (const auto& image : {a, b, c})
        state.addImage(image);
    forget();

    state.moveImage(c.id, a.id);
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].kind, Kind::moved);
    EXPECT_EQ(steps[0].first, 2u);
    EXPECT_EQ(steps[0].destination, 0u);

    forget();
    undo.undo();
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].kind, Kind::moved);
    EXPECT_EQ(imageNotices, 1);
}

TEST_F(AppStateRowsTest, SelectionIsToldOnlyWhenItChanges) {
    const auto a = named("a"), b = named("b");
    state.addImage(a);
    state.addImage(b);
    forget();

    state.selectImage(a.id);
    state.selectImage(a.id);       // the same again: the playback timer does this ten times a second
    state.extendImageSelection(a.id); // a range of one, the same selection
    EXPECT_EQ(selectionNotices, 1);
    state.toggleImageSelection(b.id);
    EXPECT_EQ(selectionNotices, 2);
    state.removeImage(b.id); // leaves the selection with the image
    EXPECT_EQ(selectionNotices, 3);
    state.addImage(named("c")); // no effect on the selection
    EXPECT_EQ(selectionNotices, 3);
    EXPECT_TRUE(std::none_of(steps.begin(), steps.end(),
                             [](const auto& step) { return step.kind == Kind::changed; }));
}

} // namespace
} // namespace lumivesper::document
