#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// A short swept delay with feedback mixed with the dry signal; the channels' LFOs run a
// quarter cycle apart. Negative feedback inverts the fed-back signal.
// Real-time safe after construction: process() neither allocates nor locks.
class FlangerProcessor final : public EffectProcessor {
public:
    enum Parameter { rate = 0, depth = 1, delay = 2, feedback = 3, mix = 4, parameterCount };

    FlangerProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    std::vector<DelayLine> lines;
    double phase = 0;
    Smoothed depthAmount, delaySamples, feedbackAmount, mixAmount;
};

} // namespace sonvale
