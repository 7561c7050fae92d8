#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

namespace sonvale {

// Carries peak levels from the real-time mix to the meters on the main thread, lock-free.
// Each of the 81 slots (64 lanes, 16 buses, the master) has a ring of 512 entries; an entry is
// the mixed-frame position at which its block ends and the block's left and right peaks.
//
// record() and advanceMixed() belong to the one mixing thread and neither allocate, lock nor
// wait; take(), collect() and clear() belong to the main thread. A reader more than 512
// entries behind loses the oldest ones.
class LevelMeters {
public:
    static constexpr int slotCount = 81;
    static constexpr int laneSlots = 64;
    static constexpr int busSlots = 16;
    static constexpr int64_t ringSize = 512; // a power of two: positions are masks

    // Which meter a block belongs to. Lanes from 64 and buses from 16 on are not metered.
    struct Slot {
        enum class Kind { lane, bus, master };
        Kind kind = Kind::master;
        int position = 0;

        static Slot lane(int position) { return {Kind::lane, position}; }
        static Slot bus(int position) { return {Kind::bus, position}; }
        static Slot master() { return {Kind::master, 0}; }
        // The slot's index in the rings, none for an unmetered lane or bus.
        std::optional<int> index() const noexcept;
    };

    struct Peaks {
        float left = 0;
        float right = 0;
        friend bool operator==(const Peaks&, const Peaks&) = default;
    };

    // A view's own reading position, for slots that several views read (the master).
    struct Reader {
        int64_t next = 0;
        int64_t clears = -1; // the meters' clear count it was made under; -1: never read
    };

    struct Counter {
        std::atomic<int64_t> value{0};
    };

    LevelMeters();
    LevelMeters(const LevelMeters&) = delete;
    LevelMeters& operator=(const LevelMeters&) = delete;

    // Mixing thread: the peaks of one block of `count` frames of a slot. Silence writes nothing.
    void record(Slot slot, const float* left, const float* right, int64_t count) noexcept;
    // Mixing thread: advances the mixed-frame position once all slots of a block are recorded.
    void advanceMixed(int64_t frames) noexcept;
    int64_t mixedFrames() const noexcept { return mixed.load(std::memory_order_acquire); }

    // Main thread: the largest peaks of the slot's entries heard by frame `heardBy`, consumed.
    Peaks take(Slot slot, int64_t heardBy);
    // Main thread: the same through `reader`, leaving the entries for other readers.
    Peaks collect(Slot slot, Reader& reader, int64_t heardBy) const;
    // Main thread, when playback starts: discards pending entries and restarts the mix count.
    void clear();
    int64_t clearCount() const { return clears; }

    int64_t writtenCount(Slot slot) const;

private:
    struct Entry { // 16 bytes: stamp, right peak, left peak
        std::atomic<int64_t> stamp{0};
        std::atomic<float> right{0};
        std::atomic<float> left{0};
    };
    static_assert(sizeof(Entry) == 16);

    Peaks walk(int index, int64_t& from, int64_t heardBy) const;

    std::unique_ptr<Entry[]> ring; // slotCount * ringSize entries, zeroed at creation
    std::array<Counter, slotCount> written;
    std::array<Counter, slotCount> taken;
    std::atomic<int64_t> mixed{0};
    int64_t clears = 0;
};

} // namespace sonvale
