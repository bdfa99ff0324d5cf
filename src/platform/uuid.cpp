#include "platform/uuid.h"

#include <random>

namespace lumivesper::platform {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool isHyphenPosition(std::size_t index) {
    return index == 8 || index == 13 || index == 18 || index == 23;
}

} // namespace

Uuid Uuid::generate() {
    // One engine per thread, seeded from the operating system: no locking, no shared state.
    thread_local std::mt19937_64 engine{[] {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device(), device(), device()};
        return std::mt19937_64{seed};
    }()};
    Uuid uuid;
    for (std::size_t i = 0; i < 16; i += 8) {
        std::uint64_t value = engine();
        for (std::size_t b = 0; b < 8; ++b)
            uuid.bytes_[i + b] = static_cast<std::uint8_t>(value >> (8 * b));
    }
    uuid.bytes_[6] = static_cast<std::uint8_t>((uuid.bytes_[6] & 0x0F) | 0x40);
    uuid.bytes_[8] = static_cast<std::uint8_t>((uuid.bytes_[8] & 0x3F) | 0x80);
    return uuid;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36)
        return std::nullopt;
    Uuid uuid;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (isHyphenPosition(i)) {
            if (text[i] != '-')
                return std::nullopt;
            ++i;
            continue;
        }
        int high = hexValue(text[i]);
        int low = hexValue(text[i + 1]);
        if (high < 0 || low < 0 || isHyphenPosition(i + 1))
            return std::nullopt;
        uuid.bytes_[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return uuid;
}

std::string Uuid::toString() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text.push_back('-');
        text.push_back(digits[bytes_[i] >> 4]);
        text.push_back(digits[bytes_[i] & 0x0F]);
    }
    return text;
}

bool Uuid::isNil() const {
    for (auto b : bytes_)
        if (b != 0)
            return false;
    return true;
}

} // namespace lumivesper::platform

std::size_t std::hash<lumivesper::platform::Uuid>::operator()(
    const lumivesper::platform::Uuid& uuid) const noexcept {
    std::size_t value = 1469598103934665603ULL;
    for (auto b : uuid.bytes()) {
        value ^= b;
        value *= 1099511628211ULL;
    }
    return value;
}
