#pragma once

#include "audio/AudioData.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {

// Integrated loudness (ITU-R BS.1770 with EBU R128 gating), every channel weighted 1.
// Memory use is one double per 100 ms of audio; safe on any thread.
struct Loudness {
    // One normalised second-order section (a0 divided out).
    struct Section {
        double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    };
    // The K-weighting pre-filter at a sample rate: the high shelf, then the high-pass.
    static std::array<Section, 2> kWeighting(double sampleRate);
    // LUFS, or nothing for audio shorter than 400 ms or quieter than the absolute gate.
    static std::optional<double> integrated(const AudioData& audio);
};

// A loudness a track can be normalised to.
struct LoudnessTarget {
    double value = 0; // LUFS
    std::string name;
    friend bool operator==(const LoudnessTarget&, const LoudnessTarget&) = default;
};

// The targets the normalize menu offers, sorted by value: streaming, podcasts, broadcast and
// the custom target when it is set and differs from those three.
std::vector<LoudnessTarget> loudnessTargets(std::optional<double> customTarget);
// "Loudness to -16 LUFS (podcasts)"
std::string loudnessMenuTitle(const LoudnessTarget& target);

// The gain (dB) that brings a peak to 0 dBFS, within ±30 dB; nothing for silence.
std::optional<float> peakNormalizationGain(float peak);
// The gain (dB) that brings a measured loudness to a target, within ±30 dB.
float loudnessNormalizationGain(double targetLUFS, double measuredLUFS);

} // namespace sonvale
