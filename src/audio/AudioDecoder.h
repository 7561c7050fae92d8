#pragma once

#include "audio/AudioLoader.h"
#include "audio/FileHandle.h"

#include <bit>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace sonvale {

// One open audio file being decoded to planar 32-bit float at its own rate and channel
// count. Made by openAudioDecoder, used by one thread at a time.
class AudioDecoder {
public:
    virtual ~AudioDecoder() = default;

    // Container, codec, rate, channels and the frame count the file announces.
    const AudioLoader::FileInfo& info() const { return fileInfo; }
    // True when info().frames is what the file says it holds (a truncated file may still
    // hold fewer); false when it is only an estimate and the file may hold more.
    bool lengthIsExact() const { return exactLength; }

    // Decodes up to `maxFrames` frames, writing channel c's samples to channels[c][0...].
    // Returns the number of frames written; 0 at the end of the audio. Throws
    // AudioFileError when the file can't be read on (damagedAfter once audio was read).
    int64_t read(float* const* channels, int64_t maxFrames);

    // What could not be decoded so far: complete once read() has returned 0.
    const DecodeReport& report() const { return damage; }

    // A second decoder of the same file whose first frame is `frame` (0 < frame <
    // info().frames), so that a long file can be decoded in two parts at once. nullptr when
    // this kind of file can't be entered exactly there (the default), or the file can't be
    // read that far.
    virtual std::unique_ptr<AudioDecoder> startingAt(int64_t frame) {
        (void)frame;
        return nullptr;
    }

protected:
    explicit AudioDecoder(std::filesystem::path path)
        : path(std::move(path)) {}
    // read() without its bookkeeping. Throws FileError when the file can't be read on.
    virtual int64_t decode(float* const* channels, int64_t maxFrames) = 0;
    // For a decoder made by startingAt(): its first frame is `frame` of the file, so that a
    // failure is placed in the file, not in the part.
    void beginAt(int64_t frame) { delivered = frame; }

    std::filesystem::path path;
    AudioLoader::FileInfo fileInfo;
    bool exactLength = true;
    DecodeReport damage;

private:
    int64_t delivered = 0; // frames read() has returned
};

// Replaces NaN and infinite samples (a damaged stream, a broken float file) with silence,
// so that levels, meters and exports never see them. Finite values stay as decoded.
// Returns how many were replaced.
inline int64_t silenceNonFinite(float* samples, int64_t count) {
    int64_t replaced = 0;
    for (int64_t i = 0; i < count; ++i) {
        const uint32_t bits = std::bit_cast<uint32_t>(samples[i]);
        const bool nonFinite = (bits & 0x7f800000u) == 0x7f800000u;
        replaced += nonFinite;
        samples[i] = nonFinite ? 0.0f : samples[i];
    }
    return replaced;
}

// Opens `path` with libFLAC when it holds FLAC, with libsndfile when it holds PCM that
// libsndfile reads, else with FFmpeg. Throws AudioFileError naming the file and saying in
// plain words why when none can, and AudioLoaderError::empty (with details) when the file has
// no audio stream or no channels.
std::unique_ptr<AudioDecoder> openAudioDecoder(const std::filesystem::path& path);

// The two back ends, reading an open file from its start; on success the decoder takes
// the handle over. libsndfile's returns nullptr for a file it can't read or leaves to
// FFmpeg, with its reason in `failure` when it recognised the format but found it broken; it
// throws when the header itself says why nothing can decode it (a rate of 0 Hz, no
// channels). FFmpeg's throws AudioFileError, with FFmpeg's reason as details.
std::unique_ptr<AudioDecoder>
openSndfileDecoder(FileHandle& file, const std::filesystem::path& path, std::string& failure);
std::unique_ptr<AudioDecoder> openFFmpegDecoder(FileHandle& file,
                                                const std::filesystem::path& path);
// FLAC through libFLAC, which decodes on past a damaged frame and places every later frame by
// its sample number. Returns nullptr, with the reason in `failure`, when it can't read the
// stream's header.
std::unique_ptr<AudioDecoder> openFlacDecoder(FileHandle& file, const std::filesystem::path& path,
                                              std::string& failure);

// A new descriptor of the file behind `fd` with an offset of its own (a dup shares one), for
// a second reader; -1 with errno set when it can't be had.
int reopenDescriptor(int fd);

} // namespace sonvale
