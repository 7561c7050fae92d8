#include "engine/LevelMeters.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

std::optional<int> LevelMeters::Slot::index() const noexcept {
    switch (kind) {
    case Kind::lane:
        if (position >= 0 && position < laneSlots) return position;
        return std::nullopt;
    case Kind::bus:
        if (position >= 0 && position < busSlots) return laneSlots + position;
        return std::nullopt;
    case Kind::master: return laneSlots + busSlots;
    }
    return std::nullopt;
}

LevelMeters::LevelMeters()
    : ring(new Entry[size_t(slotCount * ringSize)]) {}

namespace {

float largestMagnitude(const float* samples, int64_t count) noexcept {
    if (!samples) return 0;
    float largest = 0;
    for (int64_t i = 0; i < count; ++i)
        largest = std::max(largest, std::fabs(samples[i]));
    return largest;
}

} // namespace

void LevelMeters::record(Slot slot, const float* left, const float* right, int64_t count) noexcept {
    auto index = slot.index();
    if (!index || count < 1) return;
    float leftPeak = largestMagnitude(left, count);
    float rightPeak = largestMagnitude(right, count);
    if (!(leftPeak > 0) && !(rightPeak > 0)) return; // silence leaves no entry

    int64_t stamp = mixed.load(std::memory_order_relaxed) + count;
    Counter& counter = written[size_t(*index)];
    int64_t n = counter.value.load(std::memory_order_relaxed);
    Entry& entry = ring[size_t(*index * ringSize + (n & (ringSize - 1)))];
    entry.stamp.store(stamp, std::memory_order_relaxed);
    entry.right.store(rightPeak, std::memory_order_relaxed);
    entry.left.store(leftPeak, std::memory_order_relaxed);
    counter.value.store(n + 1); // publishes the entry
}

void LevelMeters::advanceMixed(int64_t frames) noexcept {
    int64_t current = mixed.load(std::memory_order_relaxed);
    while (!mixed.compare_exchange_weak(current, current + frames)) {
    }
}

LevelMeters::Peaks LevelMeters::walk(int index, int64_t& from, int64_t heardBy) const {
    const int64_t end = written[size_t(index)].value.load(std::memory_order_acquire);
    int64_t at = std::max(end - ringSize, from);
    Peaks peaks;
    for (; at < end; ++at) {
        const Entry& entry = ring[size_t(index * ringSize + (at & (ringSize - 1)))];
        if (entry.stamp.load(std::memory_order_relaxed) > heardBy) break;
        peaks.left = std::max(peaks.left, entry.left.load(std::memory_order_relaxed));
        peaks.right = std::max(peaks.right, entry.right.load(std::memory_order_relaxed));
    }
    from = at;
    return peaks;
}

LevelMeters::Peaks LevelMeters::take(Slot slot, int64_t heardBy) {
    auto index = slot.index();
    if (!index) return {};
    Counter& counter = taken[size_t(*index)];
    int64_t from = counter.value.load(std::memory_order_relaxed);
    Peaks peaks = walk(*index, from, heardBy);
    counter.value.store(from, std::memory_order_relaxed);
    return peaks;
}

LevelMeters::Peaks LevelMeters::collect(Slot slot, Reader& reader, int64_t heardBy) const {
    auto index = slot.index();
    if (!index) return {};
    if (reader.clears != clears) {
        reader.clears = clears;
        reader.next = written[size_t(*index)].value.load(std::memory_order_acquire);
    }
    return walk(*index, reader.next, heardBy);
}

void LevelMeters::clear() {
    ++clears;
    mixed.store(0);
    for (int i = 0; i < slotCount; ++i)
        taken[size_t(i)].value.store(written[size_t(i)].value.load(std::memory_order_acquire),
                                     std::memory_order_relaxed);
}

int64_t LevelMeters::writtenCount(Slot slot) const {
    auto index = slot.index();
    return index ? written[size_t(*index)].value.load(std::memory_order_acquire) : 0;
}

} // namespace sonvale
