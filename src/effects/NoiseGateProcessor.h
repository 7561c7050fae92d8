#pragma once

#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>

namespace sonvale {

// A noise gate with a peak-hold detector, 6 dB of hysteresis between its open and close
// thresholds, a hold time, and attack/release glides between unity and the range floor.
// It starts closed and silent, so an inserted gate fades in with its attack. Reports the
// block's lowest gain in dB (at most -120 dB) to the bank.
// Real-time safe after construction: process() neither allocates nor locks.
class NoiseGateProcessor final : public EffectProcessor {
public:
    enum Parameter { threshold = 0, range = 1, attack = 2, hold = 3, release = 4, parameterCount };

    NoiseGateProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    double detectorDecay; // 10 ms peak-hold decay per sample
    double level = 0;     // detector, linear
    bool isOpen = false;
    int64_t holdLeft = 0; // samples
    double gain = 0;      // applied, linear
};

} // namespace sonvale
