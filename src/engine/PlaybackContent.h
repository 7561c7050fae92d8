#pragma once

#include "audio/AudioData.h"

#include <cstdint>
#include <memory>

namespace sonvale {

// What the playback engine plays: a track's audio or the timeline's mix. read() runs on the
// real-time output thread and must neither allocate, lock nor wait.
class PlaybackContent {
public:
    virtual ~PlaybackContent() = default;
    virtual double sampleRate() const noexcept = 0;
    virtual int64_t frameCount() const noexcept = 0;
    virtual int channelCount() const noexcept = 0;
    // Writes frames [start, start + count) into buffers[c][offset ...] for each of the
    // `bufferCount` buffers, one per channel of the content (the render source lays them out
    // on the output). The caller keeps the range inside the content.
    virtual void read(int64_t start, int64_t count, float* const* buffers, int bufferCount,
                      int64_t offset) const noexcept = 0;
};

using PlaybackContentPtr = std::shared_ptr<const PlaybackContent>;

// A track's audio as playback content. Buffer c gets the audio's channel min(c, channels - 1).
class AudioDataContent final : public PlaybackContent {
public:
    explicit AudioDataContent(AudioDataPtr audio)
        : audio(std::move(audio)) {}
    static PlaybackContentPtr make(AudioDataPtr audio) {
        return std::make_shared<AudioDataContent>(std::move(audio));
    }

    double sampleRate() const noexcept override { return audio->sampleRate; }
    int64_t frameCount() const noexcept override { return audio->frameCount; }
    int channelCount() const noexcept override { return audio->channelCount(); }
    void read(int64_t start, int64_t count, float* const* buffers, int bufferCount,
              int64_t offset) const noexcept override;

    const AudioDataPtr& data() const { return audio; }

private:
    AudioDataPtr audio;
};

} // namespace sonvale
