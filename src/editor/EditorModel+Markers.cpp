#include "editor/EditorModel.h"

#include <algorithm>

namespace sonvale {

int64_t EditorModel::playheadPosition() const {
    const auto track = activeTrack();
    if (!track) return 0;
    if (playhead.position)
        if (auto heard = playhead.position(*track)) return *heard;
    return track->cursor();
}

void EditorModel::scrub(int64_t frame) {
    const auto track = activeTrack();
    if (!track) return;
    if (playhead.scrub)
        playhead.scrub(*track, frame);
    else
        track->setCursor(std::clamp<int64_t>(frame, 0, track->frameCount()));
}

bool EditorModel::canAddMarker() const {
    const auto track = activeTrack();
    return track && track->audio();
}

bool EditorModel::hasMarkers() const {
    const auto track = activeTrack();
    return track && !track->markers().empty();
}

std::string EditorModel::addMarkerTitle() const {
    const auto track = activeTrack();
    return track && track->selection() ? "Add Region from Selection" : "Add Marker at Playhead";
}

void EditorModel::addMarker() {
    if (!canAddMarker()) return;
    const auto track = activeTrack();
    track->addMarker(playheadPosition(), track->selection());
}

void EditorModel::removeAllMarkers() {
    if (const auto track = activeTrack()) track->removeAllMarkers();
}

void EditorModel::jumpToMarker(int direction) {
    const auto track = activeTrack();
    if (!track) return;
    const std::vector<int64_t> boundaries = track->markerBoundaries();
    const int64_t position = playheadPosition();
    if (direction < 1) {
        const auto after = std::lower_bound(boundaries.begin(), boundaries.end(), position);
        if (after != boundaries.begin()) scrub(*std::prev(after));
    } else {
        const auto next = std::upper_bound(boundaries.begin(), boundaries.end(), position);
        if (next != boundaries.end()) scrub(*next);
    }
}

} // namespace sonvale
