#include "editor/EditorModel.h"

#include "audio/AudioErrors.h"
#include "audio/AudioExporter.h"
#include "base/Errors.h"
#include "base/Executor.h"
#include "persistence/Preferences.h"

namespace sonvale {

namespace fs = std::filesystem;

void EditorModel::setClipboard(std::optional<AudioClip> newClip) {
    clip = std::move(newClip);
    clipboardChanged.emit();
}

bool EditorModel::canCopy() const {
    const auto track = activeTrack();
    return track && track->audio() && track->selection();
}

bool EditorModel::canEdit() const { return canCopy() && !activeTrack()->isRecording(); }

bool EditorModel::canPaste() const {
    const auto track = activeTrack();
    return clip && track && track->audio() && !track->isRecording();
}

bool EditorModel::attemptEdit(const std::string& actionName, const std::function<void()>& edit) {
    try {
        edit();
        return true;
    } catch (const std::exception& error) {
        showAlert({actionName + " failed", userMessage(error)});
        return false;
    }
}

void EditorModel::copySelection() {
    if (!canCopy()) return;
    const auto track = activeTrack();
    setClipboard(track->audio()->clip(*track->selection()));
}

void EditorModel::cutSelection() {
    if (!canCopy()) return;
    copySelection();
    const auto track = activeTrack();
    if (track->isRecording()) return;
    attemptEdit("Cut",
                [&] { track->replace(*track->selection(), AudioClip{}, std::nullopt, "Cut"); });
}

void EditorModel::deleteSelection() {
    if (!canEdit()) return;
    const auto track = activeTrack();
    attemptEdit("Delete",
                [&] { track->replace(*track->selection(), AudioClip{}, std::nullopt, "Delete"); });
}

void EditorModel::paste() {
    if (!canPaste()) return;
    const auto track = activeTrack();
    attemptEdit("Paste", [&] {
        if (clip->sampleRate != track->sampleRate())
            throw EditError::sampleRateMismatch(clip->sampleRate, track->sampleRate());
        const FrameRange target =
            track->selection().value_or(FrameRange{track->cursor(), track->cursor()});
        track->replace(target, *clip, FrameRange{target.lower, target.lower + clip->length()},
                       "Paste");
    });
}

void EditorModel::trim(FrameRange range, const std::string& actionName, bool selectKept) {
    const auto track = activeTrack();
    if (!track || !track->audio()) return;
    if (track->isRecording()) {
        beepRequested.emit();
        return;
    }
    UndoGroup group(track->undoStack(), actionName);
    const bool done = attemptEdit(actionName, [&] {
        const int64_t frames = track->frameCount();
        const int64_t lower = std::clamp<int64_t>(range.lower, 0, frames);
        const int64_t upper = std::clamp<int64_t>(range.upper, lower, frames);
        if (upper <= lower) throw EditError::wouldRemoveEverything();
        // The tail goes first so that the head's positions stay valid.
        if (upper < frames)
            track->replace({upper, frames}, AudioClip{},
                           selectKept ? std::optional<FrameRange>(FrameRange{lower, upper})
                                      : std::nullopt,
                           actionName);
        if (lower >= 1)
            track->replace({0, lower}, AudioClip{},
                           selectKept ? std::optional<FrameRange>(FrameRange{0, upper - lower})
                                      : std::nullopt,
                           actionName);
    });
    // A second cut that fails takes the first one back with it.
    if (!done) group.cancel();
}

void EditorModel::trimToSelection() {
    if (!canEdit()) return;
    trim(*activeTrack()->selection(), "Trim", true);
}

fs::path EditorModel::reserveNewTrackFile(const fs::path& folder, const std::string& name) {
    // The names uniqueWAV gives, also steering clear of files that are still being written.
    for (int counter = 1;; ++counter) {
        const std::string stem = counter == 1 ? name : name + " " + std::to_string(counter);
        const fs::path candidate = folder / (stem + ".wav");
        std::error_code ec;
        if (filesBeingWritten.count(candidate) || fs::exists(candidate, ec)) continue;
        filesBeingWritten.insert(candidate);
        return candidate;
    }
}

void EditorModel::newTrackFromSelection() {
    if (!canEdit()) return;
    const auto source = activeTrack();
    const FrameRange selection = *source->selection();
    AudioClip selected = source->audio()->clip(selection);

    std::vector<Marker> carried;
    for (Marker marker : source->markers()) {
        if (!selection.contains(marker.start)) continue;
        marker.id = Uuid::random();
        marker.start -= selection.lower;
        if (marker.end) marker.end = std::min(*marker.end - selection.lower, selection.length());
        carried.push_back(std::move(marker));
    }
    const float gainDB = source->gainDB();
    const fs::path url =
        reserveNewTrackFile(prefs.recordingsFolder(), source->name() + " (selection)");

    Executor& executor = exec;
    exec.runInBackground([this, &executor, weak = std::weak_ptr<EditorModel*>(self), url,
                          selected = std::move(selected), carried = std::move(carried), gainDB] {
        std::optional<std::string> failure;
        try {
            AudioExporter::writeLossless(selected, url);
        } catch (const std::exception& error) {
            failure = userMessage(error);
        }
        executor.post([this, weak, url, carried, gainDB, failure] {
            if (!weak.lock()) return;
            filesBeingWritten.erase(url);
            if (failure) {
                showAlert({"Can't create the track", *failure});
                return;
            }
            auto track = AudioTrack::create(url);
            track->setIsNewFile(true);
            track->setMarkers(carried);
            track->setGainDB(gainDB);
            addTrack(track);
            load(track);
            setSelectedTrackIDs({track->id()});
        });
    });
}

// ---- undo ----------------------------------------------------------------------------------

// While the timeline shows, Undo and Redo act on its history; else on the active track's.
UndoStack* EditorModel::visibleUndoStack() const {
    if (showingTimeline) return &timelineModel->undoStack();
    const auto track = activeTrack();
    return track ? &track->undoStack() : nullptr;
}

bool EditorModel::canUndo() const {
    const auto* stack = visibleUndoStack();
    return stack && stack->canUndo();
}

bool EditorModel::canRedo() const {
    const auto* stack = visibleUndoStack();
    return stack && stack->canRedo();
}

void EditorModel::undo() {
    if (auto* stack = visibleUndoStack()) attemptEdit("Undo", [&] { stack->undo(); });
}

void EditorModel::redo() {
    if (auto* stack = visibleUndoStack()) attemptEdit("Redo", [&] { stack->redo(); });
}

std::string EditorModel::undoMenuTitle() const {
    const auto* stack = visibleUndoStack();
    return stack ? stack->undoMenuTitle() : "Undo";
}

std::string EditorModel::redoMenuTitle() const {
    const auto* stack = visibleUndoStack();
    return stack ? stack->redoMenuTitle() : "Redo";
}

} // namespace sonvale
