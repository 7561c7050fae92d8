#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>

namespace sonvale {

// The newest mono samples of an effect's input, for the live spectrum display. Single
// writer (the audio thread, which fills samples and then publishes `written`), any number
// of readers that look behind the published count. Allocated once; never reallocated.
class SampleTap {
public:
    static constexpr int64_t capacity = 65536; // a power of two: positions are masks

    SampleTap() = default;
    SampleTap(const SampleTap&) = delete;
    SampleTap& operator=(const SampleTap&) = delete;

    // Writer side (audio thread). Samples are atomics so a reader racing the writer sees
    // an old or a new sample, never a torn one.
    void store(int64_t position, float sample) noexcept {
        buffer[size_t(position & (capacity - 1))].store(sample, std::memory_order_relaxed);
    }
    void publish(uint64_t count) noexcept { written.store(count, std::memory_order_release); }
    uint64_t writtenCount() const noexcept { return written.load(std::memory_order_acquire); }
    float sample(int64_t position) const noexcept {
        return buffer[size_t(position & (capacity - 1))].load(std::memory_order_relaxed);
    }

    void setSampleRate(double rate) noexcept {
        rateBits.store(std::bit_cast<uint64_t>(rate), std::memory_order_relaxed);
    }
    double sampleRate() const noexcept {
        return std::bit_cast<double>(rateBits.load(std::memory_order_relaxed));
    }

private:
    std::array<std::atomic<float>, capacity> buffer{}; // zeroed
    std::atomic<uint64_t> written{0};
    std::atomic<uint64_t> rateBits{std::bit_cast<uint64_t>(48000.0)};
};

} // namespace sonvale
