#pragma once

#include "effects/EffectKind.h"
#include "effects/EffectSession.h"

#include <QIcon>
#include <vector>

class QVBoxLayout;
class QWidget;

namespace sonvale {

class CompressorCurve;
class EqualizerGraph;
class ParameterControl;
class ReductionMeter;
class SpectrumDisplay;

// What an effect's editor adds to the panel's title, presets and controls: its displays
// (placed in the editor's layout above the controls) and how its controls are laid out.
struct EffectEditorParts {
    EqualizerGraph* equalizerGraph = nullptr;
    CompressorCurve* compressorCurve = nullptr;
    ReductionMeter* reductionMeter = nullptr; // follows the audio being heard
    SpectrumDisplay* spectrumDisplay = nullptr;
    int controlColumns = 8;
    // Relabels the controls once they exist; null to keep the parameters' names.
    void (*labelControls)(const std::vector<ParameterControl*>& controls) = nullptr;
    // Follows a change of the values, after the controls have; null when nothing more changes.
    void (*syncControls)(const std::vector<ParameterControl*>& controls,
                         const std::vector<double>& values) = nullptr;
};

// Builds the displays of `session`'s effect into `layout`, their parent being `area`.
EffectEditorParts buildEffectEditor(const EffectSessionPtr& session, double sampleRate,
                                    QWidget* area, QVBoxLayout* layout);

// Our own drawn icon for an effect kind; a null icon for a kind the shell has no drawing of.
QIcon effectIcon(EffectKind kind);

} // namespace sonvale
