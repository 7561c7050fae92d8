#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EQBand.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// Soft (arctangent), hard (clip) or fuzz (lopsided exponential) waveshaping, then a Tone
// low-pass; only fuzz passes a DC blocker.
// Real-time safe after construction: process() neither allocates nor locks.
class DistortionProcessor final : public EffectProcessor {
public:
    enum Parameter { type = 0, drive = 1, tone = 2, mix = 3, output = 4, parameterCount };

    DistortionProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    Smoothed driveDB, mixPercent, outputDB;
    ToneFilter toneFilter;
    std::vector<BiquadState> filters;
    std::vector<DCBlocker> blockers;
};

} // namespace sonvale
