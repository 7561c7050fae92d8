#pragma once

#include "effects/EffectInsert.h"
#include "engine/AudioOutput.h"
#include "engine/LevelMeters.h"
#include "engine/RenderSource.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace RubberBand {
class RubberBandStretcher;
}

namespace sonvale {

// Plays one piece of content at a time through the audio output: a RenderSource pulls it on
// the real-time thread through the live effect insert and the live gain; a Rubber Band
// stretcher changes the speed with the pitch kept (bypassed at speed 1); the playhead is
// read on the output's stream clock, corrected for the output's and the stretcher's latency.
// The output's peaks are recorded into outputMeters() (the master slot) as they are rendered.
//
// Every member function belongs to the main thread; the render callback is private.
class PlaybackEngine final : private AudioOutput::Client {
public:
    // The speeds of the speed control, slowest first.
    static constexpr std::array<float, 6> playbackRates{0.5f, 0.75f, 1.0f, 1.25f, 1.5f, 2.0f};
    // The speed `step` places from `current` in playbackRates, clamped to the ends; a speed that
    // is not one of the steps counts as 1.
    static float steppedRate(float current, int step);
    // Output channels. The live effect runs on the content's own channels before they are laid
    // out on these (mono on both sides), so that what is heard is what Apply writes.
    static constexpr int outputChannels = 2;
    // Largest block the render source is asked for while the stretcher runs.
    static constexpr int64_t maxStretchBlock = 8192;

    using EffectFactory =
        std::function<std::unique_ptr<EffectProcessor>(double sampleRate, int channelCount)>;
    using Format = AudioOutput::Format;

    explicit PlaybackEngine(std::unique_ptr<AudioOutput> output = makePortAudioOutput());
    ~PlaybackEngine() override;
    PlaybackEngine(const PlaybackEngine&) = delete;
    PlaybackEngine& operator=(const PlaybackEngine&) = delete;

    // Makes the output ready for `content` (its rate, two channels) and returns the source
    // that will play it, with the live effect made for the content's rate and channels and
    // starting from silence. Stops whatever played before. Throws PlaybackError. Content that
    // runs effects of its own (the timeline's mix) is played with `liveEffect` false: the
    // waveform editor's effect is then not heard on it.
    RenderSourcePtr prepare(PlaybackContentPtr content, std::shared_ptr<GainBox> gain,
                            bool liveEffect = true);
    // Stops and lets go of the source; the output stream stays open for the next play.
    void unload();
    // Starts the output (the source should have been started). Clears the output meters.
    // Throws PlaybackError: the editor shows it under playbackFailedTitle.
    void start();
    // Stops the source and the output.
    void stop();
    bool isRunning() const { return output->isRunning(); }
    // True while the source plays and, at another speed than 1, until the last of it has
    // left the stretcher: the end of the content is heard before the transport stops.
    bool isSounding() const;

    const RenderSourcePtr& source() const { return renderSource; }
    const std::optional<Format>& nodeFormat() const { return streamFormat; }

    // The content frame heard at `time` on the stream clock; none before the first buffer,
    // without a source or when it is not playing.
    std::optional<int64_t> audibleFrame(HostTime time) const;
    std::optional<int64_t> audibleFrame() const { return audibleFrame(hostTimeNow()); }
    HostTime hostTimeNow() const { return output->now(); }

    float rate() const { return playbackRate; }
    void setRate(float rate);
    // Seconds from render to ear on the output, read when the output opens.
    double outputLatency() const { return latency; }
    // The stretcher's delay in seconds; 0 while it is bypassed.
    double stretchLatency() const;
    // (stretcher delay + output latency) x content rate x speed, in content frames. The
    // stretcher's delay is known once it has run, so this is computed when asked.
    int64_t latencyFrames() const;
    // The output latency in output frames: how far behind the rendered output (and so the
    // output meters, recorded after the stretcher) the ear is.
    int64_t outputLatencyFrames() const;

