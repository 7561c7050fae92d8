#pragma once

#include "effects/EffectKind.h"

#include <string>
#include <string_view>
#include <vector>

namespace sonvale {

// An effect and its values written as text, as the command-line tool takes them:
//
//   KIND[@PRESET][,NAME=VALUE...]      e.g.  equalizer@Warm,Band 1 Gain=4.5,Output=-2
//
// KIND is the raw value or the title ("noiseGate", "Noise Gate"); kinds, presets and
// parameter names match ignoring case, spaces, hyphens, underscores and surrounding quotes.
// Values start at the defaults, then the preset's, then each NAME=VALUE in order. A value is
// a number in the parameter's unit, or for choices and toggles also a label ("Low Cut",
// "on"). Anything unknown or out of range throws UserError with a message that lists what
// is valid.
struct EffectSetup {
    EffectKind kind = EffectKind::equalizer;
    std::vector<double> values;

    static EffectSetup parse(std::string_view text);
};

// Lower case without spaces, hyphens, underscores or quotes: the form names are compared in.
std::string foldedName(std::string_view name);

} // namespace sonvale
