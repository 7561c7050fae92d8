#pragma once

#include "audio/AudioData.h"
#include "engine/LevelMeters.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace sonvale {

// Linear magnitude to decibels, not below `floorDB` (and `floorDB` for 0 or less).
float levelDB(float magnitude, float floorDB) noexcept;

// The display side of a level meter: per channel, a peak that falls at 20 dB per second, a
// held peak that stays 1.5 s and then falls at 30 dB per second, and a clip indicator that
// stays lit until resetClip(). Main thread; times are in seconds on any steady clock.
class MeterBallistics {
public:
    static constexpr float floorDB = -60;
    static constexpr double maxStep = 0.25; // a meter left alone longer falls as if 0.25 s passed
    static constexpr float fallDBPerSecond = 20;
    static constexpr float holdFallDBPerSecond = 30;
    static constexpr double holdSeconds = 1.5;
    // Audio measured around the heard frame on the track path: 1,024 frames (21 ms at 48 kHz)
    // when the previous update's frame is not a usable start.
    static constexpr int64_t trackWindow = 1024;

    struct Level {
        float peakDB = floorDB;
        float rmsDB = floorDB;
        float holdDB = floorDB;
    };

    // Raw linear peaks, one per channel (the mixer's meters).
    void update(std::span<const float> peaks, double now);
    // Single-track playback: the peak and RMS of the audio heard since the previous update
    // (at most a quarter second of it, or `trackWindow` frames ending at `frame`), times `gain`.
    void update(int64_t frame, const AudioData& audio, float gain, double now);
    void resetClip() { clipped = false; }
    // Every channel's peak and held peak are down at the floor: nothing left to show falling.
    bool isResting() const;

    bool clipped = false;
    std::optional<int64_t> lastFrame;
    std::optional<double> lastTime;
    std::vector<Level> levels;
    std::vector<double> holdUntil;

private:
    double advance(double now, size_t channels);
    void apply(size_t channel, float peak, double dt, double now);
};

// A lamp-style level indicator: falls 90 dB per second over a 36 dB range, lights with the
// square of its position in that range, attacks at once and releases with a 0.18 s time
// constant.
struct LampBallistics {
    static constexpr float floorDB = -36;
    float level = floorDB;
    float glow = 0;
    bool clipped = false;

    void step(float peak, double dt);
};

// The recording input's level, per channel in decibels with a -120 dB floor.
struct InputLevel {
    static constexpr float floorDB = -120;
    std::vector<float> peaksDB;
    static InputLevel fromPeaks(std::span<const float> linearPeaks);
};

// Where one view reads the output's peaks: its own reader of the master slot, and the heard
// frame of its previous call.
struct OutputPeakReader {
    LevelMeters::Reader meters;
    std::optional<int64_t> lastFrame;
};

// The master peaks that became audible since the reader's last call: entries heard by
// mixed - `latencyFrames`. None when nothing new was heard.
std::optional<LevelMeters::Peaks>
heardOutputPeaks(OutputPeakReader& reader, const LevelMeters& meters, int64_t latencyFrames);

} // namespace sonvale
