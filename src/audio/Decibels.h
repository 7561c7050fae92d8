#pragma once

#include <cmath>

namespace sonvale {

// The linear gain of a level in decibels: 0 dB is 1, -6 dB about 0.5.
inline double gainFromDecibels(double decibels) { return std::pow(10.0, decibels / 20); }

// The level in decibels of a linear gain or amplitude, in the type it is given (float or
// double); minus infinity for 0.
template <class Real> Real decibelsFromGain(Real gain) { return Real(20) * std::log10(gain); }

// The level in decibels of a power (a squared amplitude).
inline double decibelsFromPower(double power) { return 10 * std::log10(power); }

} // namespace sonvale
