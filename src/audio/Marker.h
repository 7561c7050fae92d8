#pragma once

#include "base/Uuid.h"

#include <cstdint>
#include <optional>
#include <string>

namespace sonvale {

// A point in a track's time (no end) or a region (with an end after its start).
struct Marker {
    Uuid id;
    std::string name;
    int64_t start = 0;
    std::optional<int64_t> end; // for a region, the frame after its last one

    bool isRegion() const { return end.has_value(); }
    friend bool operator==(const Marker&, const Marker&) = default;
};

} // namespace sonvale
