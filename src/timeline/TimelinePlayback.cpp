#include "timeline/TimelinePlayback.h"

#include <algorithm>
#include <cstring>
#include <thread>

namespace sonvale {

TimelinePlayback::TimelinePlayback(TimelineMixer::SnapshotPtr snapshot) {
    setSnapshot(std::move(snapshot));
}

void TimelinePlayback::lockSlot() const noexcept {
    while (busy.test_and_set(std::memory_order_acquire))
        std::this_thread::yield();
}

void TimelinePlayback::setSnapshot(TimelineMixer::SnapshotPtr snapshot) {
    if (snapshot) {
        rate.store(snapshot->sampleRate, std::memory_order_relaxed);
        frames.store(snapshot->frameCount, std::memory_order_relaxed);
    }
    lockSlot();
    std::swap(current, snapshot);
    unlockSlot();
    // The snapshot swapped out goes here, on the main thread.
}

TimelineMixer::SnapshotPtr TimelinePlayback::snapshot() const {
    lockSlot();
    auto held = current;
    unlockSlot();
    return held;
}

void TimelinePlayback::holdSlotForTesting(bool held) const noexcept {
    if (held)
        lockSlot();
    else
        unlockSlot();
}

void TimelinePlayback::read(int64_t start, int64_t count, float* const* buffers, int bufferCount,
                            int64_t offset) const noexcept {
    if (count <= 0) return;
    auto silence = [&](int from) {
        for (int c = from; c < bufferCount; ++c)
            std::memset(buffers[c] + offset, 0, size_t(count) * sizeof(float));
    };
    // A new snapshot being swapped in (or a caller with too few buffers) gets silence.
    if (bufferCount < 2 || busy.test_and_set(std::memory_order_acquire)) {
        silence(0);
        return;
    }
    if (!current) {
        silence(0);
    } else {
        for (int64_t done = 0; done < count; done += blockFrames) {
            const int64_t n = std::min(blockFrames, count - done);
            TimelineMixer::renderBlock(*current, start + done, start + done + n,
                                       buffers[0] + offset + done, buffers[1] + offset + done,
                                       scratch);
        }
        silence(2);
    }
    unlockSlot();
}

} // namespace sonvale
