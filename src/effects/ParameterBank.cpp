#include "effects/ParameterBank.h"

#include <algorithm>

namespace sonvale {

ParameterBank::ParameterBank(const std::vector<EffectParameter>& parameters, bool tap)
    : readouts(std::make_unique<std::array<Readout, readoutCapacity>>()) {
    for (auto& parameter : parameters)
        set(parameter.index, parameter.defaultValue);
    if (tap) sampleTap = std::make_unique<SampleTap>();
}

void ParameterBank::report(float value, int64_t frames) noexcept {
    uint64_t count = reports.load(std::memory_order_relaxed);
    int64_t position = processed.load(std::memory_order_relaxed);
    auto& record = (*readouts)[size_t(count & (readoutCapacity - 1))];
    record.frame.store(position + frames, std::memory_order_relaxed);
    record.value.store(value, std::memory_order_relaxed);
    reports.store(count + 1, std::memory_order_seq_cst);
    processed.store(position + frames, std::memory_order_relaxed);
}

float ParameterBank::readout(int64_t heardBehind) const noexcept {
    uint64_t count = reports.load(std::memory_order_acquire);
    int64_t target = processed.load(std::memory_order_relaxed) - std::max<int64_t>(heardBehind, 0);
    uint64_t walk = std::min<uint64_t>(count, readoutCapacity);
    for (uint64_t k = 1; k <= walk; ++k) {
        auto& record = (*readouts)[size_t((count - k) & (readoutCapacity - 1))];
        if (record.frame.load(std::memory_order_relaxed) <= target)
            return record.value.load(std::memory_order_relaxed);
    }
    return 0;
}

} // namespace sonvale
