#pragma once

#include <cstddef>
#include <functional>
#include <stop_token>

namespace lumivesper::platform {

// Runs work(0) … work(count - 1) with at most `limit` of them in flight: `limit` start at once and
// one more starts as each ends. The first failure stops the rest (their stop token fires, no new
// item starts) and is rethrown once all running items have returned. A stop of `outer` reaches
// every item's token; if it fired and nothing failed, CancellationError is thrown.
// Blocks the calling thread; results go wherever `work` puts them (index them by the argument).
void forEachBounded(std::size_t count, std::size_t limit, std::stop_token outer,
                    const std::function<void(std::size_t index, std::stop_token stop)>& work);

} // namespace lumivesper::platform
