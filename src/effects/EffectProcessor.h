#pragma once

#include <cstdint>

namespace sonvale {

// The interface of every effect processor. A processor is built for a sample rate and a
// channel count and reads its parameters from a ParameterBank.
//
// process() and reset() belong to the one audio thread that owns the processor; neither
// allocates, frees, locks nor waits.
class EffectProcessor {
public:
    virtual ~EffectProcessor() = default;
    // Processes `frameCount` frames in place; `channels` points to one buffer per channel
    // the processor was built for.
    virtual void process(float* const* channels, int64_t frameCount) noexcept = 0;
    // Clears delay lines, filter memories, envelopes and phases: the next block starts
    // from silence as in a freshly built processor.
    virtual void reset() noexcept = 0;
};

} // namespace sonvale
