#include "support/AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool counting = false;
thread_local int64_t allocationCount = 0;
thread_local int64_t freeCount = 0;

void* allocate(std::size_t size) {
    if (counting) ++allocationCount;
    if (size == 0) size = 1;
    return std::malloc(size);
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) {
    if (counting) ++allocationCount;
    auto align = std::size_t(alignment);
    if (align < sizeof(void*)) align = sizeof(void*);
    std::size_t rounded = (size + align - 1) / align * align;
    return std::aligned_alloc(align, rounded == 0 ? align : rounded);
}

void release(void* pointer) noexcept {
    if (!pointer) return;
    if (counting) ++freeCount;
    std::free(pointer);
}

} // namespace

namespace sonvale::test {

AllocationCounter::Scope::Scope()
    : wasCounting(counting)
    , allocationsAtStart(allocationCount)
    , freesAtStart(freeCount) {
    counting = true;
}

AllocationCounter::Scope::~Scope() { counting = wasCounting; }

int64_t AllocationCounter::Scope::allocations() const {
    return allocationCount - allocationsAtStart;
}

int64_t AllocationCounter::Scope::frees() const { return freeCount - freesAtStart; }

} // namespace sonvale::test

// The replaced global allocation functions.

void* operator new(std::size_t size) {
    if (void* p = allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    if (void* p = allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    if (void* p = allocateAligned(size, alignment)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    if (void* p = allocateAligned(size, alignment)) return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, alignment);
}

void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { release(p); }
