#pragma once

#include "base/Uuid.h"
#include "effects/ChainProcessor.h"
#include "effects/EffectSession.h"

#include <sigc++/signal.h>

#include <memory>
#include <optional>
#include <vector>

namespace sonvale {

// The effects of the editor or of one mixer channel, in chain order, with the open panel's
// selection and the chain-wide bypass. Main thread only; signals fire only on real changes.
class EffectChain {
public:
    // A chain built for an offline render, with the time its effects keep sounding.
    struct Render {
        std::unique_ptr<ChainProcessor> processor;
        double tailSeconds = 0;
    };

    const std::vector<EffectSessionPtr>& effects() const { return sessions; }
    const std::optional<Uuid>& selectedID() const { return selection; }
    bool isBypassed() const { return bypassed; }
    bool isApplying() const { return applying; }

    EffectSessionPtr selected() const;
    // The sessions that are not bypassed, in chain order.
    std::vector<EffectSessionPtr> activeEffects() const;
    EffectSessionPtr session(const Uuid& id) const;

    void append(EffectSessionPtr session);
    // Removes a session; the selection goes with it. Unknown ids are ignored.
    void remove(const Uuid& id);
    // Moves a session to `index` (clamped to the chain).
    void move(const Uuid& id, int index);
    // Moves a session by `offset` places (clamped to the chain).
    void moveBy(const Uuid& id, int offset);
    void select(std::optional<Uuid> id);
    void setBypassed(bool flag);
    void setApplying(bool flag);

    // Every session's processor on its live bank, with its bypass flag: knob and bypass
    // changes are heard without rebuilding. Records the format in each session's preview.
    std::unique_ptr<ChainProcessor> previewProcessor(double sampleRate, int channelCount) const;
    // The active sessions' processors on snapshots of their values, without bypass flags,
    // and the sum of their tails.
    Render renderProcessor(double sampleRate, int channelCount) const;

    sigc::signal<void()> effectsChanged; // membership or order
    sigc::signal<void()> selectionChanged;
    sigc::signal<void()> bypassChanged;
    sigc::signal<void()> applyingChanged;

private:
    std::vector<EffectSessionPtr> sessions;
    std::optional<Uuid> selection;
    bool bypassed = false;
    bool applying = false;
};

using EffectChainPtr = std::shared_ptr<EffectChain>;

} // namespace sonvale
