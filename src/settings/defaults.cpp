#include "settings/defaults.h"

#include "platform/atomic_file.h"
#include "platform/base64.h"
#include "platform/console.h"
#include "platform/file_lock.h"
#include "platform/paths.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

namespace lumivesper::settings {

namespace fs = std::filesystem;

// File layout: a flat JSON object. Strings, booleans and integers are stored as the matching
// JSON values. Data values are stored as {"data": "<base64>"} so that arbitrary bytes round-trip
// exactly and stay distinguishable from strings.

namespace {

std::string timestamp() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

// Keeps the unreadable file for the user to inspect. Returns false when it could not be moved,
// in which case it must not be overwritten.
bool setAside(const fs::path& file, const std::string& reason) {
    const fs::path aside = file.string() + ".corrupt-" + timestamp();
    std::error_code error;
    fs::rename(file, aside, error);
    if (error) {
        platform::consoleLine("⚠️ Warning: settings file " + file.string() + " is unreadable (" +
                              reason + ") and could not be renamed aside: " + error.message() +
                              "; changes to settings will not be saved");
        return false;
    }
    platform::consoleLine("⚠️ Warning: settings file " + file.string() + " is unreadable (" +
                          reason + "); renamed it to " + aside.string() +
                          " and started with empty settings");
    return true;
}

// What the file holds now: its object, or an empty one when there is no file. Nothing when the
// file is unreadable and stays where it is.
std::optional<nlohmann::json> readStored(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::error_code error;
        if (!fs::exists(file, error) && !error)
            return nlohmann::json::object();
        return setAside(file, "cannot open it") ? std::optional(nlohmann::json::object())
                                                : std::nullopt;
    }
    std::stringstream buffer;
    buffer << in.rdbuf();
    auto parsed = nlohmann::json::parse(buffer.str(), nullptr, false);
    if (parsed.is_object())
        return parsed;
    if (!setAside(file, parsed.is_discarded() ? "not valid JSON" : "not a JSON object"))
        return std::nullopt;
    return nlohmann::json::object();
}

} // namespace

fs::path Defaults::standardLocation() {
    if (const char* folder = std::getenv("LUMIVESPER_CONFIG_DIR"); folder && *folder)
        return fs::path(folder) / "defaults.json";
    return platform::configHome() / "lumivesper" / "defaults.json";
}

Defaults::Defaults(fs::path file) : file_(std::move(file)), values_(nlohmann::json::object()) {
    std::error_code error;
    if (!fs::exists(file_, error))
        return;
    // Under the lock, so that a file another process is repairing is not set aside twice.
    const platform::FileLock lock(lockFile());
    if (auto stored = readStored(file_))
        values_ = std::move(*stored);
}

fs::path Defaults::lockFile() const {
    return file_.string() + ".lock";
}

std::optional<std::string> Defaults::string(const std::string& key) const {
    std::lock_guard lock(mutex_);
    const auto it = values_.find(key);
    if (it == values_.end() || !it->is_string())
        return std::nullopt;
    return it->get<std::string>();
}

std::optional<bool> Defaults::boolean(const std::string& key) const {
    std::lock_guard lock(mutex_);
    const auto it = values_.find(key);
    if (it == values_.end() || !it->is_boolean())
        return std::nullopt;
    return it->get<bool>();
}

std::optional<std::int64_t> Defaults::integer(const std::string& key) const {
    std::lock_guard lock(mutex_);
    const auto it = values_.find(key);
    if (it == values_.end() || !it->is_number_integer())
        return std::nullopt;
    return it->get<std::int64_t>();
}

std::optional<std::vector<std::uint8_t>> Defaults::data(const std::string& key) const {
    std::lock_guard lock(mutex_);
    const auto it = values_.find(key);
    if (it == values_.end() || !it->is_object())
        return std::nullopt;
    const auto encoded = it->find("data");
    if (encoded == it->end() || !encoded->is_string())
        return std::nullopt;
    return platform::decodeBase64(encoded->get<std::string>());
}

void Defaults::setString(const std::string& key, const std::string& value) {
    store(key, value);
}

void Defaults::setBoolean(const std::string& key, bool value) {
    store(key, value);
}

void Defaults::setInteger(const std::string& key, std::int64_t value) {
    store(key, value);
}

void Defaults::setData(const std::string& key, const std::vector<std::uint8_t>& value) {
    store(key, nlohmann::json{{"data", platform::encodeBase64(value)}});
}

void Defaults::store(const std::string& key, nlohmann::json value) {
    modify([&](nlohmann::json& values) {
        values[key] = value;
        return true;
    });
}

void Defaults::remove(const std::string& key) {
    modify([&](nlohmann::json& values) { return values.erase(key) > 0; });
}

std::string Defaults::stringOrInsert(const std::string& key,
                                     const std::function<std::string()>& make) {
    if (auto known = string(key); known && !known->empty())
        return *known;
    std::string result;
    modify([&](nlohmann::json& values) {
        const auto found = values.find(key);
        if (found != values.end() && found->is_string() &&
            !found->get_ref<const std::string&>().empty()) {
            result = found->get<std::string>();
            return false;
        }
        result = make();
        values[key] = result;
        return true;
    });
    return result;
}

// A failed write keeps the values in memory and warns: preferences are not worth a crash, and the
// old file stays whole because it is only ever replaced by a rename.
void Defaults::modify(const std::function<bool(nlohmann::json&)>& change) {
    std::lock_guard lock(mutex_);
    std::error_code error;
    fs::create_directories(file_.parent_path(), error);
    const platform::FileLock fileLock(lockFile());
    std::optional<nlohmann::json> stored = readStored(file_);
    if (!stored) {
        change(values_); // the unreadable file stays; the change lives until the process ends
        return;
    }
    const bool changed = change(*stored);
    values_ = std::move(*stored);
    if (!changed)
        return;
    try {
        // A string that is not UTF-8 (a path from an old file system) is written with replacement
        // characters rather than failing the whole file.
        platform::writeFileAtomically(
            file_, values_.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
            0600);
    } catch (const platform::FileWriteError& failure) {
        platform::consoleLine(std::string("⚠️ Warning: settings not saved: ") + failure.what());
    }
}

} // namespace lumivesper::settings
