#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::settings {

// The program's persistent preferences: string, boolean, integer and data values under string
// keys, kept in one JSON file that every change rewrites atomically (temporary file + rename).
// A corrupt or unreadable file is copied aside, reported on the console, and the store starts
// empty. Safe to use from any thread.
class Defaults {
public:
    // $LUMIVESPER_CONFIG_DIR/defaults.json, else $XDG_CONFIG_HOME/lumivesper/defaults.json.
    static std::filesystem::path standardLocation();

    explicit Defaults(std::filesystem::path file);

    std::optional<std::string> string(const std::string& key) const;
    std::optional<bool> boolean(const std::string& key) const;
    std::optional<std::int64_t> integer(const std::string& key) const;
    std::optional<std::vector<std::uint8_t>> data(const std::string& key) const;

    void setString(const std::string& key, const std::string& value);
    void setBoolean(const std::string& key, bool value);
    void setInteger(const std::string& key, std::int64_t value);
    void setData(const std::string& key, const std::vector<std::uint8_t>& value);
    void remove(const std::string& key);

    const std::filesystem::path& file() const { return file_; }

private:
    void writeLocked() const;

    std::filesystem::path file_;
    mutable std::mutex mutex_;
    nlohmann::json values_;
    // False after an unreadable file could not be copied aside: keep it rather than replace it.
    bool writable_ = true;
};

} // namespace lumivesper::settings
