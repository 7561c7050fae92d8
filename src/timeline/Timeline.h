#pragma once

#include "audio/Marker.h"
#include "base/Errors.h"
#include "base/UndoStack.h"
#include "base/Uuid.h"
#include "effects/EffectChain.h"
#include "effects/EffectInsert.h"
#include "engine/LevelMeters.h"
#include "persistence/SessionState.h"
#include "timeline/TimelineMixer.h"
#include "timeline/TimelinePlayback.h"
#include "timeline/TimelineTypes.h"

#include <sigc++/signal.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace sonvale {

// Why a clip could not be placed.
class TimelineError : public UserError {
public:
    using UserError::UserError;
};

// The multitrack arrangement beside the track list: lanes of clips cut from the tracks' audio,
// mix buses, the master with its effects, markers, cursor, selection and zoom, with an undo
// history of its own. Main thread only; the mixer sees it only through snapshots.
//
// Every edit is one undo step under its action name, raises editRevision and fires
// contentChanged (and mixChanged when what is heard changed). Split by concern over
// Timeline.cpp, Timeline+Lanes.cpp, Timeline+Editing.cpp, Timeline+Mixer.cpp and
// Timeline+TrackUsage.cpp.
class Timeline : public std::enable_shared_from_this<Timeline> {
    struct Passkey {};

public:
    static constexpr int laneColorCount = 8;

    // How a track's audio is used on the timeline (for the question before removing a track).
    struct TrackUsage {
        int clips = 0;
        std::vector<std::string> lanes; // each lane once, in lane order
        // "3 clips on “Voice” and “Music”"
        std::string description() const;
        friend bool operator==(const TrackUsage&, const TrackUsage&) = default;
    };

    static std::shared_ptr<Timeline> create(double sampleRate = 48000);
    Timeline(Passkey, double sampleRate);
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    // ---- state
    double sampleRate() const { return rate; }
    // The rate new clips are resampled to; clips already placed keep their frames.
    void setSampleRate(double sampleRate);
    const std::vector<TimelineLane>& lanes() const { return content.lanes; }
    const std::vector<TimelineBus>& buses() const { return content.buses; }
    float masterGainDB() const { return content.masterGainDB; }
    const std::vector<Marker>& markers() const { return content.markers; }
    const std::shared_ptr<LevelMeters>& meters() const { return levelMeters; }
    UndoStack& undoStack() { return undo; }
    int64_t editRevision() const { return revision; }

    const std::optional<Uuid>& selectedClipID() const { return selectedClip_; }
    void selectClip(std::optional<Uuid> clipID);
    int64_t cursor() const { return cursorFrame; }
    void setCursor(int64_t frame);
    const std::optional<std::pair<int64_t, int64_t>>& selection() const { return selectedRange; }
    // An empty or reversed range clears the selection.
    void setSelection(std::optional<std::pair<int64_t, int64_t>> range);
    const std::optional<TimelineScale>& zoom() const { return scale_; }
    double viewWidth() const { return width; }
    // The zoom (none: fit the arrangement) and the view's width in points.
    void update(std::optional<TimelineScale> zoom, double viewWidth);
    // The zoom in effect: the stored one, or one that fits the arrangement into the view.
    TimelineScale scale() const;
    // The frames the view shows at the current scale.
    std::pair<int64_t, int64_t> visibleRange() const;
    const std::set<MixerChannel>& minimizedChannels() const { return minimized; }
    void setMinimized(const MixerChannel& channel, bool flag);
    const std::optional<Uuid>& renamingMarker() const { return renaming; }
    void setRenamingMarker(std::optional<Uuid> markerID);

    // The end of the arrangement: the largest clip end, 0 without clips.
    int64_t frameCount() const;
    bool isEmpty() const;
    const TimelineLane* lane(const std::optional<Uuid>& laneID) const;
    const TimelineBus* bus(const std::optional<Uuid>& busID) const;
    // The selected clip and the lane that holds it.
    std::optional<std::pair<TimelineClip, Uuid>> selectedClip() const;
    // The clip with `clipID` and its lane.
    std::optional<std::pair<TimelineClip, Uuid>> clip(const Uuid& clipID) const;

    // ---- lanes (Timeline+Lanes.cpp)
    // "Add Lane": a new lane at the bottom feeding the master, in the first free colour.
    TimelineLane addLane(const std::string& name);
    // "Lane N" for the smallest N from 1 that no lane is named (the name of an added empty
    // lane).
    std::string nextLaneName() const;
    // The first colour no lane has; with all eight taken, the lane count modulo eight.
    int nextLaneColor() const;
    void renameLane(const Uuid& laneID, const std::string& name);
    // Moves a lane to `index` (clamped), "Move Lane".
    void moveLane(const Uuid& laneID, int index);
    void removeLane(const Uuid& laneID);
    // A click on the lane's switch (only = false) turns it off or on; only = true hears only
    // this lane, or turns every lane on again when it already is the only one heard.
    void toggleLane(const Uuid& laneID, bool only);
    void setLaneGain(const Uuid& laneID, float gainDB);
    void setLanePan(const Uuid& laneID, float pan);

