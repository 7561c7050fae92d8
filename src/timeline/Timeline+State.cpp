#include "timeline/Timeline.h"

#include "effects/EffectKind.h"
#include "effects/EffectSession.h"

#include <algorithm>

namespace sonvale {

namespace {

void restoreChain(EffectChain& chain, const ChainState& state) {
    for (const auto& session : std::vector(chain.effects()))
        chain.remove(session->id());
    for (const auto& effect : state.effects) {
        const auto kind = effectKindFromRawValue(effect.kind);
        if (!kind) continue; // an effect this version doesn't know
        auto session = EffectSession::make(*kind, effect.values);
        session->setBypassed(effect.isBypassed);
        chain.append(std::move(session));
    }
    chain.setBypassed(state.isBypassed);
}

ChainState chainState(const EffectChainPtr& chain) {
    ChainState state;
    if (!chain) return state;
    for (const auto& session : chain->effects())
        state.effects.push_back(
            {std::string(rawValue(session->kind())), session->values(), session->isBypassed()});
    state.isBypassed = chain->isBypassed();
    return state;
}

} // namespace

int Timeline::restore(const TimelineState& state, const Sources& sources) {
    rate = state.sampleRate > 0 ? state.sampleRate : 48000;
    Content restored;
    restored.markers = state.markers;
    std::vector<Uuid> busIDs;
    if (state.mixer) {
        for (const auto& stored : state.mixer->buses) {
            TimelineBus bus;
            bus.name = stored.name;
            bus.gainDB = stored.gainDB;
            bus.isMuted = stored.isMuted;
            bus.hue = stored.hue.value_or(0);
            busIDs.push_back(bus.id);
            restored.buses.push_back(bus);
        }
        restored.masterGainDB = state.mixer->masterGainDB;
    }
    int missing = 0;
    for (const auto& stored : state.lanes) {
        TimelineLane lane;
        lane.name = stored.name;
        lane.gainDB = stored.gainDB;
        lane.pan = stored.pan;
        lane.isMuted = stored.isMuted;
        if (stored.output && *stored.output >= 0 && *stored.output < int64_t(busIDs.size()))
            lane.output = busIDs[size_t(*stored.output)];
        // A lane stored without a colour gets the first one free once all are in.
        lane.colorIndex =
            stored.color ? int(std::clamp<int64_t>(*stored.color, 0, laneColorCount - 1)) : -1;
        for (const auto& storedClip : stored.clips) {
            TimelineClip clip;
            clip.name = storedClip.name;
            if (const auto* track =
                    std::get_if<TimelineState::Clip::TrackSource>(&storedClip.source)) {
                if (track->index >= 0 && track->index < int64_t(sources.tracks.size()))
                    clip.audio = sources.tracks[size_t(track->index)].second;
            } else if (sources.clipFile) {
                clip.audio = sources.clipFile(
                    std::get<TimelineState::Clip::FileSource>(storedClip.source).path);
            }
            if (storedClip.track && *storedClip.track >= 0 &&
                *storedClip.track < int64_t(sources.tracks.size()))
                clip.trackID = sources.tracks[size_t(*storedClip.track)].first;
            clip.sourceStart = std::max<int64_t>(storedClip.sourceStart, 0);
            clip.length = std::max<int64_t>(storedClip.length, 0);
            clip.start = std::max<int64_t>(storedClip.start, 0);
            clip.fadeIn = storedClip.fadeIn.value_or(0);
            clip.fadeOut = storedClip.fadeOut.value_or(0);
            if (!clip.audio) {
                ++missing;
                continue;
            }
            lane.clips.push_back(std::move(clip));
        }
        restored.lanes.push_back(std::move(lane));
    }
    content = std::move(restored);
    for (auto& lane : content.lanes)
        if (lane.colorIndex < 0) lane.colorIndex = nextLaneColor();

    for (auto& [channel, watched] : valueWatches)
        for (auto& connection : watched)
            connection.disconnect();
    valueWatches.clear();
    chains.clear();
    inserts.clear();
    minimized.clear();
    if (state.mixer) {
        for (size_t i = 0; i < busIDs.size(); ++i) {
            const auto channel = MixerChannel::forBus(busIDs[i]);
            if (!state.mixer->buses[i].chain.effects.empty())
                restoreChain(*chain(channel), state.mixer->buses[i].chain);
            if (state.mixer->buses[i].isMinimized) minimized.insert(channel);
        }
        if (!state.mixer->master.effects.empty())
            restoreChain(*chain(MixerChannel::master()), state.mixer->master);
        if (state.mixer->isMasterMinimized) minimized.insert(MixerChannel::master());
    }
    refreshEffects();
    cursorFrame = std::max<int64_t>(state.cursor, 0);
    selectedClip_.reset();
    selectedRange.reset();
    renaming.reset();
    undo.removeAll();
    announce(true);
    selectionChanged.emit();
    viewChanged.emit();
    return missing;
}

TimelineState
Timeline::state(const std::function<TimelineState::Clip::Source(const TimelineClip&)>& source,
                const std::function<std::optional<int64_t>(const Uuid&)>& trackIndex) const {
    TimelineState state;
    state.sampleRate = rate;
    state.cursor = cursorFrame;
    state.markers = content.markers;
    for (const auto& lane : content.lanes) {
        TimelineState::Lane stored;
        stored.name = lane.name;
        stored.gainDB = lane.gainDB;
        stored.pan = lane.pan;
        stored.isMuted = lane.isMuted;
        stored.color = lane.colorIndex;
        const auto bus = std::find_if(content.buses.begin(), content.buses.end(),
                                      [&](const TimelineBus& b) { return b.id == lane.output; });
        if (bus != content.buses.end()) stored.output = bus - content.buses.begin();
        for (const auto& clip : lane.clips) {
            TimelineState::Clip storedClip;
            storedClip.name = clip.name;
            storedClip.source = source(clip);
            storedClip.sourceStart = clip.sourceStart;
            storedClip.length = clip.length;
            storedClip.start = clip.start;
            if (clip.fadeIn) storedClip.fadeIn = clip.fadeIn;
            if (clip.fadeOut) storedClip.fadeOut = clip.fadeOut;
            if (clip.trackID) storedClip.track = trackIndex(*clip.trackID);
            stored.clips.push_back(std::move(storedClip));
        }
        state.lanes.push_back(std::move(stored));
    }
    state.mixer = mixerState();
    return state;
}

std::optional<TimelineState::Mixer> Timeline::mixerState() const {
    TimelineState::Mixer mixer;
    for (const auto& bus : content.buses) {
        const auto channel = MixerChannel::forBus(bus.id);
        mixer.buses.push_back({bus.name, bus.gainDB, bus.isMuted, bus.hue,
                               chainState(existingChain(channel)), minimized.contains(channel)});
    }
    mixer.master = chainState(existingChain(MixerChannel::master()));
    mixer.masterGainDB = content.masterGainDB;
    mixer.isMasterMinimized = minimized.contains(MixerChannel::master());
    if (mixer == TimelineState::Mixer{}) return std::nullopt;
    return mixer;
}

} // namespace sonvale
