#include "effects/EqualizerProcessor.h"

#include "audio/Decibels.h"
#include "effects/EQBand.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
constexpr int outputSlot = 20;
int slot(int band, int field) { return 5 * band + field; } // 0 type, 1 Hz, 2 dB, 3 Q, 4 on
} // namespace

EqualizerProcessor::EqualizerProcessor(double sampleRate, int channelCount,
                                       std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , z1(size_t(bandCount * this->channelCount), 0.0)
    , z2(size_t(bandCount * this->channelCount), 0.0)
    ,
    // a 30 ms time constant, stepped once per 32 samples
    smoothing(1 - std::exp(-double(updateInterval) / (0.03 * sampleRate))) {
    start();
}

void EqualizerProcessor::start() noexcept {
    for (int b = 0; b < bandCount; ++b) {
        logFrequency[b] = std::log(std::max(bank->value(slot(b, 1)), 1.0));
        gain[b] = bank->value(slot(b, 2));
        logQ[b] = std::log(std::max(bank->value(slot(b, 3)), 0.01));
        amount[b] = bank->value(slot(b, 4)) >= 0.5 ? 1 : 0;
        amountStep[b] = 0;
        coefficients[b] = Biquad{};
    }
    output = 1;
    outputStep = 0;
    countdown = 0;
}

void EqualizerProcessor::update() noexcept {
    for (int b = 0; b < bandCount; ++b) {
        EQBandType type = eqBandType(bank->value(slot(b, 0)));
        double frequency = bank->value(slot(b, 1));
        double targetGain = bank->value(slot(b, 2));
        double q = bank->value(slot(b, 3));
        bool on = bank->value(slot(b, 4)) >= 0.5;

        logFrequency[b] += smoothing * (std::log(std::max(frequency, 1.0)) - logFrequency[b]);
        gain[b] += smoothing * (targetGain - gain[b]);
        logQ[b] += smoothing * (std::log(std::max(q, 0.01)) - logQ[b]);
        coefficients[b] =
            EQBand{type, std::exp(logFrequency[b]), gain[b], std::exp(logQ[b]), true}.biquad(
                sampleRate);

        double target = on ? 1 : 0;
        double next = amount[b] + smoothing * (target - amount[b]);
        if (std::fabs(target - next) < 1e-5) next = target;
        amountStep[b] = (next - amount[b]) / updateInterval;
    }
    double target = gainFromDecibels(bank->value(outputSlot));
    double next = output + smoothing * (target - output);
    if (std::fabs(target - next) < 1e-6) next = target;
    outputStep = (next - output) / updateInterval;
    countdown = updateInterval;
}

void EqualizerProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    int64_t done = 0;
    while (done < frameCount) {
        if (countdown == 0) update();
        // Within a run up to the next update the coefficients are fixed and the amounts ramp
        // linearly, so each channel can run through the whole run on its own.
        int64_t run = std::min<int64_t>(countdown, frameCount - done);
        for (int c = 0; c < channelCount; ++c) {
            float* samples = channels[c] + done;
            BiquadState state[bandCount];
            double mix[bandCount];
            for (int b = 0; b < bandCount; ++b) {
                state[b] = {z1[size_t(b * channelCount + c)], z2[size_t(b * channelCount + c)]};
                mix[b] = amount[b];
            }
            double gainNow = output;
            for (int64_t i = 0; i < run; ++i) {
                double x = samples[i];
                for (int b = 0; b < bandCount; ++b) {
                    mix[b] += amountStep[b];
                    double y = state[b].process(coefficients[b], x);
                    x += (y - x) * mix[b];
                }
                gainNow += outputStep;
                samples[i] = float(x * gainNow);
            }
            // Silence decays the memories into denormals, which are slow on most CPUs; flush
            // them on the update grid so that the result does not depend on block splits.
            if (run == countdown)
                for (auto& s : state) {
                    s.z1 = flushDenormal(s.z1, 1e-25);
                    s.z2 = flushDenormal(s.z2, 1e-25);
                }
            for (int b = 0; b < bandCount; ++b) {
                z1[size_t(b * channelCount + c)] = state[b].z1;
                z2[size_t(b * channelCount + c)] = state[b].z2;
            }
        }
        for (int64_t i = 0; i < run; ++i) {
            for (int b = 0; b < bandCount; ++b)
                amount[b] += amountStep[b];
            output += outputStep;
        }
        countdown -= int(run);
        done += run;
    }
}

// Besides clearing the filter memories, the glides start again from the bank's values,
// exactly as in a freshly built processor.
void EqualizerProcessor::reset() noexcept {
    start();
    std::fill(z1.begin(), z1.end(), 0.0);
    std::fill(z2.begin(), z2.end(), 0.0);
}

} // namespace sonvale
