#include "timeline/Timeline.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

std::shared_ptr<Timeline> Timeline::create(double sampleRate) {
    return std::make_shared<Timeline>(Passkey{}, sampleRate);
}

Timeline::Timeline(Passkey, double sampleRate)
    : rate(sampleRate > 0 ? sampleRate : 48000) {}

void Timeline::setSampleRate(double sampleRate) {
    if (sampleRate <= 0 || sampleRate == rate) return;
    rate = sampleRate;
    refreshEffects();
    announce(true);
}

void Timeline::registerRestore(const std::string& actionName, Content saved) {
    undo.registerUndo(actionName, [weak = weak_from_this(), saved = std::move(saved), actionName] {
        if (auto timeline = weak.lock()) {
            timeline->registerRestore(actionName, timeline->content);
            timeline->restoreContent(saved);
        }
    });
}

void Timeline::restoreContent(Content saved) {
    const bool busesChanged = saved.buses != content.buses;
    content = std::move(saved);
    if (busesChanged) refreshEffects();
    announce(true);
}

void Timeline::announce(bool mixToo) {
    ++revision;
    contentChanged.emit();
    if (mixToo) mixChanged.emit();
}

void Timeline::selectClip(std::optional<Uuid> clipID) {
    if (clipID == selectedClip_) return;
    selectedClip_ = clipID;
    selectionChanged.emit();
}

void Timeline::setCursor(int64_t frame) {
    frame = std::max<int64_t>(frame, 0);
    if (frame == cursorFrame) return;
    cursorFrame = frame;
    selectionChanged.emit();
}

void Timeline::setSelection(std::optional<std::pair<int64_t, int64_t>> range) {
    if (range && range->second <= range->first) range.reset();
    if (range == selectedRange) return;
    selectedRange = range;
    selectionChanged.emit();
}

void Timeline::update(std::optional<TimelineScale> zoom, double viewWidth) {
    if (zoom == scale_ && viewWidth == width) return;
    scale_ = zoom;
    width = viewWidth;
    viewChanged.emit();
}

TimelineScale Timeline::scale() const {
    if (scale_) return *scale_;
    // Fit: the whole arrangement (at least ten seconds) across the view.
    const double frames = double(std::max<int64_t>(frameCount(), int64_t(rate * 10)));
    return {0, width > 0 ? frames / width : 1};
}

std::pair<int64_t, int64_t> Timeline::visibleRange() const {
    const TimelineScale s = scale();
    const auto first = int64_t(std::floor(s.start));
    return {first, first + int64_t(std::ceil(width * s.framesPerPoint))};
}

void Timeline::setMinimized(const MixerChannel& channel, bool flag) {
    if (flag == minimized.contains(channel)) return;
    if (flag)
        minimized.insert(channel);
    else
        minimized.erase(channel);
    viewChanged.emit();
}

void Timeline::setRenamingMarker(std::optional<Uuid> markerID) {
    if (markerID == renaming) return;
    renaming = markerID;
    viewChanged.emit();
}

int64_t Timeline::frameCount() const {
    int64_t end = 0;
    for (const auto& lane : content.lanes)
        for (const auto& clip : lane.clips)
            end = std::max(end, clip.end());
    return end;
}

bool Timeline::isEmpty() const {
    return content.lanes.empty() && content.buses.empty() && content.markers.empty();
}

const TimelineLane* Timeline::lane(const std::optional<Uuid>& laneID) const {
    if (!laneID) return nullptr;
    for (const auto& lane : content.lanes)
        if (lane.id == *laneID) return &lane;
    return nullptr;
}

const TimelineBus* Timeline::bus(const std::optional<Uuid>& busID) const {
    if (!busID) return nullptr;
    for (const auto& bus : content.buses)
        if (bus.id == *busID) return &bus;
    return nullptr;
}

TimelineLane* Timeline::findLane(const Uuid& laneID) {
    return const_cast<TimelineLane*>(lane(laneID));
}

std::pair<TimelineLane*, TimelineClip*> Timeline::findClip(const Uuid& clipID) {
    for (auto& lane : content.lanes)
        for (auto& clip : lane.clips)
            if (clip.id == clipID) return {&lane, &clip};
    return {nullptr, nullptr};
}

std::optional<std::pair<TimelineClip, Uuid>> Timeline::clip(const Uuid& clipID) const {
    for (const auto& lane : content.lanes)
        for (const auto& clip : lane.clips)
            if (clip.id == clipID) return std::pair{clip, lane.id};
    return std::nullopt;
}

std::optional<std::pair<TimelineClip, Uuid>> Timeline::selectedClip() const {
    return selectedClip_ ? clip(*selectedClip_) : std::nullopt;
}

} // namespace sonvale
