#pragma once

#include "effects/EffectProcessor.h"

#include <atomic>
#include <memory>

namespace sonvale {

// Where the playback engine and the timeline mixer run an effect processor on the audio
// thread. The interface thread swaps processors under the slot lock; the audio thread only
// tries that lock and lets a block through unprocessed while a swap holds it. A replaced
// processor is handed back to the caller, so it is never freed on the audio thread.
// The lock is one atomic flag: the audio side never sleeps in, or wakes anyone from, the
// kernel; the interface side yields until a running block is done.
class EffectInsert {
public:
    EffectInsert() = default;
    EffectInsert(const EffectInsert&) = delete;
    EffectInsert& operator=(const EffectInsert&) = delete;

    // Interface thread: installs `processor` (built for `channelCount` channels; null for
    // none) and returns the previous one for the caller to dispose of.
    std::unique_ptr<EffectProcessor> setProcessor(std::unique_ptr<EffectProcessor> processor,
                                                  int channelCount);
    bool hasProcessor() const;
    // Interface thread: the held processor starts again from silence, under the slot lock (a
    // block arriving meanwhile passes through).
    void resetProcessor();

    void setBypassed(bool flag) noexcept { bypassed.store(flag, std::memory_order_relaxed); }
    bool isBypassed() const noexcept { return bypassed.load(std::memory_order_relaxed); }

    // Audio thread: processes one stereo block in place (a mono block when `right` is null).
    void process(float* left, float* right, int64_t frameCount) noexcept;
    // Audio thread: processes a list of `bufferCount` channel buffers in place. A processor built
    // for another channel count than the list holds lets the block through untouched.
    void process(float* const* buffers, int bufferCount, int64_t frameCount) noexcept;

private:
    void lockSlot() const noexcept;
    void unlockSlot() const noexcept { busy.clear(std::memory_order_release); }

    mutable std::atomic_flag busy = ATOMIC_FLAG_INIT; // the slot lock
    std::unique_ptr<EffectProcessor> slot;            // guarded by busy
    int slotChannels = 0;                             // guarded by busy
    std::atomic<bool> bypassed{false};
};

} // namespace sonvale
