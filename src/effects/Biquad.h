#pragma once

#include "effects/Dsp.h"

#include <cmath>
#include <numbers>
#include <vector>

namespace sonvale {

// The normalised coefficients of one second-order filter section (a0 divided out).
// The default is the identity section.
struct Biquad {
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;

    // The magnitude response at `frequency` in dB, floored at -300 dB.
    double decibels(double frequency, double sampleRate) const;

    friend bool operator==(const Biquad&, const Biquad&) = default;
};

// The two state words of a transposed direct form II section.
struct BiquadState {
    double z1 = 0, z2 = 0;

    double process(const Biquad& f, double x) noexcept {
        double y = f.b0 * x + z1;
        z1 = f.b1 * x - f.a1 * y + z2;
        z2 = f.b2 * x - f.a2 * y;
        return y;
    }
    void reset() noexcept { z1 = z2 = 0; }
    // Zeroes state that has decayed below audibility, so a silent tail never reaches
    // denormal arithmetic. Call once per block.
    void flushTiny() noexcept {
        z1 = flushDenormal(z1);
        z2 = flushDenormal(z2);
    }
};

// A one-pole smoother: each step moves `value` by `coefficient` of the way to the target.
struct Smoothed {
    double value = 0;
    double coefficient = 1;

    // The per-sample coefficient of a `seconds` time constant at `sampleRate`.
    static double coefficientFor(double seconds, double sampleRate) {
        return 1 - decayCoefficient(seconds, sampleRate);
    }
    double step(double target) noexcept {
        value += coefficient * (target - value);
        return value;
    }
};

// A first-order DC blocker: y = (x - x1) + pole * y1.
struct DCBlocker {
    double x1 = 0, y1 = 0;
    double pole = 0.999;

    // The pole of a 5 Hz high-pass at `sampleRate`.
    static double fiveHertzPole(double sampleRate) {
        return std::exp(-2 * std::numbers::pi * 5 / sampleRate);
    }
    double process(double x) noexcept {
        double y = (x - x1) + pole * y1;
        x1 = x;
        y1 = y;
        return y;
    }
    void reset() noexcept { x1 = y1 = 0; }
    // As BiquadState::flushTiny.
    void flushTiny() noexcept {
        x1 = flushDenormal(x1);
        y1 = flushDenormal(y1);
    }
};

// Clears the filter state of every channel and starts its DC blocker afresh with a 5 Hz pole.
inline void resetFilters(std::vector<BiquadState>& filters, std::vector<DCBlocker>& blockers,
                         double sampleRate) noexcept {
    for (auto& filter : filters)
        filter.reset();
    const double pole = DCBlocker::fiveHertzPole(sampleRate);
    for (auto& blocker : blockers)
        blocker = {0, 0, pole};
}

// Flushes the filter and DC-blocker states of every channel; see BiquadState::flushTiny.
inline void flushTiny(std::vector<BiquadState>& filters,
                      std::vector<DCBlocker>& blockers) noexcept {
    for (auto& filter : filters)
        filter.flushTiny();
    for (auto& blocker : blockers)
        blocker.flushTiny();
}

} // namespace sonvale
