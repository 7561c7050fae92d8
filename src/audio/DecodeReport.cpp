#include "audio/AudioLoader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sonvale {

namespace {

// A length in seconds: tenths, or milliseconds when it is shorter than a tenth.
std::string secondsText(int64_t frames, double sampleRate) {
    const double seconds = sampleRate > 0 ? double(frames) / sampleRate : 0;
    char text[48];
    std::snprintf(text, sizeof text, seconds < 0.1 ? "%.3f s" : "%.1f s", seconds);
    return text;
}

std::string timeText(int64_t frame, double sampleRate) {
    return durationString(sampleRate > 0 ? double(frame) / sampleRate : 0);
}

} // namespace

std::string durationString(double seconds) {
    seconds = std::max(0.0, seconds);
    const int64_t tenths = int64_t(std::floor(seconds * 10));
    const int64_t total = tenths / 10;
    const int h = int(total / 3600), m = int(total / 60 % 60), s = int(total % 60);
    char text[48];
    if (h > 0)
        std::snprintf(text, sizeof text, "%d:%02d:%02d.%d", h, m, s, int(tenths % 10));
    else
        std::snprintf(text, sizeof text, "%d:%02d.%d", m, s, int(tenths % 10));
    return text;
}

void DecodeReport::addDamage(int64_t start, int64_t length) {
    if (length <= 0) return;
    if (!damaged.empty() && damaged.back().upper >= start) {
        damaged.back().upper = std::max(damaged.back().upper, start + length);
        return;
    }
    damaged.push_back({start, start + length});
}

std::string DecodeReport::summary(const std::string& fileName, double sampleRate) const {
    std::string text;
    auto subject = [&] { return text.empty() ? "“" + fileName + "”" : std::string(" It"); };
    // The silence after an early end is told as part of the early end.
    std::vector<FrameRange> inside = damaged;
    const bool silentTail = endsEarly && !inside.empty() && inside.back().lower == framesRead;
    if (silentTail) inside.pop_back();
    if (inside.size() == 1) {
        text += subject() + " is damaged: " + secondsText(inside[0].length(), sampleRate) + " at " +
                timeText(inside[0].lower, sampleRate) + " could not be read and is silent.";
    } else if (inside.size() > 1) {
        int64_t lost = 0;
        for (const auto& range : inside)
            lost += range.length();
        text += subject() + " is damaged: " + std::to_string(inside.size()) + " stretches (" +
                secondsText(lost, sampleRate) + " in all, the first at " +
                timeText(inside[0].lower, sampleRate) + ") could not be read and are silent.";
    }
    if (endsEarly) {
        text += subject() + (text.empty() ? " ends early" : " also ends early") + ": only " +
                secondsText(framesRead, sampleRate);
        if (statedFrames > 0) text += " of " + secondsText(statedFrames, sampleRate);
        text += silentTail ? " could be read, and the rest is silent." : " could be read.";
    }
    if (nonFiniteSamples > 0) {
        const bool one = nonFiniteSamples == 1;
        text += subject() +
                (one ? " has 1 sample that is"
                     : " has " + std::to_string(nonFiniteSamples) + " samples that are") +
                " not a number or infinite; " + (one ? "it was" : "they were") +
                " replaced by silence.";
    }
    return text;
}

std::vector<std::string> DecodeReport::details(double sampleRate) const {
    std::vector<std::string> lines;
    for (const auto& range : damaged)
        lines.push_back("Silent from " + timeText(range.lower, sampleRate) + " to " +
                        timeText(range.upper, sampleRate) + " (" +
                        secondsText(range.length(), sampleRate) + ", frames " +
                        std::to_string(range.lower) + " to " + std::to_string(range.upper) + ")");
    if (endsEarly) {
        std::string line = "The audio ends at frame " + std::to_string(framesRead);
        if (statedFrames > 0) line += "; the file says it holds " + std::to_string(statedFrames);
        lines.push_back(line);
    }
    if (nonFiniteSamples > 0)
        lines.push_back(std::to_string(nonFiniteSamples) +
                        " NaN or infinite samples replaced by silence");
    return lines;
}

} // namespace sonvale
