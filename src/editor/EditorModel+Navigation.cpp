#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {

// Scrolls just far enough that `frame` shows, with a tenth of the view to spare.
void reveal(AudioTrack& track, int64_t frame) {
    const Viewport& view = track.viewport();
    const double span = view.visibleSpan();
    if (!(span > 0)) return;
    const double f = double(frame);
    if (f < view.start)
        track.scrollToStart(f - span * 0.1);
    else if (f > view.start + span)
        track.scrollToStart(f - span * 0.9);
}

} // namespace

void EditorModel::moveCursor(CursorMove move, bool extend) {
    const auto track = activeTrack();
    if (showingTimeline || !track || !track->audio()) return;
    const int64_t frames = track->frameCount();
    const Viewport& view = track->viewport();
    const auto step = std::max<int64_t>(1, std::llround(view.visibleSpan() / 10));
    const auto nudge = std::max<int64_t>(1, std::llround(view.samplesPerPoint));
    auto target = [&](int64_t from) {
        switch (move) {
        case CursorMove::start: return int64_t(0);
        case CursorMove::end: return frames;
        case CursorMove::back: return from - step;
        case CursorMove::forward: return from + step;
        case CursorMove::nudgeBack: return from - nudge;
        case CursorMove::nudgeForward: return from + nudge;
        }
        return from;
    };
    const bool backwards =
        move == CursorMove::start || move == CursorMove::back || move == CursorMove::nudgeBack;
    const std::optional<FrameRange> selection = track->selection();

    if (extend) {
        // Carry on from the last extension while its selection stands; otherwise the edge in
        // the direction of travel moves.
        auto made = [&](const KeyedSelection& k) {
            if (k.anchor == k.edge) return !selection && track->cursor() == k.anchor;
            return selection == std::optional(FrameRange{std::min(k.anchor, k.edge),
                                                         std::max(k.anchor, k.edge)});
        };
        KeyedSelection keyed{track->id()};
        if (keyedSelection && keyedSelection->track == track->id() && made(*keyedSelection))
            keyed = *keyedSelection;
        else if (selection)
            keyed = backwards ? KeyedSelection{track->id(), selection->upper, selection->lower}
                              : KeyedSelection{track->id(), selection->lower, selection->upper};
        else
            keyed.anchor = keyed.edge = playheadPosition();
        keyed.edge = std::clamp<int64_t>(target(keyed.edge), 0, frames);
        track->select(double(keyed.anchor), double(keyed.edge), false);
        keyedSelection = keyed;
        reveal(*track, keyed.edge);
        return;
    }

    keyedSelection.reset();
    int64_t to;
    if (selection && move != CursorMove::start && move != CursorMove::end)
        to = backwards ? selection->lower : selection->upper; // leaving the selection by its edge
    else
        to = std::clamp<int64_t>(target(playheadPosition()), 0, frames);
    track->setSelection(std::nullopt);
    scrub(to);
    reveal(*track, to);
}

void EditorModel::scrollByScreen(int direction) {
    const auto track = activeTrack();
    if (showingTimeline || !track || !track->audio()) return;
    track->pan(direction * track->viewport().width);
}

void EditorModel::shuttle(int direction) {
    if (direction == 0) {
        stop();
    } else if (direction > 0 && isPlaying()) {
        changePlaybackRate(1);
    } else if (direction > 0) {
        if (rate != 1.0f) {
            rate = 1.0f;
            if (engine) engine->setRate(rate);
            transportChanged.emit();
        }
        play();
    } else if (isPlaying()) {
        changePlaybackRate(-1);
    } else if (showingTimeline) {
        seek(timelineModel->cursor() - std::llround(timelineModel->sampleRate()));
    } else if (const auto track = activeTrack(); track && track->audio()) {
        seek(track->cursor() - std::llround(track->sampleRate()));
    }
}

} // namespace sonvale
