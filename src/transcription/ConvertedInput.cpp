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

ConvertedInput::Source ConvertedInput::monoOf(AudioDataPtr audio) {
    if (!audio || audio->channelCount() == 0) return {};
    auto position = std::make_shared<int64_t>(0);
    Source source{audio->sampleRate, audio->frameCount, {}};
    source.read = [audio, position](float* mono, int64_t maxFrames) {
        const int64_t frames = std::min(maxFrames, audio->frameCount - *position);
        std::vector<const float*> channels;
        for (int c = 0; c < audio->channelCount(); ++c)
            channels.push_back(audio->samples(c) + *position);
        mixToMono(channels.data(), int(channels.size()), frames, mono);
        *position += frames;
        return frames;
    };
    return source;
}

void ConvertedInput::mixToMono(const float* const* channels, int count, int64_t frames,
                               float* mono) {
    std::copy_n(channels[0], frames, mono);
    for (int c = 1; c < count; ++c)
        for (int64_t i = 0; i < frames; ++i)
            mono[i] += channels[c][i];
    if (count > 1) {
        const float gain = 1.0f / float(count);
        for (int64_t i = 0; i < frames; ++i)
            mono[i] *= gain;
    }
}

ConvertedInput::ConvertedInput(Source from, double rate, int64_t frames)
    : source(std::move(from))
    , formatRate(rate)
    , chunk(frames > 0 ? frames : defaultChunk(source.sampleRate)) {
    if (!source.read || !(source.sampleRate > 0) || !(formatRate > 0))
        throw Transcriber::Failure(Transcriber::Failure::Kind::audioFormat);
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    converter = soxr_create(source.sampleRate, formatRate, 1, &error, &io, &quality, nullptr);
    if (error || !converter) throw Transcriber::Failure(Transcriber::Failure::Kind::audioFormat);
    mono.resize(size_t(chunk));
}

ConvertedInput::~ConvertedInput() { soxr_delete(converter); }

bool ConvertedInput::next(Buffer& buffer) {
    if (finished) return false;
    // Room for the chunk at the new rate and whatever the converter still holds back.
    const auto capacity = size_t(std::ceil(double(chunk) * formatRate / source.sampleRate)) + 1024;
    buffer.samples.resize(capacity);

    size_t produced = 0;
    const int64_t frames = ended ? 0 : source.read(mono.data(), chunk);
    ended = frames == 0;
    if (frames > 0) {
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
