#pragma once

#include "effects/EffectParameter.h"
#include "effects/SampleTap.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <vector>

namespace sonvale {

// The lock-free path between an effect's knobs (the interface thread writes) and its
// processor (one audio thread reads), and back from the processor to a readout.
//
// Slots are single 32-bit atomic words holding a float's bits: a reader sees the old or the
// new value of each parameter, never a torn one. The readout ring is single writer (audio
// thread, report()) and single reader (interface, readout()).
class ParameterBank {
public:
    static constexpr int slotCount = 24;
    static constexpr int64_t readoutCapacity = 512; // a power of two: positions are masks

    struct Slot {
        std::atomic<uint32_t> bits{0};
    };
    // One reported value and the frame position (end of its block) it belongs to.
    struct Readout {
        std::atomic<int64_t> frame{0};
        std::atomic<float> value{0};
    };

    // 24 slots holding the parameters' defaults (indices of 24 or more are ignored), a zeroed
    // readout ring and, when `tap` is true, a SampleTap.
    explicit ParameterBank(const std::vector<EffectParameter>& parameters, bool tap = false);
    ParameterBank(const ParameterBank&) = delete;
    ParameterBank& operator=(const ParameterBank&) = delete;

    // Interface thread: stores a value as a 32-bit float. Out-of-range indices are ignored.
    void set(int index, double value) noexcept {
        if (index >= 0 && index < slotCount)
            slots[size_t(index)].bits.store(std::bit_cast<uint32_t>(float(value)),
                                            std::memory_order_relaxed);
    }
    // Any thread: the slot's value; 0 for an index out of range.
    double value(int index) const noexcept {
        if (index < 0 || index >= slotCount) return 0;
        return std::bit_cast<float>(slots[size_t(index)].bits.load(std::memory_order_relaxed));
    }

    // Audio thread, once per processed block: records `value` for the block's end position,
    // publishes it, then advances the processed frame count by `frames`.
    void report(float value, int64_t frames) noexcept;
    // Interface thread: the value reported for the audio `heardBehind` frames behind the
    // processing position (the output latency); 0 before any report covers it.
    float readout(int64_t heardBehind) const noexcept;

    uint64_t reportCount() const noexcept { return reports.load(std::memory_order_acquire); }
    int64_t processedFrames() const noexcept { return processed.load(std::memory_order_relaxed); }

    // The spectrum analyzer's tap; null for a bank created without one.
    SampleTap* tap() const noexcept { return sampleTap.get(); }

private:
    std::array<Slot, slotCount> slots;
    std::unique_ptr<std::array<Readout, readoutCapacity>> readouts;
    std::atomic<uint64_t> reports{0};
    std::atomic<int64_t> processed{0};
    std::unique_ptr<SampleTap> sampleTap;
};

using ParameterBankPtr = std::shared_ptr<ParameterBank>;

} // namespace sonvale
