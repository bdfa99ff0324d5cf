#pragma once

#include <cstdint>
#include <functional>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::settings {

// The program's persistent preferences: string, boolean, integer and data values under string
// keys, kept in one JSON file. The application and the command line may run at once, so every
// change re-reads the file under an advisory lock (`defaults.json.lock`), applies itself to what
// is stored now and replaces the file atomically: keys that another process set are kept. A
// corrupt file is renamed aside (`defaults.json.corrupt-<time>`) with a console line, never
// overwritten. Reads answer from the values seen at the last read or change. Safe to use from any
// thread.
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

    // The stored string when there is one that is not empty; otherwise `make()`, stored first.
    // Decided under the file's lock, so two first runs at once agree on one value.
    std::string stringOrInsert(const std::string& key, const std::function<std::string()>& make);

    const std::filesystem::path& file() const { return file_; }

private:
    void store(const std::string& key, nlohmann::json value);
    // Under both locks: `change` edits the values stored now and says whether it changed them;
    // a change is written at once.
    void modify(const std::function<bool(nlohmann::json&)>& change);
    std::filesystem::path lockFile() const;

    std::filesystem::path file_;
    mutable std::mutex mutex_;
    nlohmann::json values_;
};

} // namespace lumivesper::settings
