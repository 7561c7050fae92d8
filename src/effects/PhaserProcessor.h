#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// A cascade of 4 to 12 first-order all-pass stages whose corner sweeps up to three octaves
// either side of 800 Hz, with feedback around the cascade; channels a quarter cycle apart.
// The sweep updates the all-pass coefficient every 16 samples (a third of a millisecond at
// 48 kHz), far finer than the slowest audible step of a 5 Hz LFO.
// Real-time safe after construction: process() neither allocates nor locks.
class PhaserProcessor final : public EffectProcessor {
public:
    enum Parameter { rate = 0, depth = 1, stages = 2, feedback = 3, mix = 4, parameterCount };

    PhaserProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

    static constexpr int maxStages = 12;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    std::vector<double> states;       // maxStages per channel
    std::vector<double> last;         // the cascade's last output per channel, fed back
    std::vector<double> coefficients; // the all-pass coefficient per channel
    int countdown = 0;                // samples until the coefficients are next updated
    double phase = 0;
    Smoothed depthPercent, feedbackPercent, mixPercent;
};

} // namespace sonvale
