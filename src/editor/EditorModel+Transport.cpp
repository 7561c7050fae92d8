#include "editor/EditorModel.h"
#include "engine/PlaybackContent.h"
#include "engine/PlaybackEngine.h"
#include "engine/RenderSource.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace sonvale {

void EditorModel::connectTransport() {
    // While a track plays, its playhead is the frame being heard and a scrub is a seek.
    playhead.position = [this](const AudioTrack& track) -> std::optional<int64_t> {
        if (playingTrack == track.id()) return heardFrame();
        return std::nullopt;
    };
    playhead.scrub = [this](AudioTrack& track, int64_t frame) {
        if (playingTrack == track.id())
            seek(frame);
        else
            track.setCursor(std::clamp<int64_t>(frame, 0, track.frameCount()));
    };
    selectionChanged.connect([this] { continuePlaybackOnSelectedTrack(); });
}

PlaybackEngine& EditorModel::player() {
    if (!engine) {
        engine = std::make_unique<PlaybackEngine>();
        engine->setRate(rate);
    }
    if (!previewHooks.install) {
        // From the first play on, the chain being edited is heard through the engine's insert.
        PlaybackEngine* out = engine.get();
        setEffectPreviewHooks(
            {[out](EffectFactory factory) { out->setEffectFactory(std::move(factory)); },
             [out](bool flag) { out->effectInsert()->setBypassed(flag); }});
    }
    return *engine;
}

bool EditorModel::canPlay() const {
    if (showingTimeline) return timelineModel->frameCount() > 0;
    const auto track = activeTrack();
    return track && track->audio() && track->frameCount() > 0 && !track->isRecording();
}

std::optional<int64_t> EditorModel::heardFrame() const {
    if (!engine || !playingSource) return std::nullopt;
    const int64_t frames = playingSource->content->frameCount();
    // Before the first buffer is heard the playhead waits at the frame playback started from.
    const int64_t frame = engine->audibleFrame().value_or(playingSource->rendered.load().frame);
    return std::clamp<int64_t>(frame, 0, frames);
}

void EditorModel::play() {
    if (!canPlay()) return;
    if (showingTimeline) {
        playTimeline();
        if (isPlaying()) startPlaybackTimer();
        return;
    }
    const auto track = activeTrack();
    const int64_t frames = track->frameCount();
    const auto& selection = track->selection();
    const int64_t cursor = track->cursor();
    const auto paused = std::exchange(pausedAt, std::nullopt);
    if (selection && !selection->isEmpty()) {
        playingSelection = true;
        const bool resume =
            paused == cursor && cursor > selection->lower && cursor < selection->upper;
        playStart = resume ? cursor : selection->lower;
        playFrom(track, *selection, playStart);
    } else {
        playingSelection = false;
        playStart = cursor >= 0 && cursor < frames ? cursor : 0;
        playFrom(track, {0, frames}, playStart);
    }
    if (isPlaying()) startPlaybackTimer();
}

bool EditorModel::startSource(PlaybackContentPtr content, std::shared_ptr<GainBox> gain,
                              bool liveEffect, FrameRange range, int64_t at) {
    PlaybackEngine& out = player();
    try {
        out.setRate(rate);
        auto source = out.prepare(std::move(content), std::move(gain), liveEffect);
        source->start(range, at, looping);
        out.start();
        playingSource = std::move(source);
        return true;
    } catch (const std::exception& error) {
        out.unload();
        playingSource.reset();
        playingTrack.reset();
        playingTimeline = false;
        playbackTimer.cancel();
        showAlert({playbackFailedTitle, userMessage(error)});
        transportChanged.emit();
        return false;
    }
}

void EditorModel::playFrom(const AudioTrackPtr& track, FrameRange range, int64_t at) {
    if (!startSource(AudioDataContent::make(track->audio()), track->gainBox(), true, range, at))
        return;
    playingTrack = track->id();

    // Edits made while the track plays are heard at once: playback picks up the new audio at
    // the frame being heard.
    std::weak_ptr<EditorModel*> weak = self;
    const Uuid id = track->id();
    track->onAudioReplaced = [weak, id](const AudioDataPtr&) {
        const auto alive = weak.lock();
        if (!alive) return;
        EditorModel& model = **alive;
        if (model.playingTrack != id) return;
        const auto playing = model.track(id);
        if (!playing || !playing->audio() || playing->frameCount() == 0) {
            model.finishPlayback(false);
            return;
        }
        const int64_t frames = playing->frameCount();
        FrameRange range{0, frames};
        if (model.playingSelection && playing->selection() && !playing->selection()->isEmpty())
            range = *playing->selection();
        else
            model.playingSelection = false;
        const int64_t at = std::clamp<int64_t>(model.heardFrame().value_or(range.lower),
                                               range.lower, range.upper - 1);
        model.playFrom(playing, range, at);
    };
    transportChanged.emit();
    playheadChanged.emit();
}

void EditorModel::stop() {
    if (!isPlaying()) return;
    finishPlayback(true);
}

