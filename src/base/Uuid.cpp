#include "base/Uuid.h"

#include <mutex>
#include <random>

namespace sonvale {

Uuid Uuid::random() {
    static std::mutex mutex;
    static std::mt19937_64 engine{[] {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seed);
    }()};
    Uuid id;
    {
        std::lock_guard lock(mutex);
        for (int half = 0; half < 2; ++half) {
            uint64_t bits = engine();
            for (int i = 0; i < 8; ++i)
                id.octets[half * 8 + i] = uint8_t(bits >> (i * 8));
        }
    }
    id.octets[6] = (id.octets[6] & 0x0F) | 0x40; // version 4
    id.octets[8] = (id.octets[8] & 0x3F) | 0x80; // RFC 4122 variant
    return id;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid id;
    int nibble = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') return std::nullopt;
            continue;
        }
        int value;
        if (c >= '0' && c <= '9')
            value = c - '0';
        else if (c >= 'a' && c <= 'f')
            value = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            value = c - 'A' + 10;
        else
            return std::nullopt;
        id.octets[nibble / 2] |= uint8_t(nibble % 2 == 0 ? value << 4 : value);
        ++nibble;
    }
    return id;
}

std::string Uuid::text() const {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
        out.push_back(digits[octets[i] >> 4]);
        out.push_back(digits[octets[i] & 0x0F]);
    }
    return out;
}

bool Uuid::isNil() const {
    for (auto b : octets)
        if (b) return false;
    return true;
}

} // namespace sonvale
