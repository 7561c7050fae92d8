#pragma once

#include "audio/FloatBuffer.h"

#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace sonvale {

// A half-open range of frames, lower <= upper.
struct FrameRange {
    int64_t lower = 0;
    int64_t upper = 0;
    int64_t length() const { return upper - lower; }
    bool isEmpty() const { return upper <= lower; }
    bool contains(int64_t frame) const { return frame >= lower && frame < upper; }
    friend bool operator==(const FrameRange&, const FrameRange&) = default;
};

// One level of a channel's summary pyramid: per block of `blockSize` samples, the minimum
// and maximum sample (interleaved in `buffer`, min first) and the sum of squares (`energy`).
struct PeakLevel {
    int64_t blockSize = 0;
    int64_t count = 0;
    FloatBuffer buffer; // 2 * count floats
    FloatBuffer energy; // count floats
    float minimum(int64_t i) const { return buffer[2 * i]; }
    float maximum(int64_t i) const { return buffer[2 * i + 1]; }
};

// What one pixel column of a waveform shows.
struct WaveColumn {
    float min = 0;
    float max = 0;
    float rms = 0;
    friend bool operator==(const WaveColumn&, const WaveColumn&) = default;
};

// The clipboard's contents: samples copied out of an AudioData, one array per channel.
struct AudioClip {
    double sampleRate = 0;
    std::vector<std::vector<float>> channels;

    // Frames in the clip: the length of the first channel, 0 without channels.
    int64_t length() const { return channels.empty() ? 0 : int64_t(channels[0].size()); }
    // The clip with `channelCount` channels: several to mono are averaged; otherwise extra
    // channels are dropped and missing ones repeat the last (mono becomes a copy per channel).
    AudioClip matching(int channelCount) const;
};

// One channel's samples and their level pyramid. Immutable once built.
class ChannelData {
public:
    ChannelData(FloatBuffer samples, std::vector<PeakLevel> levels)
        : buffer(std::move(samples))
        , pyramid(std::move(levels)) {}
    std::span<const float> samples() const { return buffer.span(); }
    const float* data() const { return buffer.data(); }
    const std::vector<PeakLevel>& levels() const { return pyramid; }
    const FloatBuffer& sampleBuffer() const { return buffer; }

private:
    friend class AudioData; // edits a channel in place when nothing else can see it
    FloatBuffer buffer;
    std::vector<PeakLevel> pyramid;
};

// One channel as waveColumns reads it: its samples and its level pyramid. A level whose last
// blocks are not summarised yet (audio still being recorded) is completed from the samples.
struct WaveSource {
    const float* samples = nullptr;
    const std::vector<PeakLevel>* levels = nullptr;
};
std::vector<WaveColumn> waveColumns(std::span<const WaveSource> channels, int64_t frameCount,
                                    FrameRange range, int columns);

class AudioData;
using AudioDataPtr = std::shared_ptr<const AudioData>;
using ChannelDataPtr = std::shared_ptr<const ChannelData>;

// Decoded planar 32-bit float audio with each channel's level pyramid and the overall peak.
// Immutable and shared by reference: any thread may read it, including the render thread.
// Built only by AudioLoader::makeAudioData.
class AudioData {
public:
    const double sampleRate;
    const int64_t frameCount;
    const std::vector<ChannelDataPtr> channels;
    const float peak; // largest |sample| over all channels, linear

    int channelCount() const { return int(channels.size()); }
    const float* samples(int channel) const { return channels[size_t(channel)]->data(); }
    double duration() const { return sampleRate > 0 ? double(frameCount) / sampleRate : 0; }

    // One column per pixel over `range` (clamped to the audio), drawn from the pyramid.
    // Only the first two channels are read; both merge into the same columns.
    std::vector<WaveColumn> waveColumns(FrameRange range, int columns) const;
    // A copy of every channel's samples in `range`.
    AudioClip clip(FrameRange range) const;
    // New audio with `range` replaced by `clip` (matched to this channel count); the clip's
    // rate is not checked here. Throws EditError::wouldRemoveEverything or outOfMemory.
    AudioDataPtr replacing(FrameRange range, const AudioClip& clip) const;
    // The same edit for the owner of `audio`. When nothing else holds it (no clipboard,
    // player or background job), its buffers become the new audio's: only the frames after
    // the range move and only their levels are rebuilt, with no second copy of the audio.
    // `audio` is then released; otherwise it is left alone and copied as by replacing().
    // On a throw `audio` is as it was.
    static AudioDataPtr replacingOwned(AudioDataPtr& audio, FrameRange range,
                                       const AudioClip& clip);
    // The frame next to the nearest sign change of the mono sum within `radius`, or `frame`.
    int64_t nearestZeroCrossing(int64_t frame, int64_t radius) const;
    // The same audio at another sample rate (mastering-quality band-limited conversion).
    AudioDataPtr resampled(double newSampleRate) const;
    // From the first to the last frame where any channel's magnitude exceeds the threshold,
    // widened by `padding` seconds on both sides; nothing when no frame is that loud.
    std::optional<FrameRange> audibleRange(double thresholdDB, double padding) const;

private:
    friend struct AudioLoader;
    AudioData(double sampleRate, int64_t frameCount, std::vector<ChannelDataPtr> channels,
              float peak)
        : sampleRate(sampleRate)
        , frameCount(frameCount)
        , channels(std::move(channels))
        , peak(peak) {}
};

// A linear gain shared between the main thread (which writes it) and the render thread
// (which reads it): one 32-bit atomic word with the float's bits. No lock, no smoothing.
class GainBox {
public:
    explicit GainBox(float linear = 1.0f)
        : bits(std::bit_cast<uint32_t>(linear)) {}
    void store(float linear) noexcept {
        bits.store(std::bit_cast<uint32_t>(linear), std::memory_order_relaxed);
    }
    float load() const noexcept {
        return std::bit_cast<float>(bits.load(std::memory_order_relaxed));
    }

private:
    std::atomic<uint32_t> bits;
};

// Bytes of memory that audio holds, as the status bar shows them.
struct AudioMemory {
    int64_t samples = 0;
    int64_t levels = 0; // the waveform overview
    int64_t spectrograms = 0;
    int64_t clipboard = 0;
    int64_t total() const { return samples + levels + spectrograms + clipboard; }

    class Accumulator;
    // The process's resident memory as the system reports it (the "Whole app" row).
    static int64_t processFootprint();
};

// Adds up audio, counting each shared sample buffer once however many owners it has.
class AudioMemory::Accumulator {
public:
    void addAudio(const AudioDataPtr& audio);
    void addSpectrogramBytes(int64_t bytes) { result.spectrograms += bytes; }
    void setClipboard(const AudioClip* clip);
    AudioMemory result;

private:
    std::vector<const void*> seen;
};

} // namespace sonvale
