#pragma once

#include "document/project.h"
#include "document/recent_project.h"
#include "document/wallpaper_image.h"
#include "document/wallpaper_mode.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace lumivesper::document {

// A record that could not be decoded: a required key is missing, a value has the wrong type or a
// raw value is unknown. The message names the key.
class DecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Seconds between 1970-01-01 and 2001-01-01, the epoch of stored dates.
inline constexpr double referenceDateOffsetSeconds = 978307200.0;

double secondsSinceReferenceDate(std::chrono::system_clock::time_point time);
std::chrono::system_clock::time_point timeFromReferenceSeconds(double seconds);

// nlohmann-json hooks (found by argument-dependent lookup). Decoding throws DecodingError.
void to_json(nlohmann::json& json, WallpaperMode mode);
void from_json(const nlohmann::json& json, WallpaperMode& mode);
void to_json(nlohmann::json& json, const WallpaperImage& image);
void from_json(const nlohmann::json& json, WallpaperImage& image);
void to_json(nlohmann::json& json, const Project& project);
void from_json(const nlohmann::json& json, Project& project);
void to_json(nlohmann::json& json, const RecentProject& recent);
void from_json(const nlohmann::json& json, RecentProject& recent);

} // namespace lumivesper::document

namespace lumivesper::platform {
void to_json(nlohmann::json& json, const Uuid& uuid);
void from_json(const nlohmann::json& json, Uuid& uuid);
} // namespace lumivesper::platform
