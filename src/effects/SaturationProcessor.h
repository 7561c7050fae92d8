#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EQBand.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// A biased tanh waveshaper normalised so full scale stays near full scale, followed by a DC
// blocker and, below 0.45 x the sample rate, a Tone low-pass.
// Real-time safe after construction: process() neither allocates nor locks.
class SaturationProcessor final : public EffectProcessor {
public:
    enum Parameter { drive = 0, warmth = 1, tone = 2, mix = 3, output = 4, parameterCount };

    SaturationProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    Smoothed driveDB, warmthPercent, mixPercent, outputDB;
    ToneFilter toneFilter;
    std::vector<BiquadState> filters;
    std::vector<DCBlocker> blockers;
};

} // namespace sonvale
