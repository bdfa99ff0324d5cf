#include "document/image_row_changes.h"

#include <algorithm>
#include <unordered_map>

namespace lumivesper::document {

namespace {

using Kind = ImageRowChange::Kind;

// Appends `row` to a run of the same kind when it extends it, else starts a new step.
void appendRun(std::vector<ImageRowChange>& changes, Kind kind, std::size_t row) {
    if (!changes.empty() && changes.back().kind == kind &&
        changes.back().first + changes.back().count == row) {
        ++changes.back().count;
        return;
    }
    changes.push_back({kind, row, 1, 0});
}

// Marks the members of a longest strictly increasing subsequence of `values` (patience sorting).
std::vector<bool> longestIncreasingRun(const std::vector<std::size_t>& values) {
    std::vector<std::size_t> tailIndex;                 // per run length: index of its last value
    std::vector<std::ptrdiff_t> previous(values.size(), -1);
    for (std::size_t i = 0; i < values.size(); ++i) {
        auto position = std::lower_bound(
            tailIndex.begin(), tailIndex.end(), values[i],
            [&](std::size_t index, std::size_t value) { return values[index] < value; });
        if (position != tailIndex.begin())
            previous[i] = static_cast<std::ptrdiff_t>(*(position - 1));
        if (position == tailIndex.end())
            tailIndex.push_back(i);
        else
            *position = i;
    }
    std::vector<bool> kept(values.size(), false);
    std::ptrdiff_t at = tailIndex.empty() ? -1 : static_cast<std::ptrdiff_t>(tailIndex.back());
    while (at >= 0) {
        kept[static_cast<std::size_t>(at)] = true;
        at = previous[static_cast<std::size_t>(at)];
    }
    return kept;
}

} // namespace

bool sameContent(const WallpaperImage& a, const WallpaperImage& b) {
    return a.id == b.id && a.fileName == b.fileName && a.altitude == b.altitude &&
           a.azimuth == b.azimuth && a.isLight == b.isLight && a.isTween == b.isTween &&
           a.parentId == b.parentId && a.tweenCount == b.tweenCount &&
           a.sourcePath == b.sourcePath && a.thumbnail == b.thumbnail &&
           a.timeOfDay == b.timeOfDay;
}

std::vector<ImageRowChange> diffImageRows(const std::vector<WallpaperImage>& before,
                                          const std::vector<WallpaperImage>& after) {
    std::unordered_map<Uuid, std::size_t> finalRow;
    finalRow.reserve(after.size());
    for (std::size_t row = 0; row < after.size(); ++row)
        finalRow.emplace(after[row].id, row);

    std::vector<ImageRowChange> changes;

    // Removals, from the bottom up so that each step's rows still stand where `before` had them.
    std::vector<ImageRowChange> removals;
    std::vector<Uuid> working; // the list as the steps so far leave it
    for (std::size_t row = 0; row < before.size(); ++row) {
        if (finalRow.contains(before[row].id))
            working.push_back(before[row].id);
        else
            appendRun(removals, Kind::removed, row);
    }
    changes.insert(changes.end(), removals.rbegin(), removals.rend());

    // Moves: the longest run already in final order stays; every other image is placed right
    // after the image that precedes it in the final order, walking that order from the top.
    std::vector<std::size_t> targets;
    targets.reserve(working.size());
    for (const auto& id : working)
        targets.push_back(finalRow.at(id));
    const std::vector<bool> staysInPlace = longestIncreasingRun(targets);
    std::unordered_map<Uuid, bool> moves;
    for (std::size_t i = 0; i < working.size(); ++i)
        moves.emplace(working[i], !staysInPlace[i]);
    const Uuid* predecessor = nullptr;
    for (const auto& image : after) {
        const auto found = moves.find(image.id);
        if (found == moves.end())
            continue; // inserted further down
        if (found->second) {
            const auto from = static_cast<std::size_t>(
                std::find(working.begin(), working.end(), image.id) - working.begin());
            working.erase(working.begin() + static_cast<std::ptrdiff_t>(from));
            std::size_t to = 0;
            if (predecessor)
                to = static_cast<std::size_t>(
                         std::find(working.begin(), working.end(), *predecessor) -
                         working.begin()) +
                     1;
            working.insert(working.begin() + static_cast<std::ptrdiff_t>(to), image.id);
            if (from != to)
                changes.push_back({Kind::moved, from, 1, to});
        }
        predecessor = &image.id;
    }

    // Insertions and changes, top down, numbered as in the final list.
    std::unordered_map<Uuid, const WallpaperImage*> formerRecord;
    for (const auto& image : before)
        formerRecord.emplace(image.id, &image);
    std::vector<ImageRowChange> edits;
    for (std::size_t row = 0; row < after.size(); ++row) {
        const auto found = formerRecord.find(after[row].id);
        if (found == formerRecord.end())
            appendRun(changes, Kind::inserted, row);
        else if (!sameContent(*found->second, after[row]))
            appendRun(edits, Kind::changed, row);
    }
    changes.insert(changes.end(), edits.begin(), edits.end());
    return changes;
}

} // namespace lumivesper::document
