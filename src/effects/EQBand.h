#pragma once

#include "effects/Biquad.h"

#include <array>
#include <string_view>

namespace sonvale {

// The shape of one equalizer band; raw values are what the "Type" slot stores.
enum class EQBandType { lowCut = 0, lowShelf = 1, bell = 2, notch = 3, highShelf = 4, highCut = 5 };

inline constexpr std::array<EQBandType, 6> allEQBandTypes{
    EQBandType::lowCut, EQBandType::lowShelf,  EQBandType::bell,
    EQBandType::notch,  EQBandType::highShelf, EQBandType::highCut};

std::string_view title(EQBandType type); // "Low Cut", "Low Shelf", ...
// Shelves and the bell have a gain; the cuts and the notch ignore it.
bool usesGain(EQBandType type);
// Everything but the cuts (fixed Butterworth) has a Q.
bool usesQ(EQBandType type);
// The type of a stored slot value: rounded, and clamped to the valid types.
EQBandType eqBandType(double storedValue);

// One band of the parametric equalizer.
struct EQBand {
    EQBandType type = EQBandType::bell;
    double frequency = 1000; // Hz
    double gain = 0;         // dB
    double q = 1;
    bool isOn = true;

    // The band's filter: the audio-cookbook designs, with the frequency held within
    // [10 Hz, 0.45 x sampleRate] and Q within [0.05, 20]; the cuts are Butterworth.
    Biquad biquad(double sampleRate) const;

    friend bool operator==(const EQBand&, const EQBand&) = default;
};

// A Tone control: a Butterworth high cut, designed again only when its frequency moves.
struct ToneFilter {
    Biquad section;
    double frequency = 0; // what `section` was designed for; 0 = none yet

    void follow(double hz, double sampleRate) {
        if (hz == frequency) return;
        section = EQBand{EQBandType::highCut, hz, 0, 1 / std::sqrt(2.0)}.biquad(sampleRate);
        frequency = hz;
    }
};

} // namespace sonvale
