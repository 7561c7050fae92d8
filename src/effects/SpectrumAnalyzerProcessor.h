#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// Leaves the audio untouched and writes the channels' average into the bank's SampleTap for
// the live spectrum display.
// Real-time safe after construction: process() neither allocates nor locks.
class SpectrumAnalyzerProcessor final : public EffectProcessor {
public:
    enum Parameter {
        style = 0,
        bands = 1,
        release = 2,
        floor = 3,
        tilt = 4,
        peaks = 5,
        parameterCount
    };

    SpectrumAnalyzerProcessor(double sampleRate, int channelCount,
                              std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    SampleTap* tap;
    uint64_t written = 0;
};

} // namespace sonvale
