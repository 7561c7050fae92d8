#pragma once

#include "audio/ExportFormat.h"

#include <cstdint>
#include <filesystem>
#include <memory>

namespace sonvale {

// An audio file being written from planar float: PCM through libsndfile, AAC through
// FFmpeg. Every failure throws FileError naming the file, with the system's reason
// ("No space left on device") where there is one.
class AudioFileWriter {
public:
    virtual ~AudioFileWriter() = default;
    // Appends `frames` frames; channels[c] holds channel c's samples.
    virtual void write(const float* const* channels, int64_t frames) = 0;
    // Flushes the encoder, completes the headers and closes the file.
    virtual void finish() = 0;
};

// Opens `path` for writing in the format `settings` describes. The audio goes to a temporary
// file in the same folder that finish() syncs and renames over `path`; until then, and after
// any failure, whatever was at `path` stays as it was, and a writer destroyed unfinished
// leaves nothing behind. A device or pipe at `path` is written to directly.
std::unique_ptr<AudioFileWriter> openAudioFileWriter(const EncoderSettings& settings,
                                                     const std::filesystem::path& path);

// The two back ends; `fd` is open for writing and becomes the writer's.
std::unique_ptr<AudioFileWriter> openSndfileWriter(int fd, const EncoderSettings& settings,
                                                   const std::filesystem::path& path);
std::unique_ptr<AudioFileWriter> openAACWriter(int fd, const EncoderSettings& settings,
                                               const std::filesystem::path& path);

} // namespace sonvale
