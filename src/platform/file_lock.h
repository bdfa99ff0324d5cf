#pragma once

#include "platform/file_descriptor.h"

#include <filesystem>

namespace lumivesper::platform {

// An exclusive advisory lock (flock) on `lockFile`, created when missing, held until destruction.
// Blocks while another process, or another FileLock of this one, holds it. Where the file cannot
// be opened (a read-only folder) nothing is locked: held() is false and the caller goes on alone.
class FileLock {
public:
    explicit FileLock(const std::filesystem::path& lockFile);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    bool held() const { return held_; }

private:
    FileDescriptor descriptor_;
    bool held_ = false;
};

} // namespace lumivesper::platform
