#include "effects/EffectSession.h"

namespace sonvale {

namespace {
std::vector<double> defaults(EffectKind kind) {
    std::vector<double> values;
    for (auto& parameter : parameters(kind))
        values.push_back(parameter.defaultValue);
    return values;
}
} // namespace

std::shared_ptr<EffectSession> EffectSession::make(EffectKind kind,
                                                   std::optional<std::vector<double>> values) {
    return std::make_shared<EffectSession>(kind, std::move(values));
}

EffectSession::EffectSession(EffectKind kind, std::optional<std::vector<double>> values)
    : effectKind(kind)
    , liveBank(std::make_shared<ParameterBank>(parameters(kind), isVisual(kind)))
    , currentValues(defaults(kind)) {
    if (values && values->size() == currentValues.size()) currentValues = std::move(*values);
    for (size_t i = 0; i < currentValues.size(); ++i)
        liveBank->set(int(i), currentValues[i]);
}

void EffectSession::setValues(std::vector<double> values) {
    if (values == currentValues) return;
    currentValues = std::move(values);
    for (size_t i = 0; i < currentValues.size(); ++i)
        liveBank->set(int(i), currentValues[i]);
    valuesChanged.emit();
}

void EffectSession::setValue(int index, double value) {
    if (index < 0 || size_t(index) >= currentValues.size()) return;
    if (currentValues[size_t(index)] == value) return;
    currentValues[size_t(index)] = value;
    liveBank->set(index, value);
    valuesChanged.emit();
}

void EffectSession::setBypassed(bool flag) {
    if (flag == bypassed) return;
    bypassed = flag;
    liveBypass->store(flag);
    bypassChanged.emit();
}

std::shared_ptr<ParameterBank> EffectSession::snapshot() const {
    auto bank = std::make_shared<ParameterBank>(parameters(effectKind), isVisual(effectKind));
    for (size_t i = 0; i < currentValues.size(); ++i)
        bank->set(int(i), currentValues[i]);
    return bank;
}

bool EffectSession::isAtDefaults() const { return currentValues == defaults(effectKind); }

void EffectSession::resetToDefaults() { setValues(defaults(effectKind)); }

} // namespace sonvale