    const std::shared_ptr<EffectInsert>& effectInsert() const { return insert; }
    // Sets (or, with an empty function, removes) the factory of the live effect processor and
    // installs a processor made by it.
    void setEffectFactory(EffectFactory factory);
    // Builds the processor for the prepared content's rate and channel count when it was built
    // for another (or not yet) and swaps it into the insert, here on the main thread. Without
    // content nothing is built until the next prepare().
    void installEffect();
    const std::optional<Format>& effectFormat() const { return effectMadeFor; }

    // The output stopped or changed under us: reopen it and, when a source was playing,
    // restart; if that fails the source stops playing (the transport then ends as at the end
    // of the content).
    void handleConfigurationChange();
    // Main-thread poll (the transport timer): handles a failed output, or one that has
    // stopped asking for audio (a sound server that went away without a word) for
    // stalledOutputSeconds while running. True when it did. `now` is for tests.
    bool checkOutput(std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());
    static constexpr double stalledOutputSeconds = 2.0;
    // Why the last restart of handleConfigurationChange failed, once: the caller tells the
    // user (under playbackFailedTitle) and the next call returns nothing.
    std::optional<std::string> takeRestartFailure() {
        return std::exchange(restartFailure, std::nullopt);
    }

    LevelMeters& outputMeters() { return meters; }
    const LevelMeters& outputMeters() const { return meters; }
    int64_t underflowCount() const { return output->underflowCount(); }
    AudioOutput& audioOutput() { return *output; }

private:
    void render(float* const* buffers, int channelCount, int64_t frameCount,
                HostTime hostTime) noexcept override;
    void renderStretched(float* const* buffers, int channelCount, int64_t frameCount,
                         HostTime hostTime, float speed) noexcept;
    void openOutput(Format format);
    // The content frame that leaves the stretcher at `output`, and for how many output frames
    // more nothing fed comes out before it.
    struct StretchedFrame {
        int64_t frame;
        double wait;
    };
    StretchedFrame stretchedFrameAt(int64_t output) const noexcept;

    std::unique_ptr<AudioOutput> output;
    std::shared_ptr<EffectInsert> insert = std::make_shared<EffectInsert>();
    EffectFactory factory;
    std::optional<Format> effectMadeFor;
    std::optional<Format> streamFormat;
    RenderSourcePtr renderSource;
    std::unique_ptr<RubberBand::RubberBandStretcher> timePitch;
    double latency = 0;
    float playbackRate = 1;
    std::optional<std::string> restartFailure;
    LevelMeters meters;

    // Shared with the render callback.
    std::atomic<RenderSource*> current{nullptr};
    std::atomic<float> requestedRate{1};
    std::atomic<int64_t> stretchDelayFrames{0}; // output frames; 0 while bypassed
    std::atomic<bool> restartStretch{false};    // a new play: forget what the stretcher held
    std::atomic<bool> draining{false};          // the source ended; the stretcher still sounds
    std::atomic<uint64_t> callbacks{0};         // render calls so far
    // What checkOutput last saw of the callbacks, and when they last moved.
    uint64_t callbacksSeen = 0;
    std::optional<std::chrono::steady_clock::time_point> callbacksMoved;

    // Render callback only.
    bool stretching = false;
    float stretchRate = 1;
    // Where the stretcher's output stands against its input: input frame i (counted since it
    // was reset) leaves it at output frame i / speed + offset.
    int64_t stretchFed = 0;   // input frames since the stretcher was reset
    int64_t stretchTaken = 0; // output frames since then
    double offset = 0;
    double soundEnd = -1; // output frame by which the source's last frame has come out
    // The content frame each fed block began at, by input frame, newest last (a ring).
    struct FedBlock {
        int64_t input;
        int64_t frame;
    };
    std::array<FedBlock, 256> fedBlocks{};
    size_t fedCount = 0;
    std::vector<float> scratch; // outputChannels x maxStretchBlock
    std::array<float*, outputChannels> scratchChannels{};
};

} // namespace sonvale
