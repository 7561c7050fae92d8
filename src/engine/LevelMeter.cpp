#include "engine/LevelMeter.h"

#include "audio/Decibels.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sonvale {

float levelDB(float magnitude, float floorDB) noexcept {
    if (!(magnitude > 0)) return floorDB;
    return std::max(decibelsFromGain(magnitude), floorDB);
}

double MeterBallistics::advance(double now, size_t channels) {
    double dt = lastTime ? std::clamp(now - *lastTime, 0.0, maxStep) : 0.0;
    lastTime = now;
    if (levels.size() != channels) {
        levels.resize(channels);
        holdUntil.resize(channels, now);
    }
    return dt;
}

void MeterBallistics::apply(size_t c, float peak, double dt, double now) {
    if (peak > 1.0f) clipped = true;
    float level = levelDB(peak, floorDB);
    Level& meter = levels[c];
    meter.peakDB = std::max(level, meter.peakDB - fallDBPerSecond * float(dt));
    if (meter.holdDB <= level) {
        meter.holdDB = level;
        holdUntil[c] = now + holdSeconds;
    } else if (now > holdUntil[c]) {
        meter.holdDB = std::max(level, meter.holdDB - holdFallDBPerSecond * float(dt));
    }
}

bool MeterBallistics::isResting() const {
    return std::all_of(levels.begin(), levels.end(), [](const Level& level) {
        return level.peakDB <= floorDB && level.holdDB <= floorDB;
    });
}

void MeterBallistics::update(std::span<const float> peaks, double now) {
    double dt = advance(now, peaks.size());
    for (size_t c = 0; c < peaks.size(); ++c) {
        apply(c, peaks[c], dt, now);
        levels[c].rmsDB = floorDB;
    }
}

void MeterBallistics::update(int64_t frame, const AudioData& audio, float gain, double now) {
    const size_t channels = size_t(audio.channelCount());
    double dt = advance(now, channels);
    const int64_t longest = std::max<int64_t>(int64_t(audio.sampleRate * maxStep), trackWindow);
    frame = std::clamp<int64_t>(frame, 0, audio.frameCount);
    int64_t from = frame - trackWindow;
    if (lastFrame && *lastFrame < frame && frame - *lastFrame <= longest) from = *lastFrame;
    from = std::max<int64_t>(from, 0);
    lastFrame = frame;

    const float magnitude = std::fabs(gain);
    for (size_t c = 0; c < channels; ++c) {
        const float* samples = audio.samples(int(c));
        float peak = 0;
        double squares = 0;
        for (int64_t i = from; i < frame; ++i) {
            peak = std::max(peak, std::fabs(samples[i]));
            squares += double(samples[i]) * samples[i];
        }
        float rms = frame > from ? float(std::sqrt(squares / double(frame - from))) : 0.0f;
        apply(c, peak * magnitude, dt, now);
        levels[c].rmsDB = std::max(levelDB(rms * magnitude, floorDB),
                                   levels[c].rmsDB - fallDBPerSecond * float(dt));
    }
}

void LampBallistics::step(float peak, double dt) {
    if (peak > 1.0f) clipped = true;
    float dB = peak > 0 ? decibelsFromGain(peak) : -std::numeric_limits<float>::infinity();
    level = std::max(std::max(dB, level - 90.0f * float(dt)), floorDB);
    float position = (level - floorDB) / -floorDB;
    float target = position * position;
    if (glow < target)
        glow = target;
    else
        glow += float(1.0 - std::exp(-dt / 0.18)) * (target - glow);
}

InputLevel InputLevel::fromPeaks(std::span<const float> linearPeaks) {
    InputLevel result;
    result.peaksDB.reserve(linearPeaks.size());
    for (float peak : linearPeaks)
        result.peaksDB.push_back(decibelsFromGain(std::max(peak, 0.000001f)));
    return result;
}

std::optional<LevelMeters::Peaks>
heardOutputPeaks(OutputPeakReader& reader, const LevelMeters& meters, int64_t latencyFrames) {
    const int64_t heardBy = meters.mixedFrames() - latencyFrames;
    const int64_t before = reader.meters.next;
    const int64_t clearsBefore = reader.meters.clears;
    auto peaks = meters.collect(LevelMeters::Slot::master(), reader.meters, heardBy);
    bool advanced = reader.meters.next != before || reader.meters.clears != clearsBefore;
    reader.lastFrame = heardBy;
    if (!advanced || (peaks.left <= 0 && peaks.right <= 0)) return std::nullopt;
    return peaks;
}

} // namespace sonvale
