#pragma once

#include "engine/PlaybackContent.h"
#include "timeline/TimelineMixer.h"

#include <atomic>
#include <memory>

namespace sonvale {

// The timeline as playback content: the engine's render source reads the mix from here, two
// channels at the timeline's rate. The mix comes from the snapshot in the `current` slot; the
// main thread swaps a new one in whenever the arrangement changes, so edits are heard at once.
//
// The slot is guarded by one atomic flag. The output thread only tries it, once per read, and
// renders silence for that read when a swap holds it: an edit may cost one silent buffer, never
// a wait. The main thread yields until a running read is done; a snapshot swapped out is
// released there, never on the output thread.
class TimelinePlayback final : public PlaybackContent {
public:
    // The largest block rendered at once; longer reads are rendered in several.
    static constexpr int64_t blockFrames = 16384;

    explicit TimelinePlayback(TimelineMixer::SnapshotPtr snapshot);
    static std::shared_ptr<TimelinePlayback> make(TimelineMixer::SnapshotPtr snapshot) {
        return std::make_shared<TimelinePlayback>(std::move(snapshot));
    }

    // Main thread.
    void setSnapshot(TimelineMixer::SnapshotPtr snapshot);
    TimelineMixer::SnapshotPtr snapshot() const;

    double sampleRate() const noexcept override { return rate.load(std::memory_order_relaxed); }
    int64_t frameCount() const noexcept override { return frames.load(std::memory_order_relaxed); }
    int channelCount() const noexcept override { return 2; }
    void read(int64_t start, int64_t count, float* const* buffers, int bufferCount,
              int64_t offset) const noexcept override;

    // For tests: holds the slot as a swap does, so that reads render silence meanwhile.
    void holdSlotForTesting(bool held) const noexcept;

private:
    void lockSlot() const noexcept;
    void unlockSlot() const noexcept { busy.clear(std::memory_order_release); }

    mutable std::atomic_flag busy = ATOMIC_FLAG_INIT;
    TimelineMixer::SnapshotPtr current;                  // guarded by busy
    mutable TimelineMixer::Scratch scratch{blockFrames}; // the output thread's, under busy
    std::atomic<double> rate{48000};
    std::atomic<int64_t> frames{0};
};

} // namespace sonvale
