#include "platform/console.h"

#include <iostream>
#include <mutex>

namespace lumivesper::platform {

void consoleLine(std::string_view line) {
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    std::cout << line << '\n' << std::flush;
}

} // namespace lumivesper::platform
