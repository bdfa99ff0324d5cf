#include "document/json_coding.h"

#include <cmath>

namespace lumivesper::platform {

void to_json(nlohmann::json& json, const Uuid& uuid) {
    json = uuid.toString();
}

void from_json(const nlohmann::json& json, Uuid& uuid) {
    if (!json.is_string())
        throw lumivesper::document::DecodingError("Expected a UUID string");
    auto parsed = Uuid::parse(json.get_ref<const std::string&>());
    if (!parsed)
        throw lumivesper::document::DecodingError("Invalid UUID string: " +
                                                  json.get_ref<const std::string&>());
    uuid = *parsed;
}

} // namespace lumivesper::platform

namespace lumivesper::document {

namespace {

using nlohmann::json;

const json& requiredKey(const json& object, const char* key) {
    if (!object.is_object())
        throw DecodingError("Expected an object");
    auto found = object.find(key);
    if (found == object.end() || found->is_null())
        throw DecodingError(std::string("Missing required key \"") + key + "\"");
    return *found;
}

// A present key of the wrong type fails; absent (or null) is none.
template <typename T> std::optional<T> optionalKey(const json& object, const char* key) {
    auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return std::nullopt;
    try {
        return found->get<T>();
    } catch (const json::exception&) {
        throw DecodingError(std::string("Wrong type for key \"") + key + "\"");
    } catch (const DecodingError& error) {
        throw DecodingError(std::string("Bad value for key \"") + key + "\": " + error.what());
    }
}

template <typename T> T requiredValue(const json& object, const char* key) {
    const json& value = requiredKey(object, key);
    try {
        return value.get<T>();
    } catch (const json::exception&) {
        throw DecodingError(std::string("Wrong type for key \"") + key + "\"");
    } catch (const DecodingError& error) {
        throw DecodingError(std::string("Bad value for key \"") + key + "\": " + error.what());
    }
}

template <typename T>
void putOptional(json& object, const char* key, const std::optional<T>& value) {
    if (value)
        object[key] = *value;
}

// JSON has no integer/real distinction for readers, but a count must be whole.
int wholeNumber(const json& value, const char* key) {
    if (value.is_number_integer())
        return value.get<int>();
    if (value.is_number_float()) {
        double number = value.get<double>();
        if (std::trunc(number) == number)
            return static_cast<int>(number);
    }
    throw DecodingError(std::string("Expected a whole number for key \"") + key + "\"");
}

std::optional<int> optionalWholeNumber(const json& object, const char* key) {
    auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return std::nullopt;
    return wholeNumber(*found, key);
}

} // namespace

double secondsSinceReferenceDate(std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    return duration<double>(time.time_since_epoch()).count() - referenceDateOffsetSeconds;
}

std::chrono::system_clock::time_point timeFromReferenceSeconds(double seconds) {
    using namespace std::chrono;
    return system_clock::time_point(duration_cast<system_clock::duration>(
        duration<double>(seconds + referenceDateOffsetSeconds)));
}

void to_json(json& out, WallpaperMode mode) {
    out = std::string(rawValue(mode));
}

void from_json(const json& in, WallpaperMode& mode) {
    if (!in.is_string())
        throw DecodingError("Expected a mode string");
    auto parsed = wallpaperModeFromRawValue(in.get_ref<const std::string&>());
    if (!parsed)
        throw DecodingError("Unknown mode \"" + in.get_ref<const std::string&>() + "\"");
    mode = *parsed;
}

void to_json(json& out, const WallpaperImage& image) {
    out = json::object();
    out["id"] = image.id;
    out["fileName"] = image.fileName;
    putOptional(out, "altitude", image.altitude);
    putOptional(out, "azimuth", image.azimuth);
    putOptional(out, "isLight", image.isLight);
    out["isTween"] = image.isTween;
    putOptional(out, "parentId", image.parentId);
    putOptional(out, "tweenCount", image.tweenCount);
}

void from_json(const json& in, WallpaperImage& image) {
    WallpaperImage decoded;
    decoded.id = requiredValue<Uuid>(in, "id");
    decoded.fileName = requiredValue<std::string>(in, "fileName");
    decoded.altitude = optionalKey<double>(in, "altitude");
    decoded.azimuth = optionalKey<double>(in, "azimuth");
    decoded.isLight = optionalKey<bool>(in, "isLight");
    const json& isTween = requiredKey(in, "isTween");
    if (!isTween.is_boolean())
        throw DecodingError("Wrong type for key \"isTween\"");
    decoded.isTween = isTween.get<bool>();
    decoded.parentId = optionalKey<Uuid>(in, "parentId");
    decoded.tweenCount = optionalWholeNumber(in, "tweenCount");
    image = std::move(decoded);
}

void to_json(json& out, const Project& project) {
    out = json::object();
    out["version"] = project.version;
    out["mode"] = project.mode;
    out["images"] = project.images;
    putOptional(out, "magicPrompt", project.magicPrompt);
    putOptional(out, "magicSize", project.magicSize);
    putOptional(out, "magicTweenCount", project.magicTweenCount);
    putOptional(out, "magicStartingImageFileName", project.magicStartingImageFileName);
}

void from_json(const json& in, Project& project) {
    Project decoded;
    decoded.version = requiredValue<std::string>(in, "version");
    decoded.mode = requiredValue<WallpaperMode>(in, "mode");
    const json& images = requiredKey(in, "images");
    if (!images.is_array())
        throw DecodingError("Wrong type for key \"images\"");
    decoded.images.reserve(images.size());
    for (const json& image : images)
        decoded.images.push_back(image.get<WallpaperImage>());
    decoded.magicPrompt = optionalKey<std::string>(in, "magicPrompt");
    decoded.magicSize = optionalKey<std::string>(in, "magicSize");
    decoded.magicTweenCount = optionalWholeNumber(in, "magicTweenCount");
    decoded.magicStartingImageFileName = optionalKey<std::string>(in, "magicStartingImageFileName");
    project = std::move(decoded);
}

void to_json(json& out, const RecentProject& recent) {
    out = json::object();
    out["path"] = recent.path;
    out["displayName"] = recent.displayName;
    out["lastOpened"] = secondsSinceReferenceDate(recent.lastOpened);
}

void from_json(const json& in, RecentProject& recent) {
    RecentProject decoded;
    decoded.path = requiredValue<std::string>(in, "path");
    decoded.displayName = requiredValue<std::string>(in, "displayName");
    decoded.lastOpened = timeFromReferenceSeconds(requiredValue<double>(in, "lastOpened"));
    recent = std::move(decoded);
}

} // namespace lumivesper::document
