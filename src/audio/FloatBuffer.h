#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sonvale {

// An owned, contiguous array of 32-bit floats for audio samples and level summaries.
// Large buffers are mapped directly from the kernel (page-aligned, returned to the system
// the moment they are freed, and able to grow in place), small ones come from the heap.
// Allocation failure throws AudioLoaderError::outOfMemory. Move-only.
class FloatBuffer {
public:
    FloatBuffer() = default;
    // Uninitialised storage for `count` floats (mapped pages read as zero).
    explicit FloatBuffer(int64_t count);
    // The same, but mapped pages are left to fault in where they are first written: for a
    // buffer that several threads fill in parts, each paying for its own pages.
    struct FaultOnWrite {};
    FloatBuffer(int64_t count, FaultOnWrite);
    ~FloatBuffer();
    FloatBuffer(FloatBuffer&& other) noexcept;
    FloatBuffer& operator=(FloatBuffer&& other) noexcept;
    FloatBuffer(const FloatBuffer&) = delete;
    FloatBuffer& operator=(const FloatBuffer&) = delete;

    // Changes the number of floats, keeping the first min(old, new) of them. Mapped
    // buffers grow and shrink without copying. Throws outOfMemory, leaving the buffer as it was.
    void resize(int64_t count);
    // Shortens to `count` floats (no more than size()) without failing: a mapping gives its
    // spare pages back when the system allows, heap storage keeps its capacity.
    void truncate(int64_t count) noexcept;

    float* data() { return pointer; }
    const float* data() const { return pointer; }
    int64_t size() const { return count; }
    float& operator[](int64_t i) { return pointer[i]; }
    float operator[](int64_t i) const { return pointer[i]; }
    std::span<float> span() { return {pointer, size_t(count)}; }
    std::span<const float> span() const { return {pointer, size_t(count)}; }
    // Bytes the buffer really holds from the system (a whole number of pages when mapped).
    size_t allocatedBytes() const { return capacityBytes; }

private:
    FloatBuffer(int64_t count, bool populate);
    void release() noexcept;
    float* pointer = nullptr;
    int64_t count = 0;
    size_t capacityBytes = 0;
    bool mapped = false;
};

} // namespace sonvale
