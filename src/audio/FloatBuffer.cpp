#include "audio/FloatBuffer.h"

#include "audio/AudioErrors.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <utility>

namespace sonvale {

namespace {
// Below this, the heap is cheaper than a mapping of its own.
constexpr size_t mapThreshold = 256 * 1024;
constexpr size_t pageSize = 4096;

size_t roundUpToPages(size_t bytes) { return (bytes + pageSize - 1) / pageSize * pageSize; }

bool bytesFor(int64_t count, size_t& bytes) {
    if (count < 0 || uint64_t(count) > (SIZE_MAX / sizeof(float)) / 2) return false;
    bytes = size_t(count) * sizeof(float);
    return true;
}

void* mapPages(size_t bytes, bool populate) {
    void* pages =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return nullptr;
    // Huge pages and faulting every page in at once, rather than one trap per page while the
    // buffer is filled, make filling a new buffer about twice as fast. Both are hints: older
    // kernels refuse them and the buffer simply faults in as it is written.
    ::madvise(pages, bytes, MADV_HUGEPAGE);
    // In pieces: the kernel holds the process's memory map while it populates, and any other
    // thread that maps memory meanwhile (the window painting) would wait for all of it.
    constexpr size_t populateStep = size_t(32) << 20;
    if (populate)
        for (size_t at = 0; at < bytes; at += populateStep)
            ::madvise(static_cast<char*>(pages) + at, std::min(populateStep, bytes - at),
                      MADV_POPULATE_WRITE);
    return pages;
}
} // namespace

FloatBuffer::FloatBuffer(int64_t n)
    : FloatBuffer(n, true) {}

FloatBuffer::FloatBuffer(int64_t n, FaultOnWrite)
    : FloatBuffer(n, false) {}

FloatBuffer::FloatBuffer(int64_t n, bool populate) {
    size_t bytes;
    if (!bytesFor(n, bytes)) throw AudioLoaderError::outOfMemory();
    if (bytes == 0) return;
    if (bytes >= mapThreshold) {
        size_t mappedBytes = roundUpToPages(bytes);
        pointer = static_cast<float*>(mapPages(mappedBytes, populate));
        if (!pointer) throw AudioLoaderError::outOfMemory();
        capacityBytes = mappedBytes;
        mapped = true;
    } else {
        pointer = static_cast<float*>(std::malloc(bytes));
        if (!pointer) throw AudioLoaderError::outOfMemory();
        capacityBytes = bytes;
    }
    count = n;
}

FloatBuffer::~FloatBuffer() { release(); }

FloatBuffer::FloatBuffer(FloatBuffer&& other) noexcept
    : pointer(std::exchange(other.pointer, nullptr))
    , count(std::exchange(other.count, 0))
    , capacityBytes(std::exchange(other.capacityBytes, 0))
    , mapped(std::exchange(other.mapped, false)) {}

FloatBuffer& FloatBuffer::operator=(FloatBuffer&& other) noexcept {
    if (this != &other) {
        release();
        pointer = std::exchange(other.pointer, nullptr);
        count = std::exchange(other.count, 0);
        capacityBytes = std::exchange(other.capacityBytes, 0);
        mapped = std::exchange(other.mapped, false);
    }
    return *this;
}

void FloatBuffer::release() noexcept {
    if (!pointer) return;
    if (mapped)
        ::munmap(pointer, capacityBytes);
    else
        std::free(pointer);
    pointer = nullptr;
    count = 0;
    capacityBytes = 0;
    mapped = false;
}

void FloatBuffer::resize(int64_t n) {
    size_t bytes;
    if (!bytesFor(n, bytes)) throw AudioLoaderError::outOfMemory();
    if (n == count) return;
    if (mapped && bytes >= mapThreshold) {
        size_t mappedBytes = roundUpToPages(bytes);
        if (mappedBytes != capacityBytes) {
            void* moved = ::mremap(pointer, capacityBytes, mappedBytes, MREMAP_MAYMOVE);
            if (moved == MAP_FAILED) throw AudioLoaderError::outOfMemory();
            pointer = static_cast<float*>(moved);
            capacityBytes = mappedBytes;
        }
        count = n;
        return;
    }
    FloatBuffer grown(n);
    if (count > 0 && n > 0) std::memcpy(grown.data(), pointer, size_t(std::min(count, n)) * 4);
    *this = std::move(grown);
}

void FloatBuffer::truncate(int64_t n) noexcept {
    n = std::clamp<int64_t>(n, 0, count);
    if (n == count) return;
    if (mapped) {
        const size_t mappedBytes = roundUpToPages(size_t(n) * sizeof(float));
        if (mappedBytes > 0 && mappedBytes < capacityBytes &&
            ::mremap(pointer, capacityBytes, mappedBytes, 0) != MAP_FAILED)
            capacityBytes = mappedBytes;
    }
    count = n;
}

} // namespace sonvale
