#include "timeline/Timeline.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace sonvale {

std::string Timeline::nextBusName() const { return firstFreeName("Bus ", content.buses); }

TimelineBus Timeline::addBus() {
    TimelineBus bus;
    bus.name = nextBusName();
    // Golden-ratio steps around the colour wheel keep neighbouring buses apart.
    bus.hue = std::fmod(0.61803398875 * double(content.buses.size()), 1.0);
    edit("New Bus", [&] { content.buses.push_back(bus); });
    return bus;
}

namespace {
TimelineBus* findBus(std::vector<TimelineBus>& buses, const Uuid& busID) {
    auto it = std::find_if(buses.begin(), buses.end(),
                           [&](const TimelineBus& bus) { return bus.id == busID; });
    return it == buses.end() ? nullptr : &*it;
}
} // namespace

void Timeline::renameBus(const Uuid& busID, const std::string& name) {
    edit("Rename Bus", [&] {
        if (auto* bus = findBus(content.buses, busID)) bus->name = name;
    });
}

void Timeline::recolorBus(const Uuid& busID, double hue) {
    edit("Bus Colour", [&] {
        if (auto* bus = findBus(content.buses, busID)) bus->hue = hue;
    });
}

void Timeline::setBusGain(const Uuid& busID, float gainDB) {
    edit("Bus Gain", [&] {
        if (auto* bus = findBus(content.buses, busID)) bus->gainDB = gainDB;
    });
}

void Timeline::setBusMuted(const Uuid& busID, bool flag) {
    edit(flag ? "Turn Bus Off" : "Turn Bus On", [&] {
        if (auto* bus = findBus(content.buses, busID)) bus->isMuted = flag;
    });
}

void Timeline::removeBus(const Uuid& busID) {
    edit("Remove Bus", [&] {
        std::erase_if(content.buses, [&](const TimelineBus& bus) { return bus.id == busID; });
        for (auto& lane : content.lanes)
            if (lane.output == busID) lane.output.reset();
    });
    refreshEffects();
}

void Timeline::setOutput(const Uuid& laneID, std::optional<Uuid> busID) {
    if (busID && !bus(busID)) busID.reset();
    edit("Lane Output", [&] {
        if (auto* lane = findLane(laneID)) lane->output = busID;
    });
}

void Timeline::setMasterGain(float gainDB) {
    edit("Master Gain", [&] { content.masterGainDB = gainDB; });
}

EffectChainPtr Timeline::chain(const MixerChannel& channel) {
    auto& chain = chains[channel];
    if (!chain) {
        chain = std::make_shared<EffectChain>();
        // Whatever changes in the chain changes what its insert must run; a knob turned on one
        // of its effects reaches the insert by itself but is a change of the session.
        auto refresh = [weak = weak_from_this(), channel] {
            if (auto timeline = weak.lock()) {
                timeline->refreshEffects(channel);
                timeline->watchValues(channel);
            }
        };
        chain->effectsChanged.connect(refresh);
        chain->bypassChanged.connect(refresh);
    }
    return chain;
}

void Timeline::watchValues(const MixerChannel& channel) {
    auto& watched = valueWatches[channel];
    for (auto& connection : watched)
        connection.disconnect();
    watched.clear();
    const auto chain = existingChain(channel);
    if (!chain) return;
    for (const auto& session : chain->effects()) {
        auto changed = [weak = weak_from_this()] {
            if (auto timeline = weak.lock()) timeline->effectsChanged.emit();
        };
        watched.push_back(session->valuesChanged.connect(changed));
        watched.push_back(session->bypassChanged.connect(changed));
    }
}

EffectChainPtr Timeline::existingChain(const MixerChannel& channel) const {
    auto it = chains.find(channel);
    return it == chains.end() ? nullptr : it->second;
}

std::shared_ptr<EffectInsert> Timeline::insert(const MixerChannel& channel) const {
    auto it = inserts.find(channel);
    return it == inserts.end() ? nullptr : it->second;
}

