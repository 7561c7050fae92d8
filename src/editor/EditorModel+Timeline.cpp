#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "engine/RenderSource.h"
#include "persistence/Preferences.h"

#include <algorithm>
#include <utility>

namespace sonvale {

namespace fs = std::filesystem;

void EditorModel::setShowingTimeline(bool flag) {
    if (flag == showingTimeline) return;
    // What plays belongs to the view that is going away.
    if (isPlaying()) finishPlayback(false);
    // The mixer's effects go with the timeline.
    if (!flag && mixerChannel) closeEffects();
    showingTimeline = flag;
    timelineShowingChanged.emit();
}

void EditorModel::playTimeline() {
    const int64_t frames = timelineModel->frameCount();
    FrameRange range{0, frames};
    const int64_t cursor = timelineModel->cursor();
    int64_t at = cursor >= 0 && cursor < frames ? cursor : 0;
    const auto paused = std::exchange(pausedAt, std::nullopt);
    playingSelection = false;
    if (const auto& selection = timelineModel->selection();
        selection && selection->first < frames) {
        range = {selection->first, std::min(selection->second, frames)};
        const bool resume = paused == cursor && cursor > range.lower && cursor < range.upper;
        at = resume ? cursor : range.lower;
        playingSelection = true;
    }
    playStart = at;
    timelineModel->meters()->clear();
    // The mix runs the buses' and the master's effects itself: no live effect of the editor.
    if (!startSource(timelineModel->playback(), nullptr, false, range, at)) return;
    playingTrack.reset();
    playingTimeline = true;
    transportChanged.emit();
    playheadChanged.emit();
}

std::optional<TrackRemovalQuestion>
EditorModel::trackRemovalQuestion(const std::set<Uuid>& ids) const {
    const auto usage = timelineModel->usageByTrack();
    std::vector<std::pair<AudioTrackPtr, Timeline::TrackUsage>> used;
    for (const auto& t : trackList)
        if (auto it = usage.find(t->id()); ids.count(t->id()) && it != usage.end())
            used.emplace_back(t, it->second);
    if (used.empty()) return std::nullopt;
    TrackRemovalQuestion question;
    question.ids = ids;
    std::vector<AudioTrackPtr> removed;
    std::copy_if(trackList.begin(), trackList.end(), std::back_inserter(removed),
                 [&](const auto& t) { return ids.count(t->id()) > 0; });
    const size_t count = removed.size();
    question.title = count == 1 ? "Remove “" + removed[0]->name() + "” from the list?"
                                : "Remove " + std::to_string(count) + " tracks from the list?";
    for (const auto& [t, u] : used)
        question.message += (count == 1 ? "Its audio" : "“" + t->name() + "”") + " plays in " +
                            u.description() + ". ";
    question.message += "Remove the clips too (with lanes left empty and buses only they fed), "
                        "or keep them: kept clips go on playing the audio, and the session keeps "
                        "it with them.";
    return question;
}

void EditorModel::requestTrackRemoval(const std::set<Uuid>& ids) {
    if (auto question = trackRemovalQuestion(ids))
        trackRemovalRequested.emit(std::move(*question));
    else
        removeTracks(ids);
}

void EditorModel::removeTracks(const std::set<Uuid>& ids, bool removeClips) {
    if (removeClips) {
        const auto usage = timelineModel->usageByTrack();
        UndoGroup group(timelineModel->undoStack(), "Remove Clips of Track");
        for (const Uuid& id : ids)
            if (usage.count(id)) timelineModel->removeClips(id, true, "Remove Clips of Track");
    }
    removeTracks(ids);
}

std::optional<int64_t> EditorModel::timelinePlayhead() const {
    return playingTimeline ? heardFrame() : std::nullopt;
}

bool EditorModel::canAddToTimeline() const {
    const auto track = activeTrack();
    return track && track->audio() && track->frameCount() > 0 && !track->isRecording();
}

void EditorModel::addToTimeline() {
    if (!canAddToTimeline()) return;
    const auto track = activeTrack();
    if (placeOnTimeline(*track, track->selection(), std::nullopt, timelineModel->cursor(),
                        addToTimelineTitle, "Can't add to the timeline"))
        setShowingTimeline(true);
}

std::string EditorModel::mixdownHelp() const {
    return timelineModel->selection()
               ? "Mixdown the selection to a new track, with the mixer's effects"
               : "Mixdown to a new track: the timeline as a stereo track, with the mixer's effects";
}

bool EditorModel::canMixdown() const {
    return timelineModel->frameCount() >= 1 && !mixdownFraction;
}

void EditorModel::mixdown() {
    if (!canMixdown()) return;
    const auto& selection = timelineModel->selection();
    const auto snapshot = timelineModel->mixdownSnapshot(selection);
    const fs::path url = reserveNewTrackFile(
        prefs.recordingsFolder(), selection ? "Multitrack mix (selection)" : "Multitrack mix");
    mixdownFraction = 0.0;
    mixdownProgressChanged.emit();

    Executor& executor = exec;
    std::weak_ptr<EditorModel*> weak = self;
    exec.runInBackground([&executor, weak, url, snapshot] {
        std::optional<std::string> failure;
        try {
            TimelineMixer::writeMixdown(*snapshot, url, [&executor, weak](double fraction) {
                executor.post([weak, fraction] {
                    const auto alive = weak.lock();
                    if (!alive || !(*alive)->mixdownFraction) return;
                    (*alive)->mixdownFraction = fraction;
                    (*alive)->mixdownProgressChanged.emit();
                });
            });
        } catch (const std::exception& error) {
            failure = userMessage(error);
        }
        executor.post([weak, url, failure] {
            const auto alive = weak.lock();
            if (!alive) return;
            EditorModel& model = **alive;
            model.filesBeingWritten.erase(url);
            model.mixdownFraction.reset();
            model.mixdownProgressChanged.emit();
            if (failure) {
                model.showAlert({mixdownFailedTitle, *failure});
                return;
            }
            auto track = AudioTrack::create(url);
            track->setIsNewFile(true);
            model.addTrack(track);
            model.load(track);
            model.setSelectedTrackIDs({track->id()});
        });
    });
}

} // namespace sonvale
