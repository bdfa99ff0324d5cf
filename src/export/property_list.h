#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace lumivesper::exporting {

// A property-list value of the kinds our wallpaper metadata uses. Integers and reals are distinct
// kinds on purpose: the desktop reads "o" as an integer and "a"/"z" as doubles.
class PlistValue {
public:
    struct Entry;
    using Array = std::vector<PlistValue>;
    using Dictionary = std::vector<Entry>; // in insertion order; keys are unique

    PlistValue() : value_(std::int64_t{0}) {}
    PlistValue(std::int64_t integer) : value_(integer) {}
    PlistValue(int integer) : value_(std::int64_t{integer}) {}
    PlistValue(double real) : value_(real) {}
    PlistValue(bool boolean) : value_(boolean) {}
    PlistValue(std::string text) : value_(std::move(text)) {}
    PlistValue(const char* text) : value_(std::string(text)) {}
    PlistValue(Array array) : value_(std::move(array)) {}
    PlistValue(Dictionary dictionary) : value_(std::move(dictionary)) {}

    bool isInteger() const { return std::holds_alternative<std::int64_t>(value_); }
    bool isReal() const { return std::holds_alternative<double>(value_); }
    bool isBoolean() const { return std::holds_alternative<bool>(value_); }
    bool isString() const { return std::holds_alternative<std::string>(value_); }
    bool isArray() const { return std::holds_alternative<Array>(value_); }
    bool isDictionary() const { return std::holds_alternative<Dictionary>(value_); }

    // Accessors throw std::bad_variant_access for the wrong kind.
    std::int64_t integer() const { return std::get<std::int64_t>(value_); }
    double real() const { return std::get<double>(value_); }
    bool boolean() const { return std::get<bool>(value_); }
    const std::string& string() const { return std::get<std::string>(value_); }
    const Array& array() const { return std::get<Array>(value_); }
    const Dictionary& dictionary() const { return std::get<Dictionary>(value_); }

    // The value under `key` of a dictionary, or null when absent or not a dictionary.
    const PlistValue* find(const std::string& key) const;

private:
    std::variant<std::int64_t, double, bool, std::string, Array, Dictionary> value_;
};

struct PlistValue::Entry {
    std::string key;
    PlistValue value;
};

inline const PlistValue* PlistValue::find(const std::string& key) const {
    if (!isDictionary())
        return nullptr;
    for (const auto& entry : dictionary())
        if (entry.key == key)
            return &entry.value;
    return nullptr;
}

} // namespace lumivesper::exporting
