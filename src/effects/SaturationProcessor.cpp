#include "effects/SaturationProcessor.h"

#include "audio/Decibels.h"
#include "base/CpuDispatch.h"
#include "effects/EQBand.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

namespace sonvale {

namespace {

// e^x for float within two units in the last place, written so that a loop of it vectorises:
// 2^(x log2 e) split into a whole power, set in the exponent bits, and a fraction in
// [-1/2, 1/2] by its Taylor polynomial (degree 6 leaves an error of 1.2e-7).
SONVALE_ALWAYS_INLINE float exponential(float x) {
    x = x < 88.0f ? x : 88.0f; // (min and max as compare-and-select, which vectorise)
    x = x > -87.0f ? x : -87.0f;
    const float t = x * 1.44269504f;
    const float whole = (t + 12582912.0f) - 12582912.0f; // rounds to the nearest integer
    const float f = t - whole;
    float p = 1.54035304e-4f;
    p = p * f + 1.33335581e-3f;
    p = p * f + 9.61812911e-3f;
    p = p * f + 5.55041087e-2f;
    p = p * f + 2.40226507e-1f;
    p = p * f + 6.93147181e-1f;
    p = p * f + 1.0f;
    return p * __builtin_bit_cast(float, (int32_t(whole) + 127) << 23);
}

// tanh through one exponential: exactly 0 at 0, within float precision elsewhere.
SONVALE_ALWAYS_INLINE float hyperbolicTangent(float x) {
    return 1.0f - 2.0f / (exponential(2.0f * x) + 1.0f);
}

// shaped[i] = (tanh(bias[i] + gain[i] x[i]) - tanh(bias[i])) x scale[i], for every sample at
// once (vectorised), in the build for the processor at hand. Silence stays exactly 0: both
// terms come from the same arithmetic.
SONVALE_CPU_CLONES
void shape(const float* x, const float* bias, const float* gain, const float* scale, float* shaped,
           int count) noexcept {
    for (int i = 0; i < count; ++i)
        shaped[i] =
            (hyperbolicTangent(bias[i] + gain[i] * x[i]) - hyperbolicTangent(bias[i])) * scale[i];
}

// Samples shaped at a time.
constexpr int run = 64;

// The DC blockers, the Tone filter and the mix for `Pair` channels side by side, so that
// their recursions overlap in the processor.
template <int Pair>
SONVALE_ALWAYS_INLINE void finishChannels(float* const* samples, const float (*shaped)[run],
                                          DCBlocker* blockers, BiquadState* filters,
                                          const Biquad& tone, bool toneOn, const double* outputGain,
                                          const double* mix, int count) noexcept {
    for (int i = 0; i < count; ++i)
        for (int p = 0; p < Pair; ++p) {
            const double x = samples[p][i];
            double y = blockers[p].process(shaped[p][i]);
            if (toneOn) y = filters[p].process(tone, y);
            samples[p][i] = float(outputGain[i] * (mix[i] * (y - x) + x));
        }
}

SONVALE_CPU_CLONES
void finish(int pair, float* const* samples, const float (*shaped)[run], DCBlocker* blockers,
            BiquadState* filters, const Biquad& tone, bool toneOn, const double* outputGain,
            const double* mix, int count) noexcept {
    if (pair == 2)
        finishChannels<2>(samples, shaped, blockers, filters, tone, toneOn, outputGain, mix, count);
    else
        finishChannels<1>(samples, shaped, blockers, filters, tone, toneOn, outputGain, mix, count);
}

} // namespace

SaturationProcessor::SaturationProcessor(double sampleRate, int channelCount,
                                         std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , filters(size_t(this->channelCount))
    , blockers(size_t(this->channelCount)) {
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    driveDB = {this->bank->value(drive), k};
    warmthPercent = {this->bank->value(warmth), k};
    mixPercent = {std::clamp(this->bank->value(mix), 0.0, 100.0), k};
    outputDB = {this->bank->value(output), k};
    reset();
}

void SaturationProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double toneHz = bank->value(tone);
    toneFilter.follow(toneHz, sampleRate);
    bool toneOn = toneHz < 0.45 * sampleRate;
    double driveTarget = bank->value(drive), warmthTarget = bank->value(warmth);
    double mixTarget = std::clamp(bank->value(mix), 0.0, 100.0);
    double outputTarget = bank->value(output);

    // The exponentials and tanh terms only change while a smoother moves; cache them.
    double driveSeen = driveDB.value, g = gainFromDecibels(driveSeen), tanhG = std::tanh(g);
    double warmthSeen = warmthPercent.value, b = 0.4 * warmthSeen / 100;
    double outputSeen = outputDB.value, o = gainFromDecibels(outputSeen);
    // Settled knobs (the usual case) leave every smoother where it is.
    const bool settled = driveDB.value == driveTarget && warmthPercent.value == warmthTarget &&
                         outputDB.value == outputTarget && mixPercent.value == mixTarget;
    float bias[run], gain[run], scale[run];
    double outputGain[run], mixFraction[run];
    if (settled) {
        std::fill(std::begin(bias), std::end(bias), float(b));
        std::fill(std::begin(gain), std::end(gain), float(g));
        std::fill(std::begin(scale), std::end(scale), float(1 / tanhG));
        std::fill(std::begin(outputGain), std::end(outputGain), o);
        std::fill(std::begin(mixFraction), std::end(mixFraction), mixPercent.value / 100);
    }
    for (int64_t at = 0; at < frameCount; at += run) {
        const int count = int(std::min<int64_t>(run, frameCount - at));
        if (!settled)
            for (int i = 0; i < count; ++i) {
                if (driveDB.step(driveTarget) != driveSeen) {
                    driveSeen = driveDB.value;
                    g = gainFromDecibels(driveSeen);
                    tanhG = std::tanh(g);
                }
                if (warmthPercent.step(warmthTarget) != warmthSeen) {
                    warmthSeen = warmthPercent.value;
                    b = 0.4 * warmthSeen / 100;
                }
                if (outputDB.step(outputTarget) != outputSeen)
                    o = gainFromDecibels(outputSeen = outputDB.value);
                bias[i] = float(b);
                gain[i] = float(g);
                scale[i] = float(1 / tanhG);
                outputGain[i] = o;
                mixFraction[i] = mixPercent.step(mixTarget) / 100;
            }
        for (int c = 0; c < channelCount; c += 2) {
            const int pair = std::min(2, channelCount - c);
            float* samples[2] = {channels[c] + at, channels[c + pair - 1] + at};
            float shaped[2][run];
            for (int p = 0; p < pair; ++p)
                shape(samples[p], bias, gain, scale, shaped[p], count);
            finish(pair, samples, shaped, &blockers[size_t(c)], &filters[size_t(c)],
                   toneFilter.section, toneOn, outputGain, mixFraction, count);
        }
    }
    flushTiny(filters, blockers);
}

// The smoothers keep their values: a reset clears what the signal left, not the knobs.
void SaturationProcessor::reset() noexcept { resetFilters(filters, blockers, sampleRate); }

} // namespace sonvale
