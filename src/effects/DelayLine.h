#pragma once

#include "effects/Dsp.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace sonvale {

// The sample `delay` samples (at most capacity - 2) behind `write` in a circular buffer of
// `capacity` samples, interpolated linearly between its two neighbours.
inline float readCircular(const float* buffer, int64_t capacity, int64_t write,
                          double delay) noexcept {
    double position = double(write) - delay;
    if (position < 0) position += double(capacity);
    auto i = int64_t(position);
    float fraction = float(position - double(i));
    if (i >= capacity) i -= capacity;
    int64_t next = i + 1 == capacity ? 0 : i + 1;
    float a = buffer[i];
    return a + (buffer[next] - a) * fraction;
}

// A circular buffer of float samples read at fractional delays with linear interpolation.
// Allocated once by init(); push() and read() never allocate.
class DelayLine {
public:
    // Room for delays up to `maxDelay` samples (plus a few guard samples), zeroed.
    void init(int64_t maxDelay) {
        capacity = std::max<int64_t>(maxDelay, 1) + 4;
        buffer.assign(size_t(capacity), 0.0f);
        write = 0;
    }
    void clear() noexcept {
        std::fill(buffer.begin(), buffer.end(), 0.0f);
        write = 0;
    }
    int64_t size() const noexcept { return capacity; }
    // The largest delay read() honours.
    double maxDelay() const noexcept { return double(capacity - 3); }

    // The sample `delay` samples behind the next write position.
    float read(double delay) const noexcept {
        return readCircular(buffer.data(), capacity, write, std::min(delay, maxDelay()));
    }
    void push(float sample) noexcept {
        buffer[size_t(write)] = sample;
        if (++write == capacity) write = 0;
    }

private:
    std::vector<float> buffer;
    int64_t capacity = 0;
    int64_t write = 0;
};

} // namespace sonvale
