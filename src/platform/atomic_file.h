#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace lumivesper::platform {

// A file that could not be written or replaced. what() names the file and the cause
// ("Could not write "/home/u/x.json": No space left on device.").
class FileWriteError : public std::runtime_error {
public:
    FileWriteError(const std::filesystem::path& file, std::error_code cause);
    const std::error_code& code() const { return cause_; }

private:
    std::error_code cause_;
};

// Replaces `file` with `contents` so that a crash, a full disk or a reader at the same moment sees
// either the old file or the new one, whole: a temporary file in the same folder is written,
// flushed and synced, then renamed over `file`. The folder must exist. On failure the temporary
// file is removed, the old file is untouched, and FileWriteError is thrown. `permissions` applies
// to a new file, as open(2) takes it (the umask still applies).
void writeFileAtomically(const std::filesystem::path& file, std::string_view contents,
                         unsigned permissions = 0666);

} // namespace lumivesper::platform
