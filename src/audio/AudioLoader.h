#pragma once

#include "audio/AudioData.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace sonvale {

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
    static AudioDataPtr load(const std::filesystem::path& path, const Progress& progress = {});

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
