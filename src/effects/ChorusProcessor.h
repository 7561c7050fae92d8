#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// Three voices per channel read a delay line at delays swept by one sine LFO a third of a
// cycle apart; Width offsets each channel's LFO by up to a sixth of a cycle.
// Real-time safe after construction: process() neither allocates nor locks.
class ChorusProcessor final : public EffectProcessor {
public:
    enum Parameter { rate = 0, depth = 1, delay = 2, width = 3, mix = 4, parameterCount };

    ChorusProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    std::vector<DelayLine> lines;
    double phase = 0;
    // The LFO's sin and cos, turned by one step per sample and taken afresh from the phase
    // every resyncInterval samples (counted from reset, so block sizes don't matter).
    double lfoSin = 0, lfoCos = 1;
    int resyncCountdown = 0;
    static constexpr int resyncInterval = 4096;
    Smoothed depthSamples, delaySamples, widthAmount, mixAmount;
    // sin and cos of each channel's and voice's LFO offset (3 pairs per channel), for the
    // width they were computed for.
    std::vector<double> offsets;
    double offsetsWidth = -1;
};

} // namespace sonvale
