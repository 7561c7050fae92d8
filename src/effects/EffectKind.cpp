#include "effects/EffectKind.h"

#include "effects/EffectRegistry.h"

#include <cmath>

namespace sonvale {

const std::vector<EffectKind>& allEffectKinds() {
    static const auto kinds = [] {
        std::vector<EffectKind> list;
        for (auto& entry : effectRegistry())
            list.push_back(entry.kind);
        return list;
    }();
    return kinds;
}

std::string_view rawValue(EffectKind kind) { return registration(kind).key; }

std::optional<EffectKind> effectKindFromRawValue(std::string_view raw) {
    for (auto& entry : effectRegistry())
        if (entry.key == raw) return entry.kind;
    return std::nullopt;
}

std::string_view title(EffectKind kind) { return registration(kind).title; }
EffectCategory category(EffectKind kind) { return registration(kind).category; }
std::string_view summary(EffectKind kind) { return registration(kind).summary; }
bool isVisual(EffectKind kind) { return category(kind) == EffectCategory::visual; }

std::string_view title(EffectCategory category) {
    switch (category) {
    case EffectCategory::tone: return "Tone";
    case EffectCategory::dynamics: return "Dynamics";
    case EffectCategory::modulation: return "Modulation";
    case EffectCategory::space: return "Space";
    case EffectCategory::pitch: return "Pitch";
    case EffectCategory::visual: return "Visual";
    }
    return "";
}

std::vector<EffectKind> kinds(EffectCategory which) {
    std::vector<EffectKind> result;
    for (auto& entry : effectRegistry())
        if (entry.category == which) result.push_back(entry.kind);
    return result;
}

const std::vector<EffectParameter>& parameters(EffectKind kind) {
    return registration(kind).parameters;
}

const std::vector<EffectPreset>& presets(EffectKind kind) { return registration(kind).presets; }

const EffectPreset* presetMatching(EffectKind kind, const std::vector<double>& values) {
    auto& list = parameters(kind);
    for (auto& preset : presets(kind)) {
        auto full = preset.valuesFor(list);
        if (full.size() != values.size()) continue;
        bool same = true;
        for (size_t i = 0; i < full.size() && same; ++i) {
            double a = full[i], b = values[i];
            double tolerance = std::fabs(a) <= 1 ? 1e-6 : std::fabs(a) * 1e-6;
            same = std::fabs(a - b) <= tolerance;
        }
        if (same) return &preset;
    }
    return nullptr;
}

double tailSeconds(EffectKind kind, const ParameterBank& bank) {
    return registration(kind).tailSeconds(bank);
}

std::unique_ptr<EffectProcessor> makeProcessor(EffectKind kind, double sampleRate, int channelCount,
                                               std::shared_ptr<ParameterBank> bank) {
    return registration(kind).makeProcessor(sampleRate, channelCount, std::move(bank));
}

} // namespace sonvale
