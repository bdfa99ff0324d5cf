#include "platform/atomic_file.h"

#include "platform/file_descriptor.h"
#include "platform/uuid.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace lumivesper::platform {

namespace fs = std::filesystem;

namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

std::error_code writeAll(int descriptor, std::string_view contents) {
    while (!contents.empty()) {
        const ssize_t written = ::write(descriptor, contents.data(), contents.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return lastError();
        }
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
}

// Makes the rename itself durable; a folder that cannot be synced costs only that guarantee.
void syncFolder(const fs::path& folder) {
    FileDescriptor descriptor(
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor.valid())
        ::fsync(descriptor.get());
}

} // namespace

FileWriteError::FileWriteError(const fs::path& file, std::error_code cause)
    : std::runtime_error("Could not write \"" + file.string() + "\": " + cause.message() + "."),
      cause_(cause) {}

void writeFileAtomically(const fs::path& file, std::string_view contents, unsigned permissions) {
    // Hidden, unique and in the same folder, so that the rename stays on one file system.
    const fs::path temporary = file.parent_path() / ("." + file.filename().string() + ".tmp-" +
                                                     Uuid::generate().toString());
    FileDescriptor descriptor(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                                     static_cast<mode_t>(permissions)));
    if (!descriptor.valid())
        throw FileWriteError(file, lastError());

    std::error_code failure = writeAll(descriptor.get(), contents);
    if (!failure && ::fsync(descriptor.get()) != 0)
        failure = lastError();
    if (!failure && !descriptor.close())
        failure = lastError();
    if (!failure && ::rename(temporary.c_str(), file.c_str()) != 0)
        failure = lastError();
    if (failure) {
        ::unlink(temporary.c_str());
        throw FileWriteError(file, failure);
    }
    syncFolder(file.parent_path());
}

} // namespace lumivesper::platform
