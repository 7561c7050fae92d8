#pragma once

#include "audio/AudioData.h"
#include "effects/EffectProcessor.h"

#include <atomic>
#include <cstdint>
#include <functional>

namespace sonvale {

// Writes an effect chain into audio offline, as "Apply to Selection" does. Meant for a
// background thread; the processor must be fresh (built from snapshots) and is used by this
// call alone.
struct EffectRenderer {
    static constexpr int64_t blockFrames = 4096;
    using Progress = std::function<void(double)>;

    // Processes `range` of `audio` (clamped to it) followed by `tailFrames` frames of silence,
    // in blocks of at most 4,096 frames, and returns the whole result (range length + tail).
    static AudioClip render(const AudioData& audio, FrameRange range, int64_t tailFrames,
                            EffectProcessor& processor, const Progress& progress = {});
    // Tail seconds as a whole number of frames, truncated towards zero (never negative).
    static int64_t tailFrames(double tailSeconds, double sampleRate);
};

} // namespace sonvale
