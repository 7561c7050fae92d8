#pragma once

#include "effects/Biquad.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>

namespace sonvale {

// A peak limiter without look-ahead: the gain drops at once to what keeps the loudest channel
// under the ceiling and recovers with the release; a final clip at the ceiling catches the
// rest, so no output sample ever exceeds it. Gain and ceiling glide with 30 ms smoothers.
// Reports the block's deepest reduction in dB (at most -120 dB) to the bank.
// Real-time safe after construction: process() neither allocates nor locks.
class LimiterProcessor final : public EffectProcessor {
public:
    enum Parameter { gain = 0, ceiling = 1, release = 2, parameterCount };

    LimiterProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    Smoothed gainDB, ceilingDB;
    double envelope = 1.0; // linear gain factor, 1 = no reduction
};

} // namespace sonvale
