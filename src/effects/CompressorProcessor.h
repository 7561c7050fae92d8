#pragma once

#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>

namespace sonvale {

// Feed-forward compressor with a soft knee; all channels share one gain. Reads the bank once
// per block and reports the block's deepest gain change (dB, 0 or below) to the bank.
// Real-time safe after construction: process() neither allocates nor locks.
class CompressorProcessor final : public EffectProcessor {
public:
    enum Parameter {
        threshold = 0,
        ratio = 1,
        attack = 2,
        release = 3,
        knee = 4,
        makeup = 5,
        parameterCount
    };

    CompressorProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

    // The static curve: the output level for an input level, all in dB.
    static double staticCurve(double level, double threshold, double ratio, double knee);

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    double envelope = 0.0; // dB of gain change, 0 or below
};

} // namespace sonvale
