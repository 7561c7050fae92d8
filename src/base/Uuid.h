#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace sonvale {

// A random (version 4) UUID. Its text form is the canonical upper-case one,
// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
class Uuid {
public:
    Uuid() = default; // the nil UUID
    static Uuid random();
    // Accepts either case; returns nothing for anything but 8-4-4-4-12 hex digits.
    static std::optional<Uuid> parse(std::string_view text);

    std::string text() const;
    bool isNil() const;
    const std::array<uint8_t, 16>& bytes() const { return octets; }

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend auto operator<=>(const Uuid&, const Uuid&) = default;

private:
    std::array<uint8_t, 16> octets{};
};

} // namespace sonvale

template <> struct std::hash<sonvale::Uuid> {
    size_t operator()(const sonvale::Uuid& id) const noexcept {
        uint64_t a = 0, b = 0;
        for (int i = 0; i < 8; ++i)
            a = (a << 8) | id.bytes()[i];
        for (int i = 8; i < 16; ++i)
            b = (b << 8) | id.bytes()[i];
        return std::hash<uint64_t>()(a ^ (b * 0x9E3779B97F4A7C15ull));
    }
};
