#pragma once

#include "engine/HostTime.h"

#include <atomic>
#include <cstdint>

namespace sonvale {

// The content frame that a buffer starts with and the output time it is heard at, published
// by the real-time thread and read together by any other: a sequence lock, so a reader never
// pairs one buffer's frame with the next one's time. Storing is wait-free and never
// allocates; loading retries while a store is under way. One writer at a time.
class PlayheadStamp {
public:
    struct Value {
        int64_t frame = 0;
        HostTime time = 0; // 0: not heard yet
    };

    void store(int64_t frame, HostTime time) noexcept {
        const uint64_t version = sequence.load(std::memory_order_relaxed);
        sequence.store(version + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        frameSlot.store(frame, std::memory_order_relaxed);
        timeSlot.store(time, std::memory_order_relaxed);
        sequence.store(version + 2, std::memory_order_release);
    }

    Value load() const noexcept {
        for (;;) {
            const uint64_t before = sequence.load(std::memory_order_acquire);
            const Value value{frameSlot.load(std::memory_order_relaxed),
                              timeSlot.load(std::memory_order_relaxed)};
            std::atomic_thread_fence(std::memory_order_acquire);
            if ((before & 1) == 0 && sequence.load(std::memory_order_relaxed) == before)
                return value;
        }
    }

private:
    std::atomic<uint64_t> sequence{0}; // odd while a store is under way
    std::atomic<int64_t> frameSlot{0};
    std::atomic<HostTime> timeSlot{0};
};

} // namespace sonvale