void EditorModel::pause() {
    if (!isPlaying()) return;
    const auto heard = heardFrame();
    const bool wasTimeline = playingTimeline;
    const auto playing = playingTrack ? track(*playingTrack) : nullptr;
    finishPlayback(false);
    if (!heard) return;
    if (wasTimeline)
        timelineModel->setCursor(*heard);
    else if (playing)
        playing->setCursor(*heard);
    pausedAt = heard;
}

void EditorModel::stopAndReturn() {
    if (!isPlaying()) return;
    const bool wasTimeline = playingTimeline;
    const auto playing = playingTrack ? track(*playingTrack) : nullptr;
    finishPlayback(false);
    if (wasTimeline)
        timelineModel->setCursor(playStart);
    else if (playing)
        playing->setCursor(std::clamp<int64_t>(playStart, 0, playing->frameCount()));
}

void EditorModel::goToStart() {
    if (isPlaying()) {
        seek(0); // kept inside the play range: the selection's start while one plays
        return;
    }
    if (showingTimeline) {
        timelineModel->setSelection(std::nullopt);
        timelineModel->setCursor(0);
    } else if (const auto track = activeTrack()) {
        track->setSelection(std::nullopt);
        track->setCursor(0);
    }
}

void EditorModel::goToEnd() {
    if (isPlaying()) finishPlayback(false);
    if (showingTimeline) {
        timelineModel->setSelection(std::nullopt);
        timelineModel->setCursor(timelineModel->frameCount());
    } else if (const auto track = activeTrack(); track && track->audio()) {
        track->setSelection(std::nullopt);
        track->setCursor(track->frameCount());
    }
}

void EditorModel::togglePlayback() {
    if (isPlaying())
        stop();
    else
        play();
}

void EditorModel::finishPlayback(bool moveCursor) {
    const auto heard = heardFrame();
    const auto playing = playingTrack ? track(*playingTrack) : nullptr;
    const bool wasTimeline = std::exchange(playingTimeline, false);
    if (engine) engine->unload();
    playbackTimer.cancel();
    playingSource.reset();
    playingTrack.reset();
    if (moveCursor && !playingSelection && heard && playing) playing->setCursor(*heard);
    if (moveCursor && !playingSelection && heard && wasTimeline) timelineModel->setCursor(*heard);
    playingSelection = false;
    transportChanged.emit();
    playheadChanged.emit();
}

void EditorModel::seek(int64_t frame) {
    if (isPlaying() && playingSource) {
        const int64_t lower = playingSource->rangeStart.load();
        const int64_t upper =
            std::min(playingSource->rangeEnd.load(), playingSource->content->frameCount());
        playingSource->seek(std::clamp<int64_t>(frame, lower, std::max(lower, upper - 1)));
        playheadChanged.emit();
        return;
    }
    if (showingTimeline)
        timelineModel->setCursor(frame);
    else if (const auto track = activeTrack())
        track->setCursor(std::clamp<int64_t>(frame, 0, track->frameCount()));
}

void EditorModel::loopPlayback() {
    looping = !looping;
    if (playingSource) playingSource->looping.store(looping);
    transportChanged.emit();
}

void EditorModel::changePlaybackRate(int step) {
    const float next = PlaybackEngine::steppedRate(rate, step);
    if (next == rate) return;
    rate = next;
    if (engine) engine->setRate(rate);
    transportChanged.emit();
}

std::string EditorModel::playbackRateText() const {
    char text[16];
    std::snprintf(text, sizeof text, "%g", double(rate));
    return std::string(text) + "\u00d7";
}

void EditorModel::startPlaybackTimer() {
    playbackTimer.cancel();
    std::weak_ptr<EditorModel*> weak = self;
    playbackTimer = exec.postAfter(playbackTimerInterval, [weak] {
        if (const auto alive = weak.lock()) (*alive)->playbackTick();
    });
}

void EditorModel::playbackTick() {
    if (!playingSource || !engine) return;
    engine->checkOutput();
    if (auto failure = engine->takeRestartFailure()) {
        // The output went away and would not come back.
        finishPlayback(false);
        showAlert({playbackFailedTitle, *failure});
        return;
    }
    if (!engine->isSounding()) {
        // The content ran out and has been heard.
        finishPlayback(false);
        return;
    }
    playheadChanged.emit();
    startPlaybackTimer();
}

void EditorModel::continuePlaybackOnSelectedTrack() {
    if (!isPlaying() || !playingSource || playingTimeline) return;
    const auto active = activeTrack();
    if (active && active->id() == *playingTrack) return;
    if (!active || !canPlay()) {
        finishPlayback(false);
        return;
    }
    // The same moment in time on the newly selected track, through to its end.
    const double seconds = double(heardFrame().value_or(0)) / playingSource->content->sampleRate();
    const int64_t frames = active->frameCount();
    const auto at = int64_t(std::llround(seconds * active->sampleRate()));
    if (at >= frames) {
        finishPlayback(false);
        return;
    }
    playingSelection = false;
    playFrom(active, {0, frames}, at);
}

} // namespace sonvale
