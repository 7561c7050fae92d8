#pragma once

#include "effects/EffectChain.h"

#include <string>
#include <vector>

namespace sonvale::cli {

// Effects named on the command line, one --effect SPEC each:
//
//   KIND[:SETTING,SETTING...]     SETTING is NAME=VALUE or preset=NAME
//
// KIND is the effect's case name or title in any case ("noiseGate", "noise-gate",
// "Parametric EQ"); NAME a parameter's name, where spaces may be written as '-' or '_'
// ("Band-1-Gain=3"); VALUE a number in the parameter's unit or one of a choice parameter's
// labels ("Band-1-Type=Low Cut"). A preset applies first, so later settings adjust it:
// "limiter:preset=Loud Master,Ceiling=-1". Throws UsageError naming what is wrong.
EffectSessionPtr parseEffectSpec(const std::string& spec);

// A chain of the given specs, in order.
EffectChainPtr parseEffectChain(const std::vector<std::string>& specs);

// The text listing the kinds, for messages.
std::string effectKindList();

} // namespace sonvale::cli
