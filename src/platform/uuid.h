#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::platform {

// A 128-bit identifier, written in the hyphenated upper-case form ("E621E1F8-C36C-495A-93FC-...").
class Uuid {
public:
    Uuid() = default; // the nil UUID

    static Uuid generate(); // random, version 4
    // Accepts either case; anything but 8-4-4-4-12 hex digits gives none.
    static std::optional<Uuid> parse(std::string_view text);

    std::string toString() const;
    bool isNil() const;
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    auto operator<=>(const Uuid&) const = default;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace lumivesper::platform

template <> struct std::hash<lumivesper::platform::Uuid> {
    std::size_t operator()(const lumivesper::platform::Uuid& uuid) const noexcept;
};
