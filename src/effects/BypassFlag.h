#pragma once

#include <atomic>

namespace sonvale {

// One bypass bit shared by the interface thread (writer) and an audio thread (reader).
class BypassFlag {
public:
    explicit BypassFlag(bool value = false)
        : flag(value) {}
    BypassFlag(const BypassFlag&) = delete;
    BypassFlag& operator=(const BypassFlag&) = delete;

    void store(bool value) noexcept { flag.store(value, std::memory_order_relaxed); }
    bool value() const noexcept { return flag.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> flag;
};

} // namespace sonvale
