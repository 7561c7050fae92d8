#include "transcription/ConvertedInput.h"

#include "transcription/Transcriber.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
// Two seconds of source audio per step, at least one frame.
int64_t defaultChunk(double sampleRate) { return std::max<int64_t>(1, int64_t(sampleRate * 2)); }
} // namespace

ConvertedInput::ConvertedInput(AudioDataPtr source, double rate, int64_t frames)
    : audio(std::move(source))
    , formatRate(rate)
    , chunk(frames > 0 ? frames : defaultChunk(audio ? audio->sampleRate : 0)) {
    if (!audio || !(audio->sampleRate > 0) || !(formatRate > 0) || audio->channelCount() == 0)
        throw Transcriber::Failure(Transcriber::Failure::Kind::audioFormat);
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    converter = soxr_create(audio->sampleRate, formatRate, 1, &error, &io, &quality, nullptr);
    if (error || !converter) throw Transcriber::Failure(Transcriber::Failure::Kind::audioFormat);
    mono.resize(size_t(chunk));
}

ConvertedInput::~ConvertedInput() { soxr_delete(converter); }

bool ConvertedInput::next(Buffer& buffer) {
    if (finished) return false;
    const int64_t frames = std::min(chunk, audio->frameCount - position);
    const int channels = audio->channelCount();
    // Room for the chunk at the new rate and whatever the converter still holds back.
    const auto capacity = size_t(std::ceil(double(chunk) * formatRate / audio->sampleRate)) + 1024;
    buffer.samples.resize(capacity);

    size_t produced = 0;
    if (frames > 0) {
        const float gain = 1.0f / float(channels);
        std::copy_n(audio->samples(0) + position, frames, mono.begin());
        for (int c = 1; c < channels; ++c) {
            const float* samples = audio->samples(c) + position;
            for (int64_t i = 0; i < frames; ++i)
                mono[size_t(i)] += samples[i];
        }
        if (channels > 1)
            for (int64_t i = 0; i < frames; ++i)
                mono[size_t(i)] *= gain;
        size_t used = 0;
        if (soxr_process(converter, mono.data(), size_t(frames), &used, buffer.samples.data(),
                         capacity, &produced))
            throw Transcriber::Failure(Transcriber::Failure::Kind::audioFormat);
        position += frames;
    } else {
        // The end: the converter gives back what it held for its filter.
        if (soxr_process(converter, nullptr, 0, nullptr, buffer.samples.data(), capacity,
                         &produced))
            throw Transcriber::Failure(Transcriber::Failure::Kind::audioFormat);
        finished = produced < capacity;
    }
    buffer.samples.resize(produced);
    buffer.start = double(emitted) / formatRate;
    emitted += int64_t(produced);
    return produced > 0 || !finished;
}

} // namespace sonvale
