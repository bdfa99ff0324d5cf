#include "export/upscale/tile_time_cache.h"

#include "platform/atomic_file.h"
#include "platform/paths.h"

#include <chrono>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

namespace lumivesper::upscale {

namespace {

nlohmann::json readTable(const std::filesystem::path& file) {
    std::ifstream stream(file);
    if (!stream)
        return nlohmann::json::object();
    nlohmann::json table = nlohmann::json::parse(stream, nullptr, false);
    return table.is_object() ? table : nlohmann::json::object();
}

} // namespace

std::filesystem::path TileTimeCache::standardLocation() {
    return platform::cacheHome() / "lumivesper" / "tile-times.json";
}

std::optional<double> TileTimeCache::secondsPerTile(const std::string& key) const {
    const nlohmann::json table = readTable(file_);
    const auto found = table.find(key);
    if (found == table.end() || !found->is_object())
        return std::nullopt;
    const auto seconds = found->find("secondsPerTile");
    if (seconds == found->end() || !seconds->is_number())
        return std::nullopt;
    const double value = seconds->get<double>();
    if (!std::isfinite(value) || value <= 0)
        return std::nullopt;
    return value;
}

void TileTimeCache::record(const std::string& key, double seconds) const {
    if (!std::isfinite(seconds) || seconds <= 0)
        return;
    nlohmann::json table = readTable(file_);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    table[key] = {{"secondsPerTile", seconds},
                  {"measuredAt", std::chrono::duration_cast<std::chrono::seconds>(now).count()}};
    try {
        std::error_code ignored;
        std::filesystem::create_directories(file_.parent_path(), ignored);
        platform::writeFileAtomically(file_, table.dump(2) + "\n");
    } catch (const platform::FileWriteError&) {
    }
}

std::string tileTimeKey(const std::filesystem::path& model, std::string_view device,
                        unsigned threads) {
    std::error_code pathError, sizeError, timeError;
    const auto absolute = std::filesystem::absolute(model, pathError);
    const auto size = std::filesystem::file_size(model, sizeError);
    const auto written = std::filesystem::last_write_time(model, timeError);
    std::ostringstream key;
    key << (pathError ? model : absolute).string() << "|" << (sizeError ? 0 : size) << "|"
        << (timeError ? 0 : written.time_since_epoch().count()) << "|" << device << "|" << threads;
    return key.str();
}

} // namespace lumivesper::upscale
