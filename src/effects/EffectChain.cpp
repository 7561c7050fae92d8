#include "effects/EffectChain.h"

#include <algorithm>

namespace sonvale {

EffectSessionPtr EffectChain::selected() const { return selection ? session(*selection) : nullptr; }

EffectSessionPtr EffectChain::session(const Uuid& id) const {
    for (auto& s : sessions)
        if (s->id() == id) return s;
    return nullptr;
}

std::vector<EffectSessionPtr> EffectChain::activeEffects() const {
    std::vector<EffectSessionPtr> result;
    for (auto& s : sessions)
        if (!s->isBypassed()) result.push_back(s);
    return result;
}

void EffectChain::append(EffectSessionPtr session) {
    if (!session || this->session(session->id())) return;
    sessions.push_back(std::move(session));
    effectsChanged.emit();
}

void EffectChain::remove(const Uuid& id) {
    auto found =
        std::find_if(sessions.begin(), sessions.end(), [&](auto& s) { return s->id() == id; });
    if (found == sessions.end()) return;
    sessions.erase(found);
    effectsChanged.emit();
    if (selection == id) select(std::nullopt);
}

void EffectChain::move(const Uuid& id, int index) {
    auto found =
        std::find_if(sessions.begin(), sessions.end(), [&](auto& s) { return s->id() == id; });
    if (found == sessions.end()) return;
    auto from = int(found - sessions.begin());
    int to = std::clamp(index, 0, int(sessions.size()) - 1);
    if (from == to) return;
    auto moving = *found;
    sessions.erase(found);
    sessions.insert(sessions.begin() + to, std::move(moving));
    effectsChanged.emit();
}

void EffectChain::moveBy(const Uuid& id, int offset) {
    for (size_t i = 0; i < sessions.size(); ++i)
        if (sessions[i]->id() == id) return move(id, int(i) + offset);
}

void EffectChain::select(std::optional<Uuid> id) {
    if (id && !session(*id)) id.reset();
    if (id == selection) return;
    selection = id;
    selectionChanged.emit();
}

void EffectChain::setBypassed(bool flag) {
    if (flag == bypassed) return;
    bypassed = flag;
    bypassChanged.emit();
}

void EffectChain::setApplying(bool flag) {
    if (flag == applying) return;
    applying = flag;
    applyingChanged.emit();
}

std::unique_ptr<ChainProcessor> EffectChain::previewProcessor(double sampleRate,
                                                              int channelCount) const {
    auto chain = std::make_unique<ChainProcessor>();
    for (auto& s : sessions) {
        chain->stages.push_back(
            {makeProcessor(s->kind(), sampleRate, channelCount, s->bank()), s->bypassFlag()});
        s->setPreview(EffectSession::Preview{sampleRate, channelCount});
    }
    return chain;
}

EffectChain::Render EffectChain::renderProcessor(double sampleRate, int channelCount) const {
    Render render{std::make_unique<ChainProcessor>(), 0};
    for (auto& s : activeEffects()) {
        auto bank = s->snapshot();
        render.tailSeconds += tailSeconds(s->kind(), *bank);
        render.processor->stages.push_back(
            {makeProcessor(s->kind(), sampleRate, channelCount, bank), nullptr});
    }
    return render;
}

} // namespace sonvale
