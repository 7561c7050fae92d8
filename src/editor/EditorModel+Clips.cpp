#include "editor/EditorModel.h"

namespace sonvale {

namespace {

constexpr const char* cutClipTitle = "Cut Clip";
constexpr const char* pasteClipTitle = "Paste Clip";
constexpr const char* duplicateClipTitle = "Duplicate Clip";
constexpr const char* placeTrackTitle = "Place Track";

} // namespace

void EditorModel::setSnapsClips(bool flag) {
    if (flag == snapping) return;
    snapping = flag;
    snapsClipsChanged.emit();
}

bool EditorModel::canSplitClips() const {
    const int64_t at = timelineModel->cursor(), shortest = timelineModel->minimumClipLength();
    for (const TimelineLane& lane : timelineModel->lanes())
        for (const TimelineClip& clip : lane.clips)
            if (clip.start + shortest <= at && at <= clip.end() - shortest) return true;
    return false;
}

void EditorModel::copyClip() {
    const auto selected = timelineModel->selectedClip();
    if (!selected) return;
    copiedClip = selected->first;
    copiedClipLane = selected->second;
    clipClipboardChanged.emit();
}

void EditorModel::cutClip() {
    const auto selected = timelineModel->selectedClip();
    if (!selected) return;
    copyClip();
    timelineModel->removeClip(selected->first.id, cutClipTitle);
}

void EditorModel::deleteClip() {
    if (const auto selected = timelineModel->selectedClip())
        timelineModel->removeClip(selected->first.id);
}

void EditorModel::pasteClip() {
    if (!copiedClip) return;
    Timeline& timeline = *timelineModel;
    UndoStack& undo = timeline.undoStack();
    undo.beginGroup(pasteClipTitle);
    try {
        const TimelineLane* lane = timeline.lane(copiedClipLane);
        const Uuid laneID = lane ? lane->id : timeline.addLane(copiedClip->name).id;
        const TimelineClip placed =
            timeline.insertCopy(*copiedClip, laneID, timeline.cursor(), pasteClipTitle);
        undo.endGroup();
        timeline.setCursor(placed.end());
    } catch (const std::exception& error) {
        undo.cancelGroup();
        showAlert({std::string("Can't ") + pasteClipTitle, userMessage(error)});
    }
}

void EditorModel::duplicateClip() {
    const auto selected = timelineModel->selectedClip();
    if (!selected) return;
    try {
        const TimelineClip placed = timelineModel->insertCopy(
            selected->first, selected->second, selected->first.end(), duplicateClipTitle);
        timelineModel->setCursor(placed.end());
    } catch (const std::exception& error) {
        showAlert({std::string("Can't ") + duplicateClipTitle, userMessage(error)});
    }
}

void EditorModel::splitClipsAtCursor() { timelineModel->splitClips(timelineModel->cursor()); }

void EditorModel::placeTrack(const Uuid& trackID, std::optional<FrameRange> range,
                             std::optional<Uuid> laneID, int64_t frame) {
    if (const auto track = this->track(trackID))
        placeOnTimeline(*track, range, laneID, frame, placeTrackTitle,
                        std::string("Can't ") + placeTrackTitle);
}

bool EditorModel::placeOnTimeline(const AudioTrack& track, std::optional<FrameRange> range,
                                  std::optional<Uuid> laneID, int64_t frame,
                                  const std::string& actionName, const std::string& failureTitle) {
    if (!track.audio() || track.frameCount() == 0) return false;
    const FrameRange part = range.value_or(FrameRange{0, track.frameCount()});
    if (part.upper <= part.lower) return false;
    Timeline& timeline = *timelineModel;
    if (timeline.frameCount() == 0) timeline.setSampleRate(track.sampleRate());
    UndoStack& undo = timeline.undoStack();
    undo.beginGroup(actionName);
    try {
        const Uuid lane = timeline.lane(laneID) ? *laneID : timeline.addLane(track.name()).id;
        timeline.insertCopy({Uuid::random(), track.name(), track.audio(), part.lower, part.length(),
                             0, 0, 0, track.id()},
                            lane, frame, actionName);
        undo.endGroup();
        return true;
    } catch (const std::exception& error) {
        undo.cancelGroup();
        showAlert({failureTitle, userMessage(error)});
        return false;
    }
}

void EditorModel::openOntoLane(const std::vector<std::filesystem::path>& urls,
                               std::optional<Uuid> laneID, int64_t frame) {
    // The first file goes onto the lane it was dropped on, the others onto lanes of their own.
    bool first = true;
    for (const AudioTrackPtr& track : open(urls)) {
        const std::optional<Uuid> lane = first ? laneID : std::nullopt;
        first = false;
        whenLoaded(track, [this, lane, frame](const AudioTrackPtr& loaded) {
            placeTrack(loaded->id(), std::nullopt, lane, frame);
        });
    }
}

void EditorModel::whenLoaded(const AudioTrackPtr& track,
                             std::function<void(const AudioTrackPtr&)> then) {
    if (track->isReady()) {
        then(track);
        return;
    }
    auto connection = std::make_shared<sigc::connection>();
    std::weak_ptr<AudioTrack> weak = track;
    *connection = track->stateChanged.connect([weak, connection, then = std::move(then)] {
        const auto track = weak.lock();
        if (!track || std::holds_alternative<AudioTrack::Loading>(track->state())) return;
        connection->disconnect();
        if (track->isReady()) then(track);
    });
}

} // namespace sonvale
