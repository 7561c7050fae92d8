#include "engine/PlaybackEngine.h"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>
#include <cstring>

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

RenderSourcePtr PlaybackEngine::prepare(PlaybackContentPtr content,
                                        std::shared_ptr<GainBox> gain) {
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

    renderSource = std::make_shared<RenderSource>(std::move(content), std::move(gain), insert);
    current.store(renderSource.get());
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
    output->start();
    latency = output->outputLatency();
}

void PlaybackEngine::stop() {
    if (renderSource) renderSource->stop();
    output->stop();
}

std::optional<int64_t> PlaybackEngine::audibleFrame(HostTime time) const {
    if (!renderSource) return std::nullopt;
    HostTime renderedAt = renderSource->renderedAt.load(std::memory_order_relaxed);
    if (renderedAt == 0 || !renderSource->playing.load()) return std::nullopt;
    int64_t renderedFrom = renderSource->renderedFrom.load(std::memory_order_relaxed);
    double elapsed = secondsFromHostTime(time) - secondsFromHostTime(renderedAt) - latency -
                     stretchLatency();
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
    if (!factory) {
        if (effectMadeFor || insert->hasProcessor()) {
            auto old = insert->setProcessor(nullptr, 0); // freed here, on the main thread
            effectMadeFor.reset();
        }
        return;
    }
    if (!streamFormat || effectMadeFor == streamFormat) return;
    auto processor = factory(streamFormat->sampleRate, streamFormat->channelCount);
    auto old = insert->setProcessor(std::move(processor), streamFormat->channelCount);
    effectMadeFor = streamFormat;
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
    } catch (const PlaybackError&) {
        if (renderSource) renderSource->playing.store(false);
    }
}

bool PlaybackEngine::checkOutput() {
    if (!output->hasFailed()) return false;
    handleConfigurationChange();
    return true;
}

void PlaybackEngine::render(float* const* buffers, int channelCount, int64_t frameCount,
                            HostTime hostTime) noexcept {
    RenderSource* source = current.load(std::memory_order_acquire);
    const float speed = requestedRate.load(std::memory_order_relaxed);
    if (!source) {
        for (int c = 0; c < channelCount; ++c)
            std::memset(buffers[c], 0, size_t(frameCount) * sizeof(float));
    } else if (speed == 1.0f || !timePitch) {
        if (stretching) {
            stretching = false;
            stretchDelayFrames.store(0, std::memory_order_relaxed);
        }
        source->render(frameCount, buffers, channelCount, hostTime);
    } else {
        renderStretched(buffers, channelCount, frameCount, hostTime, speed);
    }
    meters.record(LevelMeters::Slot::master(), buffers[0], channelCount > 1 ? buffers[1] : buffers[0],
                  frameCount);
    meters.advanceMixed(frameCount);
}

void PlaybackEngine::renderStretched(float* const* buffers, int channelCount, int64_t frameCount,
                                     HostTime hostTime, float speed) noexcept {
    RenderSource* source = current.load(std::memory_order_relaxed);
    if (!stretching) {
        timePitch->reset();
        stretching = true;
        stretchRate = 0;
    }
    if (stretchRate != speed) {
        timePitch->setTimeRatio(1.0 / double(speed));
        stretchRate = speed;
        // Without a silent pad in front, a frame leaves the stretcher after its start delay
        // (output frames) plus the pad it would have wanted (input frames), as measured against
        // the captured output.
        stretchDelayFrames.store(int64_t(timePitch->getStartDelay()) +
                                     std::llround(double(timePitch->getPreferredStartPad()) / double(speed)),
                                 std::memory_order_relaxed);
    }
    // Feed the stretcher until it holds a buffer's worth. Only the first block of a callback
    // carries a time stamp: it is heard after what the stretcher already holds ready.
    HostTime stamp = 0;
    if (hostTime != 0)
        stamp = hostTime + HostTime(std::llround(double(std::max(timePitch->available(), 0)) /
                                                 streamFormat->sampleRate * 1e9));
    for (int round = 0; round < 64 && timePitch->available() < int(frameCount); ++round) {
        int64_t wanted = int64_t(timePitch->getSamplesRequired());
        int64_t n = std::clamp<int64_t>(wanted > 0 ? wanted : 256, 1, maxStretchBlock);
        source->render(n, scratchChannels.data(), outputChannels, stamp);
        stamp = 0;
        timePitch->process(scratchChannels.data(), size_t(n), false);
    }
    int available = std::max(timePitch->available(), 0);
    int64_t got = std::min<int64_t>(available, frameCount);
    if (got > 0) timePitch->retrieve(buffers, size_t(got));
    for (int c = 0; c < channelCount; ++c)
        std::memset(buffers[c] + got, 0, size_t(frameCount - got) * sizeof(float));
}

} // namespace sonvale
