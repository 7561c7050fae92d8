#pragma once

#include <cmath>
#include <cstdint>

namespace sonvale {

// A time stamp on the output stream's clock, in nanoseconds; 0 means "no time stamp". All
// playhead arithmetic uses this one clock (the clock PortAudio reports stream times on).
using HostTime = uint64_t;

inline HostTime hostTimeFromSeconds(double seconds) noexcept {
    return seconds > 0 ? HostTime(std::llround(seconds * 1e9)) : 0;
}
inline double secondsFromHostTime(HostTime time) noexcept { return double(time) * 1e-9; }

} // namespace sonvale
