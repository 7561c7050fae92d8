#include "engine/PlaybackEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <rubberband/RubberBandStretcher.h>

namespace sonvale {

using RubberBand::RubberBandStretcher;

float PlaybackEngine::steppedRate(float current, int step) {
    int index = 2; // 1.0
    for (size_t i = 0; i < playbackRates.size(); ++i)
        if (playbackRates[i] == current) index = int(i);
    index = std::clamp(index + step, 0, int(playbackRates.size()) - 1);
    return playbackRates[size_t(index)];
}

PlaybackEngine::PlaybackEngine(std::unique_ptr<AudioOutput> output)
    : output(std::move(output)) {}

PlaybackEngine::~PlaybackEngine() {
    output->close();
    current.store(nullptr);
}

void PlaybackEngine::openOutput(Format format) {
    output->close();
    streamFormat.reset();
    output->open(format, this);
    streamFormat = format;
    latency = output->outputLatency();
}

RenderSourcePtr PlaybackEngine::prepare(PlaybackContentPtr content, std::shared_ptr<GainBox> gain,
                                        bool liveEffect) {
    if (!content || !(content->sampleRate() > 0) || content->channelCount() < 1)
        throw PlaybackError("There is no audio to play.");
    stop();
    current.store(nullptr);
    renderSource.reset();

    Format format{content->sampleRate(), outputChannels};
    if (!streamFormat || *streamFormat != format || !output->isOpen()) {
        openOutput(format);
        // Real-time mode with the R3 engine; the callback is the only thread that touches it.
        timePitch = std::make_unique<RubberBandStretcher>(
            size_t(std::lround(format.sampleRate)), size_t(outputChannels),
            RubberBandStretcher::OptionProcessRealTime | RubberBandStretcher::OptionEngineFiner |
                RubberBandStretcher::OptionThreadingNever,
            1.0, 1.0);
        timePitch->setMaxProcessSize(size_t(maxStretchBlock));
        scratch.assign(size_t(outputChannels * maxStretchBlock), 0.0f);
        for (int c = 0; c < outputChannels; ++c)
            scratchChannels[size_t(c)] = scratch.data() + c * maxStretchBlock;
        stretching = false;
        stretchDelayFrames.store(0);
    }

    renderSource = std::make_shared<RenderSource>(std::move(content), std::move(gain),
                                                  liveEffect ? insert : nullptr);
    current.store(renderSource.get());
    if (!liveEffect) return renderSource;
    // Like Apply, a play starts the effect from silence: no echo of the last play comes back.
    insert->resetProcessor();
    installEffect();
    return renderSource;
}

void PlaybackEngine::unload() {
    stop();
    current.store(nullptr);
    renderSource.reset();
}

void PlaybackEngine::start() {
    if (!renderSource) return;
    if (!output->isOpen() && streamFormat) openOutput(*streamFormat);
    meters.clear();
    restartStretch.store(true);
    output->start();
    latency = output->outputLatency();
}

void PlaybackEngine::stop() {
    if (renderSource) renderSource->stop();
    output->stop();
    draining.store(false);
}

bool PlaybackEngine::isSounding() const {
    if (!renderSource) return false;
    return renderSource->playing.load() || (output->isRunning() && draining.load());
}

std::optional<int64_t> PlaybackEngine::audibleFrame(HostTime time) const {
    if (!renderSource) return std::nullopt;
    const auto [renderedFrom, renderedAt] = renderSource->rendered.load();
    if (renderedAt == 0 || !isSounding()) return std::nullopt;
    // While stretching, renderedFrom is already the frame leaving the stretcher at renderedAt.
    double elapsed = secondsFromHostTime(time) - secondsFromHostTime(renderedAt) - latency;
    return renderedFrom +
           std::llround(elapsed * renderSource->content->sampleRate() * double(playbackRate));
}

void PlaybackEngine::setRate(float rate) {
    playbackRate = rate > 0 ? rate : 1.0f;
    requestedRate.store(playbackRate);
}

double PlaybackEngine::stretchLatency() const {
    if (!streamFormat) return 0;
    return double(stretchDelayFrames.load(std::memory_order_relaxed)) / streamFormat->sampleRate;
}

int64_t PlaybackEngine::outputLatencyFrames() const {
    return streamFormat ? std::llround(latency * streamFormat->sampleRate) : 0;
}

int64_t PlaybackEngine::latencyFrames() const {
    double rateHz = renderSource ? renderSource->content->sampleRate()
                                 : (streamFormat ? streamFormat->sampleRate : 0);
    return int64_t((stretchLatency() + latency) * rateHz * double(playbackRate));
}

void PlaybackEngine::setEffectFactory(EffectFactory newFactory) {
    factory = std::move(newFactory);
    effectMadeFor.reset();
    installEffect();
}

void PlaybackEngine::installEffect() {
    if (!factory || !renderSource) {
        // No processor without a factory, nor one made for content played before: the next
        // prepare() builds it.
        auto old = insert->setProcessor(nullptr, 0); // freed here, on the main thread
        effectMadeFor.reset();
        return;
    }
    const Format format{renderSource->content->sampleRate(), renderSource->content->channelCount()};
    if (effectMadeFor == format) return;
    auto processor = factory(format.sampleRate, format.channelCount);
    auto old = insert->setProcessor(std::move(processor), format.channelCount);
    effectMadeFor = format;
}

void PlaybackEngine::handleConfigurationChange() {
    const bool wasPlaying = renderSource && renderSource->playing.load();
    output->stop();
    output->close();
    if (!streamFormat) return;
    try {
        openOutput(*streamFormat);
        if (wasPlaying) {
            output->start();
            latency = output->outputLatency();
        }
    } catch (const PlaybackError& error) {
        if (renderSource) renderSource->playing.store(false);
        if (wasPlaying) restartFailure = error.what();
    }
}

bool PlaybackEngine::checkOutput(std::chrono::steady_clock::time_point now) {
    const uint64_t calls = callbacks.load(std::memory_order_relaxed);
    if (!output->isRunning() || calls != callbacksSeen || !callbacksMoved) {
        callbacksSeen = calls;
        callbacksMoved = now;
    }
    const bool stalled =
        std::chrono::duration<double>(now - *callbacksMoved).count() >= stalledOutputSeconds;
    if (!output->hasFailed() && !stalled) return false;
    handleConfigurationChange();
    callbacksMoved = now;
    return true;
}

void PlaybackEngine::render(float* const* buffers, int channelCount, int64_t frameCount,
                            HostTime hostTime) noexcept {
    callbacks.fetch_add(1, std::memory_order_relaxed);
    RenderSource* source = current.load(std::memory_order_acquire);
    const float speed = requestedRate.load(std::memory_order_relaxed);
    if (restartStretch.exchange(false, std::memory_order_acquire)) {
        stretching = false;
        soundEnd = -1;
        draining.store(false, std::memory_order_relaxed);
        stretchDelayFrames.store(0, std::memory_order_relaxed);
    }
    if (!source) {
        for (int c = 0; c < channelCount; ++c)
            std::memset(buffers[c], 0, size_t(frameCount) * sizeof(float));
    } else if (speed == 1.0f || !timePitch) {
        if (stretching) {
            // Back to speed 1: what the stretcher held but had not played yet plays now.
            if (fedCount > 0 && source->seekRequest.load(std::memory_order_relaxed) < 0)
                source->position.store(stretchedFrameAt(stretchTaken).frame,
                                       std::memory_order_relaxed);
            stretching = false;
            stretchDelayFrames.store(0, std::memory_order_relaxed);
        }
        source->render(frameCount, buffers, channelCount, hostTime);
    } else {
        renderStretched(buffers, channelCount, frameCount, hostTime, speed);
    }
    meters.record(LevelMeters::Slot::master(), buffers[0],
                  channelCount > 1 ? buffers[1] : buffers[0], frameCount);
    meters.advanceMixed(frameCount);
}

PlaybackEngine::StretchedFrame PlaybackEngine::stretchedFrameAt(int64_t output) const noexcept {
    const double input = (double(output) - offset) * double(stretchRate);
    const size_t kept = std::min(fedCount, fedBlocks.size());
    const FedBlock* block = &fedBlocks[(fedCount - kept) % fedBlocks.size()]; // the oldest
    for (size_t k = 1; k <= kept; ++k) {
        const FedBlock& b = fedBlocks[(fedCount - k) % fedBlocks.size()];
        if (double(b.input) <= input) {
            block = &b;
            break;
        }
    }
    // Before the first fed frame comes out, it is that frame, after a wait.
    const double ahead = std::max(double(block->input) - input, 0.0);
    return {block->frame + std::max<int64_t>(std::llround(input - double(block->input)), 0),
            ahead / double(stretchRate)};
}

void PlaybackEngine::renderStretched(float* const* buffers, int channelCount, int64_t frameCount,
                                     HostTime hostTime, float speed) noexcept {
    RenderSource* source = current.load(std::memory_order_relaxed);
    if (!stretching || stretchRate != speed) {
        // A new speed starts the stretcher afresh (a gap of its start delay), so that its
        // output keeps a fixed relation to its input. What it held but had not played yet is
        // played again, unless a seek is waiting.
        if (stretching && fedCount > 0 && source->seekRequest.load(std::memory_order_relaxed) < 0)
            source->position.store(stretchedFrameAt(stretchTaken).frame, std::memory_order_relaxed);
        timePitch->reset();
        timePitch->setTimeRatio(1.0 / double(speed));
        stretching = true;
        stretchRate = speed;
        stretchFed = stretchTaken = 0;
        fedCount = 0;
        soundEnd = -1;
        // Input frame i leaves the stretcher at output frame i / speed + start delay - start
        // pad / speed: measured against where a burst comes out, within a few milliseconds at
        // every speed step.
        offset = double(timePitch->getStartDelay()) -
                 double(timePitch->getPreferredStartPad()) / double(speed);
    }
    const double perInput = 1.0 / double(speed);

    // Feed the stretcher until it holds a buffer's worth.
    for (int round = 0; round < 64 && timePitch->available() < int(frameCount); ++round) {
        int64_t wanted = int64_t(timePitch->getSamplesRequired());
        int64_t n = std::clamp<int64_t>(wanted > 0 ? wanted : 256, 1, maxStretchBlock);
        const bool wasPlaying = source->playing.load(std::memory_order_relaxed);
        source->render(n, scratchChannels.data(), outputChannels, 0);
        if (wasPlaying && !source->playing.load(std::memory_order_relaxed))
            soundEnd = double(stretchFed + n) * perInput + offset;
        fedBlocks[fedCount % fedBlocks.size()] = {stretchFed, source->blockStart};
        ++fedCount;
        stretchFed += n;
        timePitch->process(scratchChannels.data(), size_t(n), false);
    }

    // The content frame at the start of this buffer: the input frame that leaves the stretcher
    // here, found among the fed blocks.
    if (hostTime != 0 && fedCount > 0) {
        const StretchedFrame heard = stretchedFrameAt(stretchTaken);
        source->rendered.store(
            heard.frame,
            hostTime + HostTime(std::llround(heard.wait / streamFormat->sampleRate * 1e9)));
        // How long the newest fed frame takes to come out, in output frames.
        const double newest = double(stretchFed) * perInput + offset;
        stretchDelayFrames.store(std::max<int64_t>(std::llround(newest) - stretchTaken, 0),
                                 std::memory_order_relaxed);
    }

    int available = std::max(timePitch->available(), 0);
    int64_t got = std::min<int64_t>(available, frameCount);
    if (got > 0) timePitch->retrieve(buffers, size_t(got));
    stretchTaken += got;
    draining.store(soundEnd >= 0 && double(stretchTaken) < soundEnd, std::memory_order_relaxed);
    for (int c = 0; c < channelCount; ++c)
        std::memset(buffers[c] + got, 0, size_t(frameCount - got) * sizeof(float));
}

} // namespace sonvale
