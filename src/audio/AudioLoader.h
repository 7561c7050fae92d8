#pragma once

#include "audio/AudioData.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace sonvale {

// What decoding a file could not recover. Empty for an undamaged file. A damaged stretch
// is silent in the decoded audio, so everything after it keeps its time.
struct DecodeReport {
    std::vector<FrameRange> damaged; // in frames, in order, never touching one another
    bool endsEarly = false;          // the audio stops before the length the file states
    int64_t framesRead = 0;          // with endsEarly: the frame where the file's audio stops
    int64_t statedFrames = 0;        // with endsEarly: the length the file states; 0 unknown
    int64_t nonFiniteSamples = 0;    // NaN or infinite samples replaced by silence

    bool isClean() const { return damaged.empty() && !endsEarly && nonFiniteSamples == 0; }
    // Marks `length` frames from `start` as lost, joining a stretch it touches.
    void addDamage(int64_t start, int64_t length);
    // One sentence for the user: "“take.flac” is damaged: 0.6 s at 0:06.2 could not be read
    // and is silent." Empty when the report is clean.
    std::string summary(const std::string& fileName, double sampleRate) const;
    // One line per damaged stretch ("0:06.2 to 0:06.8 (0.6 s)"), then the early end and the
    // replaced samples.
    std::vector<std::string> details(double sampleRate) const;
    friend bool operator==(const DecodeReport&, const DecodeReport&) = default;
};

// A time as the window and the command line show it: "m:ss.t", or "h:mm:ss.t" from an hour
// on; tenths are cut, not rounded.
std::string durationString(double seconds);

// Decoding and building of AudioData. Every AudioData is made by makeAudioData.
// Thread-safe: load() runs on a background thread and reports progress from it.
struct AudioLoader {
    using Progress = std::function<void(double)>;

    // Wraps filled sample buffers (one per channel, at least `frameCount` floats each; longer
    // buffers are cut to size) into an AudioData with its pyramids and peak.
    static AudioDataPtr makeAudioData(double sampleRate, std::vector<FloatBuffer> buffers,
                                      int64_t frameCount);
    // The same with each channel's levels already built (as buildLevels builds them).
    static AudioDataPtr makeAudioData(double sampleRate, std::vector<FloatBuffer> buffers,
                                      int64_t frameCount,
                                      std::vector<std::vector<PeakLevel>> levels);
    // The same without level pyramids and with a peak of 0, not worked out: for stretches of
    // audio that are only played, never drawn nor measured (what a mixdown streams), and cost
    // nothing beyond their samples.
    static AudioDataPtr makeAudioDataForPlaying(double sampleRate, std::vector<FloatBuffer> buffers,
                                                int64_t frameCount);
    // The level pyramid of one channel; empty when count < 17.
    static std::vector<PeakLevel> buildLevels(const float* samples, int64_t count);
    // The pyramid above a complete level 0 (for channels summarised while they were decoded).
    static std::vector<PeakLevel> buildLevels(PeakLevel levelZero);
    // Level 0 of `count` samples: per 16-sample block (the last may be shorter) the minimum
    // and maximum into `minMax` (pairs) and the sum of squares into `energy`.
    static void summariseLevelZero(const float* samples, int64_t count, float* minMax,
                                   float* energy);

    // Decodes a file to planar float at its own rate and channel count. Progress goes from
    // 0 to 1 in steps of at least 0.02. Throws AudioLoaderError or FileError.
    // What could not be recovered goes to `report` when given.
    static AudioDataPtr load(const std::filesystem::path& path, const Progress& progress = {},
                             DecodeReport* report = nullptr);

    // What a file holds, without decoding it all.
    struct FileInfo {
        std::string container; // "wav", "aiff", "flac", "mp3", "mov,mp4,m4a,...", ...
        std::string codec;     // "pcm_s16le", "mp3", "aac", ...
        double sampleRate = 0;
        int channels = 0;
        int64_t frames = 0; // as the file's header states it
    };
    static FileInfo probe(const std::filesystem::path& path);

    // File extensions (lower case, without the dot) that the decoders accept.
    static const std::vector<std::string>& audioExtensions();
    static bool isAudioFile(const std::filesystem::path& path);
};

} // namespace sonvale
