#pragma once

#include "audio/AudioData.h"
#include "audio/ExportFormat.h"
#include "audio/Marker.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace sonvale {

class AudioFileWriter;

// One file of an export: which frames go where.
struct ExportJob {
    FrameRange range;
    std::filesystem::path url;
    friend bool operator==(const ExportJob&, const ExportJob&) = default;
};

// Writes audio to files. Thread-safe; meant for background threads.
struct AudioExporter {
    using Progress = std::function<void(double)>;

    // Writes `range` of `audio` to `url` in `format`, every sample multiplied by the linear
    // `gain` and hard-clipped to [-1, 1], in 65,536-frame chunks. A file already at `url` is
    // replaced only once the new one is complete. Throws FileError or AudioLoaderError; the
    // file at `url` is then as it was.
    static void exportAudio(const AudioData& audio, FrameRange range, float gain,
                            ExportFormat format, const std::filesystem::path& url,
                            const Progress& progress = {});

    // What every export does to a sample: multiplies by the linear `gain` and clips to
    // [-1, 1]; NaN becomes silence.
    static void applyGainAndClip(const float* in, float* out, int64_t count, float gain);

    // Writes a clip as a 32-bit float WAV, creating missing folders. Throws FileError.
    static void writeLossless(const AudioClip& clip, const std::filesystem::path& url);
    // The same for the whole of `audio`, read in place.
    static void writeLossless(const AudioData& audio, const std::filesystem::path& url,
                              const Progress& progress = {});
    // The writer writeLossless uses, for audio written a block at a time (its folder is
    // made when missing).
    static std::unique_ptr<AudioFileWriter> openLosslessWriter(const std::filesystem::path& url,
                                                               double sampleRate, int channels);
};

// One export job per region (markers without an end are skipped), named
// "<track> - <region>" with "/" and ":" made "-", unique case-insensitively within the
// batch and against files already in `folder` ("Intro", "intro 2", ...).
std::vector<ExportJob> regionExportJobs(const std::string& trackName,
                                        const std::vector<Marker>& regions, ExportFormat format,
                                        const std::filesystem::path& folder);

// folder/name.wav, or the first free "name N.wav" for N = 2, 3, ...
std::filesystem::path uniqueWAV(const std::filesystem::path& folder, const std::string& name);

} // namespace sonvale
