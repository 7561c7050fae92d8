#include "timeline/Timeline.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace sonvale {

namespace {

// Fades that fit the clip: neither negative, and together no longer than the clip.
void clampFades(TimelineClip& clip) {
    clip.fadeIn = std::clamp<int64_t>(clip.fadeIn, 0, clip.length);
    clip.fadeOut = std::clamp<int64_t>(clip.fadeOut, 0, clip.length - clip.fadeIn);
}

void sortMarkers(std::vector<Marker>& markers) {
    std::stable_sort(markers.begin(), markers.end(),
                     [](const Marker& a, const Marker& b) { return a.start < b.start; });
}

} // namespace

int64_t Timeline::minimumClipLength() const { return std::max<int64_t>(int64_t(rate / 100), 1); }

std::optional<int64_t> Timeline::snapTarget(int64_t frame, int64_t within,
                                            std::optional<Uuid> excluding,
                                            std::optional<Uuid> excludingMarker) const {
    std::optional<int64_t> best;
    int64_t bestDistance = 0;
    auto consider = [&](int64_t candidate) {
        const int64_t distance = std::llabs(candidate - frame);
        if (distance > within || (best && distance >= bestDistance)) return;
        best = candidate;
        bestDistance = distance;
    };
    consider(0);
    consider(cursorFrame);
    for (const auto& marker : content.markers)
        if (marker.id != excludingMarker) consider(marker.start);
    for (const auto& lane : content.lanes)
        for (const auto& clip : lane.clips)
            if (clip.id != excluding) {
                consider(clip.start);
                consider(clip.end());
            }
    return best;
}

void Timeline::moveClip(const Uuid& clipID, int64_t frame, std::optional<Uuid> laneID,
                        const std::string& actionName) {
    edit(actionName, [&] {
        auto [from, clip] = findClip(clipID);
        if (!clip) return;
        TimelineClip moving = *clip;
        moving.start = std::max<int64_t>(frame, 0);
        std::erase_if(from->clips, [&](const TimelineClip& c) { return c.id == clipID; });
        TimelineLane* to = laneID ? findLane(*laneID) : nullptr;
        to = to ? to : from;
        to->clips.push_back(std::move(moving));
        crossfadeIn(*to, clipID);
    });
}

void Timeline::trimClip(const Uuid& clipID, ClipEdge edge, int64_t frame,
                        const std::string& actionName) {
    const int64_t m = minimumClipLength();
    edit(actionName, [&] {
        auto [lane, clip] = findClip(clipID);
        if (!clip) return;
        const int64_t end = clip->end();
        if (edge == ClipEdge::start) {
            const int64_t s = std::min(end - m, std::max(frame, clip->start - clip->sourceStart));
            const int64_t delta = s - clip->start;
            clip->start += delta;
            clip->sourceStart += delta;
            clip->length -= delta;
        } else {
            const int64_t available = clip->audio ? clip->audio->frameCount - clip->sourceStart : 0;
            const int64_t e = std::min(std::max(frame, clip->start + m), clip->start + available);
            clip->length = e - clip->start;
        }
        clampFades(*clip);
    });
}

void Timeline::setFade(const Uuid& clipID, ClipEdge edge, int64_t frame,
                       const std::string& actionName) {
    edit(actionName, [&] {
        auto [lane, clip] = findClip(clipID);
        if (!clip) return;
        if (edge == ClipEdge::start)
            clip->fadeIn =
                std::min(std::max<int64_t>(frame - clip->start, 0), clip->length - clip->fadeOut);
        else
            clip->fadeOut =
                std::min(std::max<int64_t>(clip->end() - frame, 0), clip->length - clip->fadeIn);
    });
}

int Timeline::splitClips(int64_t frame) {
    const int64_t m = minimumClipLength();
    auto splittable = [&](const TimelineClip& clip) {
        return clip.start + m <= frame && frame <= clip.end() - m;
    };
    const auto selected = selectedClip();
    const bool onlySelected = selected && splittable(selected->first);
    Content before = content;
    int split = 0;
    for (auto& lane : content.lanes) {
        std::vector<TimelineClip> pieces;
        for (auto& clip : lane.clips) {
            if (!splittable(clip) || (onlySelected && clip.id != selected->first.id)) continue;
            TimelineClip right = clip;
            right.id = Uuid::random();
            right.start = frame;
            right.sourceStart = clip.sourceStart + (frame - clip.start);
            right.length = clip.end() - frame;
            right.fadeIn = 0;
            clip.length = frame - clip.start;
            clip.fadeOut = 0;
            clampFades(clip);
            clampFades(right);
            pieces.push_back(std::move(right));
            ++split;
        }
        for (auto& piece : pieces)
            lane.clips.push_back(std::move(piece));
    }
    if (split == 0) return 0;
    registerRestore(split == 1 ? "Split Clip" : "Split Clips", std::move(before));
    announce(true);
    return split;
}

