#pragma once

#include <unistd.h>
#include <utility>

namespace lumivesper::platform {

// Owns a POSIX file descriptor; -1 holds nothing.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    bool valid() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }
    // Closes now, so that a failing close (a delayed write error) is seen.
    bool close() { return ::close(std::exchange(descriptor_, -1)) == 0; }

private:
    int descriptor_;
};

} // namespace lumivesper::platform
