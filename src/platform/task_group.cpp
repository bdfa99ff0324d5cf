#include "platform/task_group.h"

#include "platform/cancellation.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace lumivesper::platform {

void forEachBounded(std::size_t count, std::size_t limit, std::stop_token outer,
                    const std::function<void(std::size_t, std::stop_token)>& work) {
    if (count == 0)
        return;
    std::stop_source group;
    std::stop_callback forwardOuterStop(outer, [&group] { group.request_stop(); });

    std::atomic<std::size_t> next{0};
    std::mutex failureMutex;
    std::exception_ptr firstFailure;

    auto runItems = [&] {
        for (;;) {
            if (group.stop_requested())
                return;
            const std::size_t index = next.fetch_add(1);
            if (index >= count)
                return;
            try {
                work(index, group.get_token());
            } catch (...) {
                {
                    std::lock_guard lock(failureMutex);
                    if (!firstFailure)
                        firstFailure = std::current_exception();
                }
                group.request_stop();
                return;
            }
        }
    };

    const std::size_t threads = std::clamp<std::size_t>(limit, 1, count);
    {
        std::vector<std::jthread> workers;
        workers.reserve(threads - 1);
        for (std::size_t i = 1; i < threads; ++i)
            workers.emplace_back(runItems);
        runItems(); // the calling thread is one of the workers
    }

    // A failure caused by the outer stop is reported as cancellation, whatever its type.
    if (outer.stop_requested())
        throw CancellationError();
    if (firstFailure)
        std::rethrow_exception(firstFailure);
}

} // namespace lumivesper::platform