    // ---- editing (Timeline+Editing.cpp)
    // The shortest a trim or split leaves a clip: 10 ms, at least one frame.
    int64_t minimumClipLength() const;
    // The nearest of the timeline start, the cursor, the markers and every clip's edges
    // within `within` frames of `frame` (ties go to the earlier in that order), leaving out
    // the clip and the marker being dragged.
    std::optional<int64_t> snapTarget(int64_t frame, int64_t within,
                                      std::optional<Uuid> excluding = {},
                                      std::optional<Uuid> excludingMarker = {}) const;
    // Moves a clip to start at `frame` (not before 0), onto `laneID` when that lane exists, and
    // crossfades it with the clips it now overlaps.
    void moveClip(const Uuid& clipID, int64_t frame, std::optional<Uuid> laneID = {},
                  const std::string& actionName = "Move Clip");
    // Moves one edge, within the clip's audio and never closer than the minimum length.
    void trimClip(const Uuid& clipID, ClipEdge edge, int64_t frame,
                  const std::string& actionName = "Trim Clip");
    // Sets a fade from its handle's timeline position; fades never overlap.
    void setFade(const Uuid& clipID, ClipEdge edge, int64_t frame,
                 const std::string& actionName = "Fade");
    // Splits the selected clip at `frame`, or every clip that can be split there when the
    // selected one can't. Returns how many were split.
    int splitClips(int64_t frame);
    // Fades a clip and the clips it overlaps on its lane into each other (part of the
    // caller's undo step).
    void crossfadeOverlaps(const Uuid& clipID);
    // Places a copy of `clip` on a lane at `frame`, resampled to the timeline's rate,
    // crossfaded with what it overlaps, and selects it. Throws TimelineError when the lane is gone
    // or the copy would be empty.
    TimelineClip insertCopy(const TimelineClip& clip, const Uuid& laneID, int64_t frame,
                            const std::string& actionName);
    void removeClip(const Uuid& clipID, const std::string& actionName = "Delete Clip");

    // "Add Marker": a point marker named "Marker N".
    Marker addMarker(int64_t frame);
    void renameMarker(const Uuid& markerID, const std::string& name);
    void moveMarker(const Uuid& markerID, int64_t start, std::optional<int64_t> end,
                    const std::string& actionName = "Move Marker");
    void removeMarker(const Uuid& markerID);

    // ---- mixer (Timeline+Mixer.cpp)
    // "New Bus", named by nextBusName.
    TimelineBus addBus();
    // "Bus N" for the smallest N from 1 that no bus is named.
    std::string nextBusName() const;
    void renameBus(const Uuid& busID, const std::string& name);
    void recolorBus(const Uuid& busID, double hue);
    void setBusGain(const Uuid& busID, float gainDB);
    void setBusMuted(const Uuid& busID, bool flag);
    // Removes a bus; its lanes feed the master.
    void removeBus(const Uuid& busID);
    // Routes a lane to a bus, or to the master with none.
    void setOutput(const Uuid& laneID, std::optional<Uuid> busID);
    void setMasterGain(float gainDB);
    // The effect chain of the master or a bus, made when first asked for.
    EffectChainPtr chain(const MixerChannel& channel);
    EffectChainPtr existingChain(const MixerChannel& channel) const;
    std::shared_ptr<EffectInsert> insert(const MixerChannel& channel) const;
    // Keeps each channel's live insert in step with its chain: its chain's processor while
    // the chain has active effects and isn't bypassed, none otherwise.
    void refreshEffects();
    // The same for one channel, after its chain changed.
    void refreshEffects(const MixerChannel& channel);

    // What live playback renders, built afresh: the audible lanes, every bus with its live
    // insert, the master and the meters.
    TimelineMixer::SnapshotPtr snapshot() const;
    // What a mixdown renders: the whole arrangement, or [range.first, range.second) with every
    // clip cut off at its end, plus the longest effect tail, through inserts of its own.
    TimelineMixer::SnapshotPtr
    mixdownSnapshot(std::optional<std::pair<int64_t, int64_t>> range = {}) const;

    // The content the playback engine plays the timeline from, made on first use; from then
    // on every change of the mix hands it a new snapshot at once.
    const std::shared_ptr<TimelinePlayback>& playback();

