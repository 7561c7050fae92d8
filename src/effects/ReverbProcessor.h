#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// A room reverb of eight damped feedback combs and four all-passes per channel (the
// Freeverb tunings, each channel spread by 23 samples), fed from a smoothed pre-delay, with a
// stereo width matrix on the wet signals.
// Real-time safe after construction: process() neither allocates nor locks.
class ReverbProcessor final : public EffectProcessor {
public:
    enum Parameter { size = 0, damping = 1, preDelay = 2, width = 3, mix = 4, parameterCount };

    ReverbProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    struct Comb {
        std::vector<float> buffer;
        int64_t index = 0;
        float filtered = 0;
    };
    struct Allpass {
        std::vector<float> buffer;
        int64_t index = 0;
    };
    DelayLine preDelayLine;
    std::vector<Comb> combs;        // 8 per channel
    std::vector<Allpass> allpasses; // 4 per channel
    std::vector<float> wet;         // per channel, for the width matrix
    Smoothed mixAmount, widthAmount, delaySamples;
};

} // namespace sonvale
