#pragma once

#include "engine/PlayheadStamp.h"

#include "audio/AudioData.h"
#include "effects/EffectInsert.h"
#include "engine/HostTime.h"
#include "engine/PlaybackContent.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace sonvale {

// Pulls one piece of content into the output's buffers on the real-time thread: play range,
// looping, seeks, the live effect insert and the live gain, ramped over one buffer.
//
// The effect runs on the content's own channels, as Apply runs it, in a scratch block made for
// them; only then are they laid out on the output: output channel c plays the content's channel
// min(c, channels - 1), so mono is heard on both sides and a file with more channels than the
// output plays its first ones.
//
// The main thread starts a play with start() and moves the position only through seek(); the
// real-time thread calls render(), which neither allocates, frees, locks (the insert is only
// tried) nor waits, and clears `playing` itself when the content runs out.
class RenderSource {
public:
    RenderSource(PlaybackContentPtr content, std::shared_ptr<GainBox> gain,
                 std::shared_ptr<EffectInsert> effect);
    RenderSource(const RenderSource&) = delete;
    RenderSource& operator=(const RenderSource&) = delete;

    // Main thread: plays `range` from frame `at`, wrapping to the range's start at its end when
    // `loop` is set. The final sequentially consistent store of `playing` publishes the rest.
    void start(FrameRange range, int64_t at, bool loop);
    // Main thread: jumps to `frame` at the next buffer boundary.
    void seek(int64_t frame) noexcept { seekRequest.store(frame, std::memory_order_relaxed); }
    // Main thread: stops rendering; the next buffer is silent.
    void stop() noexcept { playing.store(false); }

    // Real-time thread: renders `frameCount` frames into `bufferCount` channel buffers and
    // returns whether the source ran out in this buffer. `hostTime` (0 when the platform gives
    // none) is the output time stamp of this buffer.
    bool render(int64_t frameCount, float* const* buffers, int bufferCount,
                HostTime hostTime) noexcept;

    const PlaybackContentPtr content;
    const std::shared_ptr<GainBox> gain;
    const std::shared_ptr<EffectInsert> effect;
    // Largest stretch rendered through the scratch block at a time.
    static constexpr int64_t blockFrames = 2048;

    std::atomic<int64_t> position{0};
    std::atomic<int64_t> rangeStart{0};
    std::atomic<int64_t> rangeEnd{0};
    std::atomic<bool> looping{false};
    std::atomic<bool> playing{false};
    std::atomic<int64_t> seekRequest{-1};
    // The frame the last buffer began with and when it is heard.
    PlayheadStamp rendered;

    // Real-time thread only: the gain reached at the end of the last buffer.
    float appliedGain;
    // Real-time thread only: the content frame the last render began at (after any seek).
    int64_t blockStart = 0;

private:
    std::vector<float> scratch; // the content's channels x blockFrames
    std::vector<float*> scratchChannels;
};

using RenderSourcePtr = std::shared_ptr<RenderSource>;

} // namespace sonvale
