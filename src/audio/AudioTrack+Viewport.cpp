#include "audio/AudioTrack.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sonvale {

// Every viewport operation ends here: the zoom lies between the deepest zoom and the whole
// track fitting the width, and the visible span starts inside the audio.
void AudioTrack::clampViewport(Viewport& v) const {
    const double frames = double(frameCount());
    double widest = v.width > 0 ? frames / v.width : std::numeric_limits<double>::infinity();
    if (!(widest >= minSamplesPerPoint)) widest = minSamplesPerPoint;
    if (!(v.samplesPerPoint >= minSamplesPerPoint)) v.samplesPerPoint = minSamplesPerPoint;
    v.samplesPerPoint = std::min(v.samplesPerPoint, widest);
    const double latestStart = std::max(0.0, frames - v.samplesPerPoint * v.width);
    if (!(v.start >= 0)) v.start = 0;
    v.start = std::min(v.start, latestStart);
}

void AudioTrack::commitViewport(const Viewport& v) {
    if (v == view) return;
    view = v;
    viewportChanged.emit();
}

void AudioTrack::setViewport(const Viewport& viewport) {
    Viewport v = viewport;
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::fitViewportToAudio() {
    if (!(view.width > 0)) return; // updateWidth fits it once the view has a width
    Viewport v = view;
    v.samplesPerPoint = std::max(double(frameCount()) / v.width, minSamplesPerPoint);
    v.start = 0;
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::zoom(double factor, double anchorX) {
    if (!(view.samplesPerPoint > 0) || !(view.width > 0) || !(factor > 0)) return;
    Viewport v = view;
    const double anchorFrame = v.start + anchorX * v.samplesPerPoint;
    v.samplesPerPoint *= factor;
    clampViewport(v);
    v.start = anchorFrame - anchorX * v.samplesPerPoint;
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::pan(double points) {
    Viewport v = view;
    v.start += points * v.samplesPerPoint;
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::show(double from, double to) {
    if (!(view.width > 0) || !(from < to)) return;
    Viewport v = view;
    v.samplesPerPoint = (to - from) / v.width;
    v.start = from;
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::scrollToStart(double start) {
    Viewport v = view;
    v.start = start;
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::follow(int64_t frame) {
    const double f = double(frame);
    if (f >= view.start && f < view.start + view.visibleSpan()) return;
    Viewport v = view;
    v.start = f - 0.02 * v.visibleSpan(); // 2 % of the span stays visible before the frame
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::updateWidth(double points) {
    if (!(points > 0) || !std::isfinite(points)) return;
    const double frames = double(frameCount());
    Viewport v = view;
    if (!(v.width > 0)) {
        v.width = points;
        v.samplesPerPoint = std::max(frames / points, minSamplesPerPoint);
        v.start = 0;
    } else {
        const bool showedWhole = std::abs(v.visibleSpan() - frames) <= 1;
        v.width = points;
        if (showedWhole) {
            v.samplesPerPoint = frames / points;
            v.start = 0;
        }
    }
    clampViewport(v);
    commitViewport(v);
}

void AudioTrack::setVerticalZoom(float zoom) {
    if (!(zoom > 0) || !std::isfinite(zoom) || zoom == vertical) return;
    vertical = zoom;
    viewportChanged.emit();
}

} // namespace sonvale
