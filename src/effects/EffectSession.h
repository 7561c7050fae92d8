#pragma once

#include "base/Uuid.h"
#include "effects/BypassFlag.h"
#include "effects/EffectKind.h"
#include "effects/ParameterBank.h"

#include <sigc++/signal.h>

#include <memory>
#include <optional>
#include <vector>

namespace sonvale {

// One effect in a chain: its kind, its values and its bypass switch. Setting values writes
// them through to the live bank that the preview processor reads, so knob changes are heard
// without rebuilding anything. Main thread only; signals fire only on real changes.
class EffectSession {
public:
    // The format a live preview processor was built for.
    struct Preview {
        double sampleRate = 0;
        int channelCount = 0;
        friend bool operator==(const Preview&, const Preview&) = default;
    };

    // Values default to the kind's defaults; a given array of the wrong length is ignored too.
    static std::shared_ptr<EffectSession> make(EffectKind kind,
                                               std::optional<std::vector<double>> values = {});
    EffectSession(EffectKind kind, std::optional<std::vector<double>> values);
    EffectSession(const EffectSession&) = delete;
    EffectSession& operator=(const EffectSession&) = delete;

    const Uuid& id() const { return identifier; }
    EffectKind kind() const { return effectKind; }
    const std::shared_ptr<ParameterBank>& bank() const { return liveBank; }
    const std::shared_ptr<BypassFlag>& bypassFlag() const { return liveBypass; }

    const std::vector<double>& values() const { return currentValues; }
    void setValues(std::vector<double> values);
    // Sets one parameter; an index out of range is ignored.
    void setValue(int index, double value);
    bool isBypassed() const { return bypassed; }
    void setBypassed(bool flag);

    const std::optional<Preview>& preview() const { return previewFormat; }
    void setPreview(std::optional<Preview> format) { previewFormat = format; }

    // A new bank holding the current values, for an offline render.
    std::shared_ptr<ParameterBank> snapshot() const;
    bool isAtDefaults() const;
    void resetToDefaults();

    sigc::signal<void()> valuesChanged;
    sigc::signal<void()> bypassChanged;

private:
    Uuid identifier = Uuid::random();
    EffectKind effectKind;
    std::shared_ptr<ParameterBank> liveBank;
    std::shared_ptr<BypassFlag> liveBypass = std::make_shared<BypassFlag>();
    std::vector<double> currentValues;
    bool bypassed = false;
    std::optional<Preview> previewFormat;
};

using EffectSessionPtr = std::shared_ptr<EffectSession>;

} // namespace sonvale
