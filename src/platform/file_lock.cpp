#include "platform/file_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace lumivesper::platform {

FileLock::FileLock(const std::filesystem::path& lockFile)
    : descriptor_(::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (!descriptor_.valid())
        return;
    int result = 0;
    do
        result = ::flock(descriptor_.get(), LOCK_EX);
    while (result != 0 && errno == EINTR);
    held_ = result == 0;
}

FileLock::~FileLock() {
    if (held_)
        ::flock(descriptor_.get(), LOCK_UN);
}

} // namespace lumivesper::platform
