#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "engine/RenderSource.h"
#include "persistence/Preferences.h"

#include <algorithm>

namespace sonvale {

namespace fs = std::filesystem;

void EditorModel::setShowingTimeline(bool flag) {
    if (flag == showingTimeline) return;
    // What plays belongs to the view that is going away.
    if (isPlaying()) finishPlayback(false);
    showingTimeline = flag;
    timelineShowingChanged.emit();
}

void EditorModel::playTimeline() {
    const int64_t frames = timelineModel->frameCount();
    FrameRange range{0, frames};
    const int64_t cursor = timelineModel->cursor();
    int64_t at = cursor >= 0 && cursor < frames ? cursor : 0;
    playingSelection = false;
    if (const auto& selection = timelineModel->selection();
        selection && selection->first < frames) {
        range = {selection->first, std::min(selection->second, frames)};
        at = range.lower;
        playingSelection = true;
    }
    timelineModel->meters()->clear();
    // The mix runs the buses' and the master's effects itself: no live effect of the editor.
    if (!startSource(timelineModel->playback(), nullptr, false, range, at)) return;
    playingTrack.reset();
    playingTimeline = true;
    transportChanged.emit();
    playheadChanged.emit();
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
