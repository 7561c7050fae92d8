#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// Two taps slide through a delay line at the speed that gives the pitch ratio, half a window
// apart and crossfaded with sin^2 gains so each fades out where its delay jumps.
// Real-time safe after construction: process() neither allocates nor locks.
class PitchShifterProcessor final : public EffectProcessor {
public:
    enum Parameter { pitch = 0, fine = 1, window = 2, mix = 3, parameterCount };

    PitchShifterProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    std::vector<DelayLine> lines;
    double phase = 0;
    Smoothed windowSamples, mixPercent;
};

} // namespace sonvale
