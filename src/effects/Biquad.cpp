#include "effects/Biquad.h"

#include "audio/Decibels.h"

#include <algorithm>

namespace sonvale {

double Biquad::decibels(double frequency, double sampleRate) const {
    double w = 2 * std::numbers::pi * frequency / sampleRate;
    double c1 = std::cos(w), c2 = std::cos(2 * w), s1 = std::sin(w), s2 = std::sin(2 * w);
    double nr = b0 + b1 * c1 + b2 * c2, ni = b1 * s1 + b2 * s2;
    double dr = 1 + a1 * c1 + a2 * c2, di = a1 * s1 + a2 * s2;
    double n = nr * nr + ni * ni, d = dr * dr + di * di;
    return decibelsFromPower(std::max(n / std::max(d, 1e-30), 1e-30));
}

} // namespace sonvale
