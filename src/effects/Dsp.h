#pragma once

#include <cmath>
#include <numbers>

namespace sonvale {

inline constexpr double twoPi = 2 * std::numbers::pi;

// The per-sample factor by which a one-pole envelope's distance to its target shrinks, for a
// time constant of `seconds` at `sampleRate`.
inline double decayCoefficient(double seconds, double sampleRate) {
    return std::exp(-1 / (seconds * sampleRate));
}

// Values this small only cost time in feedback loops and filter memories; they are inaudible.
inline float flushDenormal(float x) noexcept { return std::fabs(x) < 1e-20f ? 0.0f : x; }
inline double flushDenormal(double x, double below = 1e-20) noexcept {
    return std::fabs(x) < below ? 0.0 : x;
}

} // namespace sonvale
