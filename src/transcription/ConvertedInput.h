#pragma once

#include "audio/AudioData.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

struct soxr;

namespace sonvale {

// The audio feed of one transcription: the audio mixed to mono and converted to the
// recogniser's rate a chunk at a time, so an hour of audio is never held twice.
class ConvertedInput {
public:
    // Where the mono signal comes from: read() writes up to `maxFrames` frames and returns how
    // many, 0 at the end. frameCount may be an estimate (a file still being decoded).
    struct Source {
        double sampleRate = 0;
        int64_t frameCount = 0;
        std::function<int64_t(float* mono, int64_t maxFrames)> read;
    };
    // The channels' average, read from the buffer.
    static Source monoOf(AudioDataPtr audio);
    // Writes the average of `count` channels' first `frames` samples to `mono`.
    static void mixToMono(const float* const* channels, int count, int64_t frames, float* mono);

    struct Buffer {
        std::vector<float> samples; // mono, at the recogniser's rate
        double start = 0;           // seconds from the start of the audio
    };

    // Throws Transcriber::Failure (audioFormat) when the conversion can't be set up.
    ConvertedInput(Source source, double formatRate, int64_t chunk = 0);
    ConvertedInput(AudioDataPtr audio, double formatRate, int64_t chunk = 0)
        : ConvertedInput(monoOf(std::move(audio)), formatRate, chunk) {}
    ~ConvertedInput();
    ConvertedInput(const ConvertedInput&) = delete;
    ConvertedInput& operator=(const ConvertedInput&) = delete;

    // Fills `buffer` with the next converted chunk; false once the audio is used up and the
    // converter has given back its last samples.
    bool next(Buffer& buffer);

    const Source source;
    const double formatRate; // the recogniser's rate
    const int64_t chunk;     // source frames per step
    int64_t position = 0;    // next source frame
    bool finished = false;

private:
    soxr* converter = nullptr;
    std::vector<float> mono;
    int64_t emitted = 0; // converted samples handed out so far
    bool ended = false;  // the source said it has no more
};

} // namespace sonvale