    // ---- tracks (Timeline+TrackUsage.cpp)
    std::unordered_map<Uuid, TrackUsage> usageByTrack() const;
    // The lanes that hold clips and hold nothing else than clips of `trackID`.
    std::vector<Uuid> lanesEmptied(const Uuid& trackID) const;
    // The buses fed only by `lanes` (and fed by at least one of them).
    std::vector<Uuid> busesEmptied(const std::vector<Uuid>& lanes) const;
    bool busOnlyFed(const Uuid& busID, const std::vector<Uuid>& lanes) const;
    // Removes every clip of `trackID`, and with `alsoEmptied` the lanes left empty and the buses
    // only they fed, as one step.
    void removeClips(const Uuid& trackID, bool alsoEmptied, const std::string& actionName);
    // Removes lanes and buses, as one step.
    void removeLaneAndBus(const std::vector<Uuid>& lanes, const std::vector<Uuid>& buses,
                          const std::string& actionName);

    // ---- the session's record (Timeline+State.cpp)
    // What clips of a stored timeline play: per session track (by index) its id and audio
    // (none while it is missing), and the audio of a clip file by its path.
    struct Sources {
        std::vector<std::pair<Uuid, AudioDataPtr>> tracks;
        std::function<AudioDataPtr(const std::string& path)> clipFile;
    };
    // Replaces everything with `state` and forgets the undo history. Clips whose audio can't
    // be had are left out; returns how many.
    int restore(const TimelineState& state, const Sources& sources);
    // The record of the timeline; `source` says where each clip's audio is kept (a track by
    // index, or a file).
    TimelineState
    state(const std::function<TimelineState::Clip::Source(const TimelineClip&)>& source,
          const std::function<std::optional<int64_t>(const Uuid&)>& trackIndex) const;
    // The record's buses and master; none while they are as a new timeline has them.
    std::optional<TimelineState::Mixer> mixerState() const;

    // ---- signals
    sigc::signal<void()> contentChanged;   // lanes, clips, buses, master gain, markers
    sigc::signal<void()> mixChanged;       // what the mixer must hear: hand it a new snapshot
    sigc::signal<void()> effectsChanged;   // chains, their effects' values, or inserts
    sigc::signal<void()> selectionChanged; // cursor, selection, selected clip
    sigc::signal<void()> viewChanged;      // zoom, view width, minimized strips, renaming

private:
    // Everything an undo step restores.
    struct Content {
        std::vector<TimelineLane> lanes;
        std::vector<TimelineBus> buses;
        float masterGainDB = 0;
        std::vector<Marker> markers;
        friend bool operator==(const Content&, const Content&) = default;
    };

    // Runs `change` on the content; when it changed anything, registers the step to undo it
    // under `actionName` and announces the edit. Returns whether anything changed.
    template <typename Change> bool edit(const std::string& actionName, Change&& change);
    void registerRestore(const std::string& actionName, Content saved);
    void restoreContent(Content saved);
    void announce(bool mixToo);
    // `prefix` followed by the smallest number from 1 that none of `items` is named.
    template <typename Items>
    static std::string firstFreeName(const std::string& prefix, const Items& items);
    TimelineLane* findLane(const Uuid& laneID);
    // The clip and its lane, in `content`.
    std::pair<TimelineLane*, TimelineClip*> findClip(const Uuid& clipID);
    void crossfadeIn(TimelineLane& lane, const Uuid& clipID);
    // Whether the channel's insert came or went.
    bool refreshInsert(const MixerChannel& channel, const EffectChain& chain);
    // Announces value and bypass changes of the channel's effects as effectsChanged.
    void watchValues(const MixerChannel& channel);

    double rate;
    Content content;
    // A removed bus keeps its chain here, so that undoing the removal brings its effects back.
    std::map<MixerChannel, EffectChainPtr> chains;
    std::map<MixerChannel, std::shared_ptr<EffectInsert>> inserts;
    std::map<MixerChannel, std::vector<sigc::connection>> valueWatches;
    std::shared_ptr<LevelMeters> levelMeters = std::make_shared<LevelMeters>();
    std::shared_ptr<TimelinePlayback> playbackSource;
    UndoStack undo;
    int64_t revision = 0;
    std::optional<Uuid> selectedClip_;
    int64_t cursorFrame = 0;
    std::optional<std::pair<int64_t, int64_t>> selectedRange;
    std::optional<TimelineScale> scale_;
    double width = 0;
    std::set<MixerChannel> minimized;
    std::optional<Uuid> renaming;
};

using TimelinePtr = std::shared_ptr<Timeline>;

template <typename Items>
std::string Timeline::firstFreeName(const std::string& prefix, const Items& items) {
    for (int number = 1;; ++number) {
        std::string name = prefix + std::to_string(number);
        if (std::none_of(items.begin(), items.end(),
                         [&](const auto& item) { return item.name == name; }))
            return name;
    }
}

template <typename Change> bool Timeline::edit(const std::string& actionName, Change&& change) {
    Content before = content;
    change();
    if (content == before) return false;
    registerRestore(actionName, std::move(before));
    announce(true);
    return true;
}

} // namespace sonvale
