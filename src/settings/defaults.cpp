#include "settings/defaults.h"

#include "platform/base64.h"
#include "platform/console.h"
#include "platform/paths.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>
#include <unistd.h>

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

// Keeps the unreadable file for the user to inspect; the store then starts over. Returns false
// when no copy could be made, in which case the original must not be overwritten.
bool setAside(const fs::path& file, const std::string& reason) {
    const fs::path copy = file.string() + ".corrupt-" + timestamp();
    std::error_code error;
    fs::copy_file(file, copy, fs::copy_options::overwrite_existing, error);
    if (error) {
        platform::consoleLine("⚠️ Warning: settings file " + file.string() +
                              " is unreadable (" + reason +
                              ") and could not be copied aside: " + error.message() +
                              "; starting with empty settings that will not be saved");
        return false;
    }
    platform::consoleLine("⚠️ Warning: settings file " + file.string() + " is unreadable (" +
                          reason + "); kept a copy at " + copy.string() +
                          " and started with empty settings");
    return true;
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
    std::ifstream in(file_, std::ios::binary);
    if (!in) {
        writable_ = setAside(file_, "cannot open it");
        return;
    }
    std::stringstream buffer;
    buffer << in.rdbuf();
    auto parsed = nlohmann::json::parse(buffer.str(), nullptr, false);
    if (parsed.is_discarded()) {
        writable_ = setAside(file_, "not valid JSON");
        return;
    }
    if (!parsed.is_object()) {
        writable_ = setAside(file_, "not a JSON object");
        return;
    }
    values_ = std::move(parsed);
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
    std::lock_guard lock(mutex_);
    values_[key] = value;
    writeLocked();
}

void Defaults::setBoolean(const std::string& key, bool value) {
    std::lock_guard lock(mutex_);
    values_[key] = value;
    writeLocked();
}

void Defaults::setInteger(const std::string& key, std::int64_t value) {
    std::lock_guard lock(mutex_);
    values_[key] = value;
    writeLocked();
}

void Defaults::setData(const std::string& key, const std::vector<std::uint8_t>& value) {
    std::lock_guard lock(mutex_);
    values_[key] = nlohmann::json{{"data", platform::encodeBase64(value)}};
    writeLocked();
}

void Defaults::remove(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (values_.erase(key) == 0)
        return;
    writeLocked();
}

// A failed write keeps the values in memory and warns: preferences are not worth a crash, and the
// old file stays intact because the rename never happened.
void Defaults::writeLocked() const {
    if (!writable_)
        return;
    std::error_code error;
    fs::create_directories(file_.parent_path(), error);
    const fs::path temporary = file_.string() + ".tmp-" + std::to_string(::getpid()) + "-" +
                               std::to_string(reinterpret_cast<std::uintptr_t>(this));
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        // A string that is not UTF-8 (a path from an old file system) is written with replacement
        // characters rather than failing the whole file.
        out << values_.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        out.flush();
        if (!out) {
            platform::consoleLine("⚠️ Warning: could not write settings file " +
                                  temporary.string());
            fs::remove(temporary, error);
            return;
        }
    }
    fs::rename(temporary, file_, error);
    if (error) {
        platform::consoleLine("⚠️ Warning: could not replace settings file " + file_.string() +
                              ": " + error.message());
        fs::remove(temporary, error);
    }
}

} // namespace lumivesper::settings
