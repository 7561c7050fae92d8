#include "editor/EditorModel.h"

#include "base/Executor.h"
#include "base/Text.h"
#include "persistence/Preferences.h"
#include "persistence/SessionStore.h"

#include <algorithm>
#include <cctype>
#include <iostream>

namespace sonvale {

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> pathBytes(const fs::path& path) {
    const std::string text = path.string();
    return {text.begin(), text.end()};
}

// An absolute, normal path without a trailing separator.
fs::path bundlePath(const fs::path& url) {
    fs::path path = fs::absolute(url).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

} // namespace

std::optional<std::string> EditorModel::relativeInside(const fs::path& file,
                                                       const fs::path& folder) {
    const std::string f = file.lexically_normal().string();
    const std::string d = folder.lexically_normal().string() + "/";
    if (f.size() > d.size() && f.compare(0, d.size(), d) == 0) return f.substr(d.size());
    return std::nullopt;
}

// ---- the automatic store ----------------------------------------------------------------------

void EditorModel::attachSessionStore(std::shared_ptr<SessionStore> sessionStore) {
    store = std::move(sessionStore);
}

void EditorModel::watchTrackForSession(const AudioTrackPtr& track) {
    std::weak_ptr<EditorModel*> token = self;
    auto changed = [token] {
        if (auto alive = token.lock()) (*alive)->sessionContentChanged();
    };
    for (auto* signal : {&track->urlChanged, &track->audioChanged, &track->selectionChanged,
                         &track->cursorChanged, &track->viewportChanged, &track->markersChanged,
                         &track->gainChanged, &track->revisionsChanged, &track->transcriptChanged})
        signal->connect(changed);
}

void EditorModel::sessionContentChanged() {
    if (restoring) return;
    scheduleSave();
    documentChanged.emit();
}

void EditorModel::scheduleSave() {
    pendingSave.cancel();
    if (!store || temporarySession) return;
    std::weak_ptr<EditorModel*> token = self;
    pendingSave = exec.postAfter(sessionSaveDelay, [token] {
        if (auto alive = token.lock()) (*alive)->saveSession();
    });
}

void EditorModel::saveSession() {
    pendingSave.cancel();
    if (!store || temporarySession) return;
    SessionState state;
    std::vector<SessionStore::PendingAudio> audio;
    // Names taken in the store's audio folder, so that a new file never lands on a kept one.
    std::set<std::string> used;
    std::error_code error;
    for (fs::directory_iterator it(store->audioFolder(), error), end; !error && it != end;
         it.increment(error))
        used.insert(lowercased(it->path().filename().string()));
    for (const auto& [id, stored] : storedAudio)
        used.insert(lowercased(stored.file.filename().string()));

    for (const auto& track : trackList) {
        TrackState t = trackState(*track);
        auto [source, edited] = trackSource(*track);
        if (edited) {
            StoredAudio& stored = storedAudio[track->id()];
            if (stored.audio.lock() != edited || stored.file.empty()) {
                stored.audio = edited;
                stored.file =
                    store->audioFolder() / SessionBundle::uniqueName(track->name(), "wav", used);
            }
            source = stored.file;
            audio.push_back({edited, stored.file});
        }
        t.path = fs::absolute(source).lexically_normal().string();
        state.tracks.push_back(std::move(t));
    }
    state.selectedIndices = selectedIndices();
    state.loopPlayback = looping;
    state.timeline = timelineForStore(used, audio);
    store->saveInBackground(exec, std::move(state), std::move(audio));
}

// ---- the live session as state ----------------------------------------------------------------

TrackState EditorModel::trackState(const AudioTrack& track) const {
    // A track that has not loaded (or can't) keeps the view it was restored with.
    if (!track.audio())
        if (auto it = restoredStates.find(track.id()); it != restoredStates.end()) {
            TrackState kept = it->second;
            kept.path = track.url().string();
            kept.gainDB = track.gainDB();
            kept.markers = track.markers();
            kept.transcript = track.transcript();
            return kept;
        }
    TrackState t;
    t.path = track.url().string();
    t.gainDB = track.gainDB();
    t.verticalZoom = track.verticalZoom();
    t.cursor = track.cursor();
    if (const auto& s = track.selection()) t.selection = std::pair(s->lower, s->upper);
    t.viewportStart = track.viewport().start;
    t.samplesPerPoint = track.viewport().samplesPerPoint;
    t.viewportWidth = track.viewport().width;
    t.markers = track.markers();
    t.transcript = track.transcript();
    return t;
}

std::pair<fs::path, AudioDataPtr> EditorModel::trackSource(const AudioTrack& track) const {
    if (!track.audio() || track.audioEditDepth() == 0) return {track.url(), nullptr};
    if (openDocument_ && track.fileRevision() == track.editRevision())
        if (auto it = openDocument_->bundlePaths.find(track.id());
            it != openDocument_->bundlePaths.end())
            return {openDocument_->url / it->second, nullptr};
    return {track.url(), track.audio()};
}

std::vector<int64_t> EditorModel::selectedIndices() const {
    std::vector<int64_t> indices;
    for (size_t i = 0; i < trackList.size(); ++i)
        if (selectedIDs.count(trackList[i]->id())) indices.push_back(int64_t(i));
    return indices;
}

SessionState EditorModel::sessionState() const {
    SessionState state;
    for (const auto& track : trackList) {
        TrackState t = trackState(*track);
        t.path = fs::absolute(trackSource(*track).first).lexically_normal().string();
        state.tracks.push_back(std::move(t));
    }
    state.selectedIndices = selectedIndices();
    state.loopPlayback = looping;
    state.timeline = timelineRecord().state;
    return state;
}

void EditorModel::restoreSession(const SessionState& state) {
    if (isPlaying()) stop();
    if (mixerChannel) closeEffects(); // the editor's own chain comes back, to be closed too
    if (effects) closeEffects();
    restoring = true;
    restoredStates.clear();
    std::set<Uuid> all;
    for (const auto& t : trackList)
        all.insert(t->id());
    removeTracks(all);

    std::vector<AudioTrackPtr> made;
    for (const auto& t : state.tracks) {
        auto track = AudioTrack::create(t.path);
        track->setGainDB(t.gainDB);
        track->setVerticalZoom(t.verticalZoom);
        track->setMarkers(t.markers);
        track->setTranscript(t.transcript);
        restoredStates[track->id()] = t;
        made.push_back(track);
    }
    for (const auto& track : made) {
        watchTrack(track);
        trackList.push_back(track);
    }
    tracksChanged.emit();
    for (const auto& track : made)
        load(track);
    std::set<Uuid> selected;
    for (int64_t index : state.selectedIndices)
        if (index >= 0 && size_t(index) < made.size()) selected.insert(made[size_t(index)]->id());
    setSelectedTrackIDs(std::move(selected));
    if (looping != state.loopPlayback) {
        looping = state.loopPlayback;
        transportChanged.emit();
    }
    beginTimelineRestore(state.timeline, made);
    restoring = false;
    sessionContentChanged();
}

void EditorModel::trackFinishedLoading(AudioTrack& track) {
    if (auto it = restoredStates.find(track.id()); it != restoredStates.end()) {
        const TrackState& t = it->second;
        if (t.samplesPerPoint > 0 && t.viewportWidth > 0)
            track.setViewport({t.viewportStart, t.samplesPerPoint, t.viewportWidth});
        if (t.selection) track.setSelection(FrameRange{t.selection->first, t.selection->second});
        track.setCursor(t.cursor);
        track.clampToAudio();
        restoredStates.erase(it);
    }
    finishTimelineRestore();
}

void EditorModel::restoreLastSession(bool incognito) {
    if (incognito) {
        temporarySession = true;
        pendingSave.cancel();
        showAlert({"Incognito Session", incognitoMessage});
        return;
    }
    if (prefs.launchSession() == Preferences::LaunchSession::empty) return;
    const std::optional<SessionState> stored = store ? store->load() : std::nullopt;
    if (const auto& bookmark = prefs.lastDocumentBookmark()) {
        const fs::path url(std::string(bookmark->begin(), bookmark->end()));
        try {
            const SessionState saved = SessionBundle::read(url);
            // The store holds what was live at the end, the document only what was saved.
            const bool storeIsNewer =
                stored && encodeSessionState(*stored) != encodeSessionState(saved);
            restoreSession(storeIsNewer ? *stored : saved);
            openDocument_ = recordDocument(url, saved);
            documentAwaitsTimeline = !storeIsNewer && pendingTimeline;
            documentChanged.emit();
            return;
        } catch (const std::exception& error) {
            std::cerr << "Sonvale: couldn't reopen " << url << ": " << error.what() << "\n";
            prefs.setLastDocumentBookmark(std::nullopt);
        }
    }
    if (stored) restoreSession(*stored);
}

// ---- documents ------------------------------------------------------------------------------

std::string EditorModel::documentName() const {
    return SessionBundle::displayName(openDocument_ ? std::optional(openDocument_->url)
                                                    : std::nullopt);
}

bool EditorModel::isDocumentEdited() const {
    if (!openDocument_) return false;
    if (!pendingTimeline && (timelineModel->editRevision() != openDocument_->timelineRevision ||
                             timelineModel->mixerState() != openDocument_->mixer))
        return true;
    const auto& saved = openDocument_->saved;
    if (saved.size() != trackList.size()) return true;
    for (size_t i = 0; i < saved.size(); ++i) {
        const AudioTrack& t = *trackList[i];
        const auto& s = saved[i];
        if (s.id != t.id() || s.path != t.url().string() || s.gainDB != t.gainDB() ||
            s.markers != t.markers() || s.transcript != t.transcript() ||
            s.revision != t.editRevision())
            return true;
    }
    return false;
}

bool EditorModel::hasUnsavedChanges() const {
    return std::any_of(trackList.begin(), trackList.end(), [&](const auto& t) {
        return t->hasUnexportedEdits() &&
               !(openDocument_ && t->fileRevision() == t->editRevision());
    });
}

EditorModel::SessionDocument EditorModel::recordDocument(const fs::path& url,
                                                         const SessionState& saved) const {
    // What the bundle holds, matched to the live tracks by position.
    SessionDocument document;
    document.url = url;
    for (size_t i = 0; i < saved.tracks.size(); ++i) {
        const TrackState& t = saved.tracks[i];
        const Uuid id = i < trackList.size() ? trackList[i]->id() : Uuid::random();
        document.saved.push_back({id, t.path, t.gainDB, t.markers, t.transcript, 0});
        if (auto relative = relativeInside(t.path, url)) document.bundlePaths[id] = *relative;
    }
    document.timelineRevision = timelineModel->editRevision();
    if (saved.timeline) document.mixer = saved.timeline->mixer;
    return document;
}

void EditorModel::noteDocument(const fs::path& url) {
    prefs.setLastDocumentBookmark(pathBytes(url));
    prefs.noteRecentSession(url.string());
}

void EditorModel::saveDocument(std::function<void()> then) {
    if (!openDocument_) return;
    saveDocumentAs(openDocument_->url, std::move(then));
}

void EditorModel::saveDocumentAs(fs::path url, std::function<void()> then) {
    if (std::any_of(trackList.begin(), trackList.end(),
                    [](const auto& t) { return t->isRecording(); })) {
        showAlert({saveFailedTitle, "Stop recording before saving the session."});
        return;
    }
    if (isSavingDocument()) return;
    url = bundlePath(url);
    if (lowercased(url.extension().string()) != ".sonvale") url += ".sonvale";

    struct Job {
        std::vector<SessionBundle::Track> tracks;
        std::vector<int64_t> selected;
        bool loop = false;
        std::optional<TimelineState> timeline;
        std::vector<SessionBundle::ClipAudioFile> clipFiles;
        std::vector<AudioDataPtr> clipAudio; // per file clip of `timeline`
        int64_t timelineRevision = 0;
        bool timelinePending = false;
        std::optional<fs::path> historyFrom;
        SessionBundle::NewSnapshot snapshot;
        std::vector<SessionDocument::TrackContent> contents;
    };
    auto job = std::make_shared<Job>();
    for (size_t i = 0; i < trackList.size(); ++i) {
        const AudioTrack& t = *trackList[i];
        auto [source, edited] = trackSource(t);
        job->tracks.push_back({trackState(t), source, edited, t.name(), false});
        job->contents.push_back(
            {t.id(), t.url().string(), t.gainDB(), t.markers(), t.transcript(), t.editRevision()});
    }
    job->selected = selectedIndices();
    job->loop = looping;
    job->timeline = timelineForDocument(job->clipFiles, job->clipAudio);
    job->timelineRevision = timelineModel->editRevision();
    job->timelinePending = pendingTimeline.has_value();
    job->historyFrom = openDocument_ ? std::optional(openDocument_->url) : std::optional(url);
    job->snapshot.date = SessionBundle::Clock::now();
    if (windowPicture) job->snapshot.image = windowPicture();

    saveProgress = 0.0;
    documentChanged.emit();
    std::weak_ptr<EditorModel*> token = self;
    Executor& executor = exec;
    exec.runInBackground([&executor, token, job, url, then = std::move(then)] {
        auto report = [&](double fraction) {
            executor.post([token, fraction] {
                if (auto alive = token.lock(); alive && (*alive)->saveProgress) {
                    (*alive)->saveProgress = fraction;
                    (*alive)->documentChanged.emit();
                }
            });
        };
        try {
            const auto history = SessionBundle::history(job->historyFrom);
            auto result = SessionBundle::write(job->tracks, job->selected, job->loop, job->timeline,
                                               job->clipFiles, history, job->snapshot, url, report);
            executor.post([token, job, url, state = std::move(result.state), then] {
                auto alive = token.lock();
                if (!alive) return;
                EditorModel& model = **alive;
                SessionDocument document;
                document.url = url;
                document.saved = job->contents;
                for (size_t i = 0; i < job->contents.size(); ++i) {
                    const std::string& path = state.tracks[i].path;
                    if (!path.empty() && path[0] != '/')
                        document.bundlePaths[job->contents[i].id] = path;
                    if (auto track = model.track(job->contents[i].id))
                        track->setFileRevision(job->contents[i].revision);
                }
                document.timelineRevision = job->timelineRevision;
                if (job->timeline) document.mixer = job->timeline->mixer;
                if (state.timeline) model.noteSavedClipFiles(job->clipAudio, *state.timeline, url);
                // A timeline still waiting for its audio was saved as it was read: the
                // document's revision is the one it gets once restored.
                model.documentAwaitsTimeline = job->timelinePending && model.pendingTimeline;
                if (job->timelinePending && !model.pendingTimeline)
                    document.timelineRevision = model.timelineModel->editRevision();
                model.openDocument_ = std::move(document);
                model.saveProgress.reset();
                model.noteDocument(url);
                model.documentChanged.emit();
                model.scheduleSave();
                if (then) then();
            });
        } catch (const std::exception& error) {
            executor.post([token, message = userMessage(error)] {
                auto alive = token.lock();
                if (!alive) return;
                (*alive)->saveProgress.reset();
                (*alive)->documentChanged.emit();
                (*alive)->showAlert({saveFailedTitle, message});
            });
        }
    });
}

bool EditorModel::readDocument(const fs::path& url, const std::string& failureTitle) {
    // The save under way would make its bundle the document once it completes.
    if (isSavingDocument()) return false;
    try {
        const SessionState state = SessionBundle::read(url);
        restoreSession(state);
        openDocument_ = recordDocument(url, state);
        documentAwaitsTimeline = pendingTimeline.has_value();
        noteDocument(url);
        documentChanged.emit();
        return true;
    } catch (const std::exception& error) {
        showAlert({failureTitle, userMessage(error) + " (" + url.string() + ")"});
        return false;
    }
}

void EditorModel::openDocument(const fs::path& url) {
    if (needsSaving())
        documentReplaceRequested.emit(url);
    else
        openDocumentNow(url);
}

bool EditorModel::openDocumentNow(const fs::path& url) {
    const fs::path path = bundlePath(url);
    return readDocument(path, "Couldn't open “" + path.filename().string() + "”");
}

void EditorModel::newSession() {
    if (isSavingDocument()) return;
    restoreSession({});
    openDocument_.reset();
    prefs.setLastDocumentBookmark(std::nullopt);
    documentChanged.emit();
}

void EditorModel::revertDocument() {
    if (openDocument_) readDocument(openDocument_->url, "Can't revert");
}

std::vector<SessionBundle::Snapshot> EditorModel::snapshots() const {
    if (!openDocument_) return {};
    try {
        return SessionBundle::snapshots(openDocument_->url);
    } catch (const std::exception& error) {
        std::cerr << "Sonvale: couldn't list the snapshots: " << error.what() << "\n";
        return {};
    }
}

void EditorModel::restoreSnapshot(const std::string& id) {
    if (!openDocument_) return;
    try {
        const SessionState state = SessionBundle::read(id, openDocument_->url);
        restoreSession(state);
        documentChanged.emit();
    } catch (const std::exception& error) {
        showAlert({"Can't restore the snapshot", userMessage(error)});
    }
}

// ---- missing and new files ------------------------------------------------------------------

bool EditorModel::isMissing(const AudioTrack& track) {
    std::error_code error;
    return std::holds_alternative<AudioTrack::Failed>(track.state()) &&
           !fs::exists(track.url(), error);
}

std::string EditorModel::missingFileMessage(const fs::path& path) {
    return "The file isn't at " + path.string() +
           " any more. Locate it to keep working with the track; other missing files in the same "
           "folder are found with it.";
}

int EditorModel::relinkMissing(const Uuid& trackID, const fs::path& file) {
    const auto chosen = track(trackID);
    if (!chosen) return 0;
    int relinked = 0;
    auto relink = [&](const AudioTrackPtr& t, const fs::path& to) {
        t->setURL(to);
        load(t);
        ++relinked;
    };
    relink(chosen, file);
    for (const auto& t : trackList) {
        if (t == chosen || !isMissing(*t)) continue;
        const fs::path candidate = file.parent_path() / t->url().filename();
        std::error_code error;
        if (fs::is_regular_file(candidate, error)) relink(t, candidate);
    }
    return relinked;
}

std::vector<fs::path> EditorModel::newFilesNotInSavedSession() const {
    std::set<std::string> saved;
    if (openDocument_)
        for (const auto& content : openDocument_->saved)
            saved.insert(content.path);
    std::vector<fs::path> files;
    for (const auto& t : trackList)
        if (t->isNewFile() && !saved.count(t->url().string())) files.push_back(t->url());
    return files;
}

AppAlert EditorModel::keepNewFilesQuestion(const std::vector<fs::path>& files) {
    std::string names;
    for (size_t i = 0; i < files.size(); ++i) {
        if (i > 0) names += i + 1 == files.size() ? " and " : ", ";
        names += "“" + files[i].filename().string() + "”";
    }
    const std::string folder = files.empty() ? std::string() : files.front().parent_path().string();
    if (files.size() == 1)
        return {"Keep the new audio file?",
                names +
                    ": It was made after the session was saved, so the session doesn't have it. "
                    "Kept, it stays in " +
                    folder + "."};
    return {"Keep the " + std::to_string(files.size()) + " new audio files?",
            names +
                " were made after the session was saved, so the session doesn't have them. "
                "Kept, they stay in " +
                folder + "."};
}

} // namespace sonvale
