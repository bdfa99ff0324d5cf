#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::upscale {

// Seconds per tile as measured on this computer, kept between runs so that an export can be
// estimated before it starts. A measurement holds only for the model file, the compute device and
// the number of processor threads it was taken with; the key names all three.
class TileTimeCache {
public:
    explicit TileTimeCache(std::filesystem::path file) : file_(std::move(file)) {}

    // $XDG_CACHE_HOME/lumivesper/tile-times.json
    static std::filesystem::path standardLocation();

    // The latest measurement under `key`; none when there is none or the file is unreadable.
    std::optional<double> secondsPerTile(const std::string& key) const;

    // Keeps `seconds` under `key`, replacing an older measurement. Failures to write are
    // swallowed: a missing measurement only costs the next estimate.
    void record(const std::string& key, double seconds) const;

    const std::filesystem::path& file() const { return file_; }

private:
    std::filesystem::path file_;
};

// The key of measurements of the model at `model` (by path, size and modification time, so that
// a replaced file is measured anew) run on `device` ("cpu" or an OpenCL device's name) with
// `threads` processor threads.
std::string tileTimeKey(const std::filesystem::path& model, std::string_view device,
                        unsigned threads);

} // namespace lumivesper::upscale
