#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace lumivesper::generation {

// A received body that is not the record it should be.
class WireShapeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An optional string member: absent or null gives none; another type is a shape error, as a
// strict decoder would have it.
inline std::optional<std::string> optionalString(const nlohmann::json& object, const char* key) {
    if (!object.is_object())
        throw WireShapeError("expected an object");
    const auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return std::nullopt;
    if (!found->is_string())
        throw WireShapeError(std::string("\"") + key + "\" is not a string");
    return found->get<std::string>();
}

// A required array member.
inline const nlohmann::json& requiredArray(const nlohmann::json& object, const char* key) {
    if (!object.is_object())
        throw WireShapeError("expected an object");
    const auto found = object.find(key);
    if (found == object.end() || !found->is_array())
        throw WireShapeError(std::string("missing array \"") + key + "\"");
    return *found;
}

// Parses `body` and runs `decode` on it; none when either fails.
template <typename Decode>
auto decodeWire(const std::string& body, Decode decode)
    -> std::optional<decltype(decode(nlohmann::json()))> {
    try {
        return decode(nlohmann::json::parse(body));
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    } catch (const WireShapeError&) {
        return std::nullopt;
    }
}

} // namespace lumivesper::generation