void Timeline::crossfadeIn(TimelineLane& lane, const Uuid& clipID) {
    auto self = std::find_if(lane.clips.begin(), lane.clips.end(),
                             [&](const TimelineClip& c) { return c.id == clipID; });
    if (self == lane.clips.end()) return;
    for (auto& other : lane.clips) {
        if (other.id == clipID) continue;
        TimelineClip& a = self->start <= other.start ? *self : other;
        TimelineClip& b = &a == &other ? *self : other;
        const int64_t overlap = a.end() - b.start;
        if (!(a.start < b.start && a.end() < b.end()) || overlap < 1) continue;
        a.fadeOut = std::min(overlap, a.length - a.fadeIn);
        b.fadeIn = std::min(overlap, b.length - b.fadeOut);
    }
}

void Timeline::crossfadeOverlaps(const Uuid& clipID) {
    edit("Crossfade", [&] {
        if (auto [lane, clip] = findClip(clipID); lane) crossfadeIn(*lane, clipID);
    });
}

TimelineClip Timeline::insertCopy(const TimelineClip& original, const Uuid& laneID, int64_t frame,
                                  const std::string& actionName) {
    if (!lane(laneID)) throw TimelineError("The lane isn't there any more.");
    if (!original.audio) throw TimelineError("The clip has no audio.");
    TimelineClip copy = original;
    if (copy.audio->sampleRate != rate) {
        const double ratio = rate / copy.audio->sampleRate;
        copy.audio = copy.audio->resampled(rate);
        const int64_t frames = copy.audio->frameCount;
        auto scaled = [&](int64_t value) { return int64_t(std::llround(double(value) * ratio)); };
        copy.sourceStart = std::clamp<int64_t>(scaled(copy.sourceStart), 0, frames);
        copy.length = std::clamp<int64_t>(scaled(copy.length), 0, frames - copy.sourceStart);
        copy.fadeIn = scaled(copy.fadeIn);
        copy.fadeOut = scaled(copy.fadeOut);
        clampFades(copy);
    }
    if (copy.length < 1) throw TimelineError("The clip would be shorter than one frame.");
    copy.id = Uuid::random();
    copy.start = std::max<int64_t>(frame, 0);
    edit(actionName, [&] {
        TimelineLane* target = findLane(laneID);
        target->clips.push_back(copy);
        crossfadeIn(*target, copy.id);
        copy = target->clips.back();
    });
    selectClip(copy.id);
    return copy;
}

void Timeline::removeClip(const Uuid& clipID, const std::string& actionName) {
    edit(actionName, [&] {
        for (auto& lane : content.lanes)
            std::erase_if(lane.clips, [&](const TimelineClip& clip) { return clip.id == clipID; });
    });
    if (selectedClip_ == clipID) selectClip(std::nullopt);
}

Marker Timeline::addMarker(int64_t frame) {
    const std::string prefix = "Marker ";
    int64_t highest = 0;
    for (const auto& marker : content.markers) {
        if (marker.name.rfind(prefix, 0) != 0) continue;
        int64_t number = 0;
        const char* first = marker.name.data() + prefix.size();
        const char* last = marker.name.data() + marker.name.size();
        auto [end, error] = std::from_chars(first, last, number);
        if (error == std::errc() && end == last && first != last)
            highest = std::max(highest, number);
    }
    Marker marker{Uuid::random(), prefix + std::to_string(highest + 1), std::max<int64_t>(frame, 0),
                  std::nullopt};
    edit("Add Marker", [&] {
        content.markers.push_back(marker);
        sortMarkers(content.markers);
    });
    return marker;
}

void Timeline::renameMarker(const Uuid& markerID, const std::string& name) {
    edit("Rename Marker", [&] {
        for (auto& marker : content.markers)
            if (marker.id == markerID) marker.name = name;
    });
}

void Timeline::moveMarker(const Uuid& markerID, int64_t start, std::optional<int64_t> end,
                          const std::string& actionName) {
    edit(actionName, [&] {
        for (auto& marker : content.markers)
            if (marker.id == markerID) {
                marker.start = std::max<int64_t>(start, 0);
                marker.end = end && *end > marker.start ? end : std::nullopt;
            }
        sortMarkers(content.markers);
    });
}

void Timeline::removeMarker(const Uuid& markerID) {
    edit("Remove Marker", [&] {
        std::erase_if(content.markers, [&](const Marker& marker) { return marker.id == markerID; });
    });
    if (renaming == markerID) setRenamingMarker(std::nullopt);
}

} // namespace sonvale
