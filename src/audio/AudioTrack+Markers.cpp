#include "audio/AudioTrack.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace sonvale {

namespace {

// Sorted by start; at equal starts points come before regions, and shorter regions first.
void sortMarkers(std::vector<Marker>& markers) {
    std::stable_sort(markers.begin(), markers.end(), [](const Marker& a, const Marker& b) {
        if (a.start != b.start) return a.start < b.start;
        if (a.end.has_value() != b.end.has_value()) return !a.end.has_value();
        return a.end.value_or(0) < b.end.value_or(0);
    });
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

} // namespace

void AudioTrack::applyMarkers(std::vector<Marker> markers) {
    sortMarkers(markers);
    if (markers == markerList) return;
    markerList = std::move(markers);
    ++markerRev;
    if (renaming && std::none_of(markerList.begin(), markerList.end(),
                                 [&](const Marker& m) { return m.id == *renaming; }))
        setRenamingMarker(std::nullopt);
    markersChanged.emit();
}

void AudioTrack::setMarkers(std::vector<Marker> markers) { applyMarkers(std::move(markers)); }

void AudioTrack::registerMarkerUndo(const std::string& actionName) {
    undo.registerUndo(actionName, [weak = weak_from_this(), saved = markerList, actionName] {
        if (auto track = weak.lock()) {
            track->registerMarkerUndo(actionName);
            track->applyMarkers(saved);
        }
    });
}

std::vector<Marker> AudioTrack::regions() const {
    std::vector<Marker> result;
    std::copy_if(markerList.begin(), markerList.end(), std::back_inserter(result),
                 [](const Marker& m) { return m.isRegion(); });
    return result;
}

std::vector<int64_t> AudioTrack::markerBoundaries() const {
    std::vector<int64_t> result;
    for (const Marker& marker : markerList) {
        result.push_back(marker.start);
        if (marker.end) result.push_back(*marker.end);
    }
    std::sort(result.begin(), result.end());
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
}

std::string AudioTrack::nextMarkerName(bool region) const {
    const std::string word = region ? "Region" : "Marker";
    const std::string prefix = word + " ";
    int64_t largest = 0;
    for (const Marker& marker : markerList) {
        if (marker.isRegion() != region || marker.name.size() <= prefix.size() ||
            marker.name.compare(0, prefix.size(), prefix) != 0)
            continue;
        const char* first = marker.name.data() + prefix.size();
        const char* last = marker.name.data() + marker.name.size();
        if (!std::all_of(first, last, [](char c) { return c >= '0' && c <= '9'; })) continue;
        int64_t number = 0;
        const auto [end, error] = std::from_chars(first, last, number);
        if (error != std::errc() || end != last) continue; // too large to be one of ours
        largest = std::max(largest, number);
    }
    if (largest == std::numeric_limits<int64_t>::max()) --largest;
    return prefix + std::to_string(largest + 1);
}

std::optional<Uuid> AudioTrack::addMarker(int64_t frame, std::optional<FrameRange> range) {
    if (!currentAudio) return std::nullopt;
    const int64_t frames = currentAudio->frameCount;
    Marker marker{Uuid::random(), {}, std::clamp<int64_t>(frame, 0, frames), std::nullopt};
    if (range) {
        const int64_t lo = std::clamp<int64_t>(range->lower, 0, frames);
        const int64_t hi = std::clamp<int64_t>(range->upper, 0, frames);
        if (lo < hi) {
            marker.start = lo;
            marker.end = hi;
        }
    }
    marker.name = nextMarkerName(marker.isRegion());
    registerMarkerUndo(marker.isRegion() ? "Add Region" : "Add Marker");
    std::vector<Marker> markers = markerList;
    markers.push_back(marker);
    applyMarkers(std::move(markers));
    return marker.id;
}

void AudioTrack::addRegions(const std::vector<Marker>& regions) {
    const int64_t frames = frameCount();
    std::vector<Marker> markers = markerList;
    size_t added = 0;
    for (Marker region : regions) {
        if (!region.end || region.start < 0) continue;
        if (currentAudio) region.end = std::min(*region.end, frames);
        if (region.start >= *region.end) continue;
        const bool idTaken =
            region.id.isNil() || std::any_of(markers.begin(), markers.end(),
                                             [&](const Marker& m) { return m.id == region.id; });
        if (idTaken) region.id = Uuid::random();
        markers.push_back(std::move(region));
        ++added;
    }
    if (added == 0) return;
    registerMarkerUndo("Add Regions");
    applyMarkers(std::move(markers));
}

void AudioTrack::removeMarker(const Uuid& markerID) {
    const auto found = std::find_if(markerList.begin(), markerList.end(),
                                    [&](const Marker& m) { return m.id == markerID; });
    if (found == markerList.end()) return;
    registerMarkerUndo(found->isRegion() ? "Delete Region" : "Delete Marker");
    std::vector<Marker> markers = markerList;
    markers.erase(markers.begin() + (found - markerList.begin()));
    applyMarkers(std::move(markers));
}

void AudioTrack::moveMarker(const Uuid& markerID, int64_t start, std::optional<int64_t> end) {
    const auto found = std::find_if(markerList.begin(), markerList.end(),
                                    [&](const Marker& m) { return m.id == markerID; });
    if (found == markerList.end()) return;
    const int64_t frames = frameCount();
    Marker moved = *found;
    moved.start = std::clamp<int64_t>(start, 0, frames);
    if (moved.isRegion()) {
        moved.end = std::clamp<int64_t>(end.value_or(*moved.end), 0, frames);
        if (moved.start >= *moved.end) return;
    }
    if (moved == *found) return;
    registerMarkerUndo(moved.isRegion() ? "Move Region" : "Move Marker");
    std::vector<Marker> markers = markerList;
    markers[size_t(found - markerList.begin())] = moved;
    applyMarkers(std::move(markers));
}

void AudioTrack::removeAllMarkers() {
    if (markerList.empty()) return;
    registerMarkerUndo("Remove All Markers");
    applyMarkers({});
}

void AudioTrack::renameMarker(const Uuid& markerID, const std::string& newName) {
    if (renaming == markerID) setRenamingMarker(std::nullopt);
    const auto found = std::find_if(markerList.begin(), markerList.end(),
                                    [&](const Marker& m) { return m.id == markerID; });
    const std::string name = trimmed(newName);
    if (found == markerList.end() || name.empty() || name == found->name) return;
    registerMarkerUndo(found->isRegion() ? "Rename Region" : "Rename Marker");
    std::vector<Marker> markers = markerList;
    markers[size_t(found - markerList.begin())].name = name;
    applyMarkers(std::move(markers));
}

void AudioTrack::setRenamingMarker(std::optional<Uuid> markerID) {
    if (markerID == renaming) return;
    renaming = markerID;
    renamingMarkerChanged.emit();
}

} // namespace sonvale
