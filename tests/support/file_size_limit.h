#pragma once

#include <csignal>
#include <sys/resource.h>

namespace lumivesper::testing {

// While alive, no file of this process may grow past `bytes`: a write beyond fails with EFBIG, as
// on a full disk, instead of raising SIGXFSZ.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        previousHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &previous_);
        rlimit limited = previous_;
        limited.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previousHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit previous_{};
    void (*previousHandler_)(int) = nullptr;
};

} // namespace lumivesper::testing
