#include "timeline/Timeline.h"

#include <algorithm>

namespace sonvale {

std::string Timeline::nextLaneName() const { return firstFreeName("Lane ", content.lanes); }

int Timeline::nextLaneColor() const {
    std::set<int> used;
    for (const auto& lane : content.lanes)
        used.insert(lane.colorIndex);
    for (int color = 0; color < laneColorCount; ++color)
        if (!used.contains(color)) return color;
    return int(content.lanes.size() % laneColorCount);
}

TimelineLane Timeline::addLane(const std::string& name) {
    TimelineLane lane;
    lane.name = name;
    lane.colorIndex = nextLaneColor();
    edit("Add Lane", [&] { content.lanes.push_back(lane); });
    return lane;
}

void Timeline::renameLane(const Uuid& laneID, const std::string& name) {
    edit("Rename Lane", [&] {
        if (auto* lane = findLane(laneID)) lane->name = name;
    });
}

void Timeline::moveLane(const Uuid& laneID, int index) {
    edit("Move Lane", [&] {
        auto& lanes = content.lanes;
        auto it = std::find_if(lanes.begin(), lanes.end(),
                               [&](const TimelineLane& lane) { return lane.id == laneID; });
        if (it == lanes.end()) return;
        TimelineLane moving = std::move(*it);
        lanes.erase(it);
        index = std::clamp(index, 0, int(lanes.size()));
        lanes.insert(lanes.begin() + index, std::move(moving));
    });
}

void Timeline::removeLane(const Uuid& laneID) {
    edit("Remove Lane", [&] {
        std::erase_if(content.lanes, [&](const TimelineLane& lane) { return lane.id == laneID; });
    });
}

void Timeline::toggleLane(const Uuid& laneID, bool only) {
    const TimelineLane* target = lane(laneID);
    if (!target) return;
    if (!only) {
        edit(target->isMuted ? "Turn Lane On" : "Turn Lane Off", [&] {
            auto* lane = findLane(laneID);
            lane->isMuted = !lane->isMuted;
        });
        return;
    }
    const bool alreadyOnly =
        !target->isMuted &&
        std::all_of(content.lanes.begin(), content.lanes.end(),
                    [&](const TimelineLane& lane) { return lane.id == laneID || lane.isMuted; });
    edit(alreadyOnly ? "All Lanes On" : "Only This Lane", [&] {
        for (auto& lane : content.lanes)
            lane.isMuted = alreadyOnly ? false : lane.id != laneID;
    });
}

void Timeline::setLaneGain(const Uuid& laneID, float gainDB) {
    edit("Lane Gain", [&] {
        if (auto* lane = findLane(laneID)) lane->gainDB = gainDB;
    });
}

void Timeline::setLanePan(const Uuid& laneID, float pan) {
    edit("Lane Pan", [&] {
        if (auto* lane = findLane(laneID)) lane->pan = std::clamp(pan, -1.0f, 1.0f);
    });
}

} // namespace sonvale
