#pragma once

#include "effects/SampleTap.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace sonvale {

// Turns the newest samples of a spectrum analyzer's tap into band levels and falling peak
// markers, once per displayed frame. Runs on the display's thread, never the audio thread;
// the FFT is planned once, in the constructor (FFTW's planner is serialised by a mutex).
class SpectrumAnalysis {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr int transformSize = 4096;
    static constexpr int64_t maximumDelay = SampleTap::capacity - transformSize; // 61,440
    static constexpr double peakHoldSeconds = 0.6;
    static constexpr double maximumStep = 0.1; // a longer pause advances the ballistics this far

    struct Settings {
        int bands = 32;
        double release = 0.3; // seconds
        double floor = -80;   // dB
        double tilt = 3;      // dB per octave, 0 at 1 kHz
        friend bool operator==(const Settings&, const Settings&) = default;
    };

    // The analyzer effect's parameters (Style, Bands choice, Release ms, Floor, Tilt, Peaks)
    // as analysis settings.
    static Settings settingsFromValues(const std::vector<double>& values);

    SpectrumAnalysis();
    ~SpectrumAnalysis();
    SpectrumAnalysis(const SpectrumAnalysis&) = delete;
    SpectrumAnalysis& operator=(const SpectrumAnalysis&) = delete;

    // Stores the settings and rate and rebuilds the band edges; levels and peaks start at the
    // floor when the band count changes.
    void configure(const Settings& settings, double sampleRate);
    // Analyses the tap's newest samples ending `delay` samples behind its write count (the
    // output latency, so the display shows what is heard) and advances the ballistics by
    // the time since the last update, at most 0.1 s. Without new samples the bands fall.
    void update(const SampleTap* tap, int64_t delay, const Settings& settings,
                Clock::time_point at);

    const std::vector<double>& levels() const { return bandLevels; }
    const std::vector<double>& peaks() const { return bandPeaks; }
    const std::vector<double>& holds() const { return peakHolds; }
    const std::vector<double>& edges() const { return bandEdges; }
    const Settings& settings() const { return current; }
    double sampleRate() const { return rate; }
    // Every level and peak rests on the floor: nothing moves until new audio arrives.
    bool isSettled() const { return settled; }

    // The band values of the last analysis (before ballistics), dB with tilt.
    const std::vector<double>& values() const { return bandValues; }

private:
    void analyse(const SampleTap& tap, int64_t delay);

    std::vector<double> bandLevels, bandPeaks, peakHolds, bandEdges, bandValues;
    Settings current;
    double rate = 48000;
    bool settled = true;
    uint64_t lastWrite = 0;
    std::optional<Clock::time_point> lastDate;
    std::optional<Clock::time_point> lastNewSamples;

    struct Transform;
    std::unique_ptr<Transform> transform;
    std::vector<float> window, magnitudes;
};

} // namespace sonvale