void Timeline::refreshEffects() {
    bool changed = false;
    for (const auto& [channel, chain] : chains)
        changed |= refreshInsert(channel, *chain);
    effectsChanged.emit();
    if (changed) mixChanged.emit();
}

void Timeline::refreshEffects(const MixerChannel& channel) {
    const auto chain = existingChain(channel);
    const bool changed = chain && refreshInsert(channel, *chain);
    effectsChanged.emit();
    if (changed) mixChanged.emit();
}

bool Timeline::refreshInsert(const MixerChannel& channel, const EffectChain& chain) {
    const bool live = (channel.isMaster() || bus(channel.bus)) && !chain.isBypassed() &&
                      !chain.activeEffects().empty();
    auto it = inserts.find(channel);
    if (!live) {
        if (it == inserts.end()) return false;
        inserts.erase(it);
        return true;
    }
    const bool made = it == inserts.end();
    if (made) it = inserts.emplace(channel, std::make_shared<EffectInsert>()).first;
    // The processor it replaces is freed here, on the main thread.
    it->second->setProcessor(chain.previewProcessor(rate, 2), 2);
    return made;
}

const std::shared_ptr<TimelinePlayback>& Timeline::playback() {
    if (!playbackSource) {
        playbackSource = TimelinePlayback::make(snapshot());
        mixChanged.connect([this] { playbackSource->setSnapshot(snapshot()); });
    }
    return playbackSource;
}

TimelineMixer::SnapshotPtr Timeline::snapshot() const {
    auto snapshot = std::make_shared<TimelineMixer::Snapshot>();
    std::unordered_map<Uuid, int> busIndex;
    for (int i = 0; i < int(content.buses.size()); ++i)
        busIndex[content.buses[size_t(i)].id] = i;
    for (int i = 0; i < int(content.lanes.size()); ++i) {
        const auto& lane = content.lanes[size_t(i)];
        if (lane.isMuted) continue;
        TimelineMixer::Snapshot::Lane entry{lane.clips, lane.gainDB, lane.pan, std::nullopt, i};
        if (lane.output)
            if (auto it = busIndex.find(*lane.output); it != busIndex.end()) entry.bus = it->second;
        snapshot->lanes.push_back(std::move(entry));
    }
    for (const auto& bus : content.buses)
        snapshot->buses.push_back({bus.gainDB, bus.isMuted, insert(MixerChannel::forBus(bus.id))});
    snapshot->sampleRate = rate;
    snapshot->frameCount = frameCount();
    snapshot->masterGainDB = content.masterGainDB;
    snapshot->master = insert(MixerChannel::master());
    snapshot->meters = levelMeters;
    return snapshot;
}

TimelineMixer::SnapshotPtr
Timeline::mixdownSnapshot(std::optional<std::pair<int64_t, int64_t>> range) const {
    auto live = snapshot();
    auto snapshot = std::make_shared<TimelineMixer::Snapshot>(*live);
    int64_t length = frameCount();
    if (range) {
        length = std::max<int64_t>(range->second - range->first, 0);
        snapshot->origin = range->first;
        snapshot->cutoff = range->second;
    }
    // Inserts of its own, on frozen copies of the effects' values: a mixdown never shares the
    // live ones, and the knobs may go on moving while it renders.
    double tail = 0;
    auto offline = [&](const MixerChannel& channel) -> std::shared_ptr<EffectInsert> {
        auto chain = existingChain(channel);
        if (!chain || chain->isBypassed() || chain->activeEffects().empty()) return nullptr;
        auto render = chain->renderProcessor(rate, 2);
        tail = std::max(tail, render.tailSeconds);
        auto insert = std::make_shared<EffectInsert>();
        insert->setProcessor(std::move(render.processor), 2);
        return insert;
    };
    for (size_t i = 0; i < content.buses.size(); ++i)
        snapshot->buses[i].effects = offline(MixerChannel::forBus(content.buses[i].id));
    snapshot->master = offline(MixerChannel::master());
    snapshot->frameCount = length + int64_t(tail * rate);
    snapshot->meters.reset();
    return snapshot;
}

} // namespace sonvale
