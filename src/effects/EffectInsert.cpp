#include "effects/EffectInsert.h"

namespace sonvale {

std::unique_ptr<EffectProcessor> EffectInsert::setProcessor(
    std::unique_ptr<EffectProcessor> processor, int channelCount) {
    std::lock_guard guard(lock);
    std::swap(slot, processor);
    slotChannels = slot ? channelCount : 0;
    return processor;
}

bool EffectInsert::hasProcessor() const {
    std::lock_guard guard(lock);
    return slot != nullptr;
}

void EffectInsert::process(float* left, float* right, int64_t frameCount) noexcept {
    float* buffers[2] = {left, right};
    process(buffers, right ? 2 : 1, frameCount);
}

void EffectInsert::process(float* const* buffers, int bufferCount, int64_t frameCount) noexcept {
    if (isBypassed()) return;
    std::unique_lock guard(lock, std::try_to_lock);
    if (!guard.owns_lock()) return; // a swap is under way: this block passes through
    if (slot && slotChannels <= bufferCount) slot->process(buffers, frameCount);
}

} // namespace sonvale
