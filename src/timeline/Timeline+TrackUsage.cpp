#include "timeline/Timeline.h"

#include <algorithm>

namespace sonvale {

std::string Timeline::TrackUsage::description() const {
    std::string text = std::to_string(clips) + (clips == 1 ? " clip on " : " clips on ");
    for (size_t i = 0; i < lanes.size(); ++i) {
        if (i > 0) text += i + 1 == lanes.size() ? " and " : ", ";
        text += "\u201C" + lanes[i] + "\u201D";
    }
    return text;
}

std::unordered_map<Uuid, Timeline::TrackUsage> Timeline::usageByTrack() const {
    std::unordered_map<Uuid, TrackUsage> usage;
    for (const auto& lane : content.lanes)
        for (const auto& clip : lane.clips) {
            if (!clip.trackID) continue;
            auto& entry = usage[*clip.trackID];
            ++entry.clips;
            if (std::find(entry.lanes.begin(), entry.lanes.end(), lane.name) == entry.lanes.end())
                entry.lanes.push_back(lane.name);
        }
    return usage;
}

std::vector<Uuid> Timeline::lanesEmptied(const Uuid& trackID) const {
    std::vector<Uuid> emptied;
    for (const auto& lane : content.lanes)
        if (!lane.clips.empty() &&
            std::all_of(lane.clips.begin(), lane.clips.end(),
                        [&](const TimelineClip& clip) { return clip.trackID == trackID; }))
            emptied.push_back(lane.id);
    return emptied;
}

bool Timeline::busOnlyFed(const Uuid& busID, const std::vector<Uuid>& lanes) const {
    bool fed = false;
    for (const auto& lane : content.lanes) {
        if (lane.output != busID) continue;
        if (std::find(lanes.begin(), lanes.end(), lane.id) == lanes.end()) return false;
        fed = true;
    }
    return fed;
}

std::vector<Uuid> Timeline::busesEmptied(const std::vector<Uuid>& lanes) const {
    std::vector<Uuid> emptied;
    for (const auto& bus : content.buses)
        if (busOnlyFed(bus.id, lanes)) emptied.push_back(bus.id);
    return emptied;
}

void Timeline::removeClips(const Uuid& trackID, bool alsoEmptied, const std::string& actionName) {
    const auto lanes = alsoEmptied ? lanesEmptied(trackID) : std::vector<Uuid>{};
    const auto buses = busesEmptied(lanes);
    edit(actionName, [&] {
        for (auto& lane : content.lanes)
            std::erase_if(lane.clips,
                          [&](const TimelineClip& clip) { return clip.trackID == trackID; });
        std::erase_if(content.lanes, [&](const TimelineLane& lane) {
            return std::find(lanes.begin(), lanes.end(), lane.id) != lanes.end();
        });
        std::erase_if(content.buses, [&](const TimelineBus& bus) {
            return std::find(buses.begin(), buses.end(), bus.id) != buses.end();
        });
    });
    if (selectedClip_ && !clip(*selectedClip_)) selectClip(std::nullopt);
    if (!buses.empty()) refreshEffects();
}

void Timeline::removeLaneAndBus(const std::vector<Uuid>& lanes, const std::vector<Uuid>& buses,
                                const std::string& actionName) {
    edit(actionName, [&] {
        std::erase_if(content.lanes, [&](const TimelineLane& lane) {
            return std::find(lanes.begin(), lanes.end(), lane.id) != lanes.end();
        });
        std::erase_if(content.buses, [&](const TimelineBus& bus) {
            return std::find(buses.begin(), buses.end(), bus.id) != buses.end();
        });
        for (auto& lane : content.lanes)
            if (lane.output && !bus(lane.output)) lane.output.reset();
    });
    if (selectedClip_ && !clip(*selectedClip_)) selectClip(std::nullopt);
    refreshEffects();
}

} // namespace sonvale
