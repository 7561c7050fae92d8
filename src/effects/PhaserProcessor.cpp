#include "effects/PhaserProcessor.h"

#include "base/CpuDispatch.h"
#include "effects/Dsp.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

namespace {
constexpr int stageChoices[] = {4, 6, 8, 12};
constexpr int updateInterval = 16;
} // namespace

PhaserProcessor::PhaserProcessor(double sampleRate, int channelCount,
                                 std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , states(size_t(this->channelCount * maxStages), 0.0)
    , last(size_t(this->channelCount), 0.0)
    , coefficients(size_t(this->channelCount), 0.0) {
    reset();
}

namespace {

// `count` samples of `Pair` channels (one or two, run side by side so that their cascades
// overlap in the processor) through `Stages` first-order all-pass sections with feedback.
// States live in registers for the run and are flushed once at its end: a run is at most
// 16 samples, far too short for a state above 1e-20 to decay into denormals.
template <int Stages, int Pair>
SONVALE_ALWAYS_INLINE void runCascades(float* const* channels, int64_t at, int64_t count,
                                       double* states, double* last, const double* coefficients,
                                       const double* feedback, const double* mix) noexcept {
    double s[Pair][Stages], l[Pair], a[Pair];
    for (int p = 0; p < Pair; ++p) {
        for (int k = 0; k < Stages; ++k)
            s[p][k] = states[p * PhaserProcessor::maxStages + k];
        l[p] = last[p];
        a[p] = coefficients[p];
    }
    for (int64_t i = 0; i < count; ++i) {
        for (int p = 0; p < Pair; ++p) {
            const double x = channels[p][at + i];
            double u = x + feedback[i] * l[p];
            for (int k = 0; k < Stages; ++k) {
                const double y = a[p] * u + s[p][k];
                s[p][k] = u - a[p] * y;
                u = y;
            }
            l[p] = u;
            channels[p][at + i] = float(mix[i] * (u - x) + x);
        }
    }
    for (int p = 0; p < Pair; ++p) {
        for (int k = 0; k < Stages; ++k)
            states[p * PhaserProcessor::maxStages + k] = flushDenormal(s[p][k]);
        last[p] = flushDenormal(l[p]);
    }
}

template <int Stages>
SONVALE_ALWAYS_INLINE void runAll(int channelCount, float* const* channels, int64_t at,
                                  int64_t count, double* states, double* last,
                                  const double* coefficients, const double* feedback,
                                  const double* mix) noexcept {
    int c = 0;
    for (; c + 1 < channelCount; c += 2)
        runCascades<Stages, 2>(channels + c, at, count, states + c * PhaserProcessor::maxStages,
                               last + c, coefficients + c, feedback, mix);
    if (c < channelCount)
        runCascades<Stages, 1>(channels + c, at, count, states + c * PhaserProcessor::maxStages,
                               last + c, coefficients + c, feedback, mix);
}

// The cascades of every channel for one run, in the build for the processor at hand: with
// fused multiply-add each section costs half the latency.
SONVALE_CPU_CLONES
void runStages(int stageCount, int channelCount, float* const* channels, int64_t at, int64_t count,
               double* states, double* last, const double* coefficients, const double* feedback,
               const double* mix) noexcept {
    switch (stageCount) {
    case 4:
        runAll<4>(channelCount, channels, at, count, states, last, coefficients, feedback, mix);
        break;
    case 6:
        runAll<6>(channelCount, channels, at, count, states, last, coefficients, feedback, mix);
        break;
    case 8:
        runAll<8>(channelCount, channels, at, count, states, last, coefficients, feedback, mix);
        break;
    default:
        runAll<12>(channelCount, channels, at, count, states, last, coefficients, feedback, mix);
        break;
    }
}

} // namespace

void PhaserProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double step = std::max(bank->value(rate), 0.0) / sampleRate;
    auto choice = std::clamp<long>(std::lround(bank->value(stages)), 0, 3);
    int stageCount = stageChoices[choice];
    double depthTarget = std::clamp(bank->value(depth), 0.0, 100.0);
    double feedbackTarget = std::clamp(bank->value(feedback), -90.0, 90.0);
    double mixTarget = std::clamp(bank->value(mix), 0.0, 100.0);
    double highest = 0.45 * sampleRate;
    double fb[updateInterval], m[updateInterval];
    // Settled knobs (the usual case) leave the smoothers where they are: no stepping.
    const bool settled = depthPercent.value == depthTarget &&
                         feedbackPercent.value == feedbackTarget && mixPercent.value == mixTarget;
    double sweep = 3 * depthPercent.value / 100;
    if (settled) {
        std::fill(std::begin(fb), std::end(fb), feedbackPercent.value / 100);
        std::fill(std::begin(m), std::end(m), mixPercent.value / 100);
    }
    for (int64_t at = 0; at < frameCount;) {
        // A run of samples up to the next coefficient update; the smoothers step per sample.
        const bool update = countdown == 0;
        if (update) countdown = updateInterval;
        const int64_t count = std::min<int64_t>(countdown, frameCount - at);
        countdown -= int(count);
        for (int64_t i = 0; i < count; ++i) {
            if (!settled) {
                sweep = 3 * depthPercent.step(depthTarget) / 100;
                fb[i] = feedbackPercent.step(feedbackTarget) / 100;
                m[i] = mixPercent.step(mixTarget) / 100;
            }
            if (i == 0 && update) {
                // Channels a quarter cycle apart see the LFO's sin, cos, -sin and -cos.
                double lfo[4] = {std::sin(twoPi * phase), std::cos(twoPi * phase), 0, 0};
                lfo[2] = -lfo[0];
                lfo[3] = -lfo[1];
                for (int c = 0; c < channelCount; ++c) {
                    double f = std::min(800 * std::exp2(sweep * lfo[c & 3]), highest);
                    double t = std::tan(std::numbers::pi * f / sampleRate);
                    coefficients[size_t(c)] = (t - 1) / (t + 1);
                }
            }
            phase += step;
            if (phase >= 1) phase -= std::floor(phase);
        }
        runStages(stageCount, channelCount, channels, at, count, states.data(), last.data(),
                  coefficients.data(), fb, m);
        at += count;
    }
}

void PhaserProcessor::reset() noexcept {
    std::fill(states.begin(), states.end(), 0.0);
    std::fill(last.begin(), last.end(), 0.0);
    phase = 0;
    countdown = 0;
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    depthPercent = {std::clamp(bank->value(depth), 0.0, 100.0), k};
    feedbackPercent = {std::clamp(bank->value(feedback), -90.0, 90.0), k};
    mixPercent = {std::clamp(bank->value(mix), 0.0, 100.0), k};
}

} // namespace sonvale
