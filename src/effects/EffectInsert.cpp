#include "effects/EffectInsert.h"

#include <thread>

namespace sonvale {

void EffectInsert::lockSlot() const noexcept {
    while (busy.test_and_set(std::memory_order_acquire))
        std::this_thread::yield();
}

std::unique_ptr<EffectProcessor>
EffectInsert::setProcessor(std::unique_ptr<EffectProcessor> processor, int channelCount) {
    lockSlot();
    std::swap(slot, processor);
    slotChannels = slot ? channelCount : 0;
    unlockSlot();
    return processor; // the previous one, freed by the caller outside the lock
}

bool EffectInsert::hasProcessor() const {
    lockSlot();
    bool has = slot != nullptr;
    unlockSlot();
    return has;
}

void EffectInsert::resetProcessor() {
    lockSlot();
    if (slot) slot->reset();
    unlockSlot();
}

void EffectInsert::process(float* left, float* right, int64_t frameCount) noexcept {
    float* buffers[2] = {left, right};
    process(buffers, right ? 2 : 1, frameCount);
}

void EffectInsert::process(float* const* buffers, int bufferCount, int64_t frameCount) noexcept {
    if (isBypassed()) return;
    if (busy.test_and_set(std::memory_order_acquire)) return; // a swap: pass this block through
    if (slot && slotChannels == bufferCount) slot->process(buffers, frameCount);
    unlockSlot();
}

} // namespace sonvale
