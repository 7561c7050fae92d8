// The timeline in saved sessions: its record, where the audio of its clips is kept, and
// bringing it back once the audio its clips play has loaded.

#include "editor/EditorModel.h"

#include "audio/AudioLoader.h"
#include "base/Executor.h"
#include "persistence/SessionStore.h"

#include <algorithm>

namespace sonvale {

namespace fs = std::filesystem;

namespace {

template <typename State, typename Visit> void forEachFileClip(State& state, Visit&& visit) {
    for (auto& lane : state.lanes)
        for (auto& clip : lane.clips)
            if (auto* file = std::get_if<TimelineState::Clip::FileSource>(&clip.source))
                visit(clip, *file);
}

} // namespace

std::optional<fs::path> EditorModel::clipHome(const AudioDataPtr& audio) const {
    auto it = clipHomes.find(audio.get());
    if (it == clipHomes.end() || it->second.audio.lock() != audio) return std::nullopt;
    return it->second.file;
}

EditorModel::TimelineRecord EditorModel::timelineRecord() const {
    TimelineRecord record;
    if (pendingTimeline) {
        // Not live yet: kept as it was read, so nothing of it is lost in the meantime.
        record.state = pendingTimeline->state;
        record.state->isShowing = showingTimeline;
        forEachFileClip(*record.state, [&](auto&, auto&) { record.audio.push_back(nullptr); });
        return record;
    }
    const Timeline& timeline = *timelineModel;
    // Audio that has no file yet is named once, however many clips play it.
    std::map<const AudioData*, std::string> named;
    std::set<std::string> used;
    auto source = [&](const TimelineClip& clip) -> TimelineState::Clip::Source {
        for (size_t i = 0; i < trackList.size(); ++i)
            if (trackList[i]->audio() == clip.audio)
                return TimelineState::Clip::TrackSource{int64_t(i)};
        record.audio.push_back(clip.audio);
        if (auto home = clipHome(clip.audio))
            return TimelineState::Clip::FileSource{home->string()};
        auto [it, added] = named.try_emplace(clip.audio.get());
        if (added)
            it->second =
                SessionBundle::uniqueName(clip.name.empty() ? "Clip" : clip.name, "wav", used);
        return TimelineState::Clip::FileSource{it->second};
    };
    auto trackIndex = [&](const Uuid& id) -> std::optional<int64_t> {
        for (size_t i = 0; i < trackList.size(); ++i)
            if (trackList[i]->id() == id) return int64_t(i);
        return std::nullopt;
    };
    TimelineState state = timeline.state(source, trackIndex);
    state.isShowing = showingTimeline;
    if (!state.lanes.empty() || state.mixer || !state.markers.empty() || state.isShowing)
        record.state = std::move(state);
    return record;
}

std::optional<TimelineState>
EditorModel::timelineForStore(std::set<std::string>& used,
                              std::vector<SessionStore::PendingAudio>& pending) {
    TimelineRecord record = timelineRecord();
    if (!record.state) return std::nullopt;
    // Audio only in memory goes into the store's folder beside the edited tracks' audio.
    std::map<std::string, fs::path> files;
    size_t index = 0;
    forEachFileClip(*record.state, [&](auto&, TimelineState::Clip::FileSource& file) {
        const AudioDataPtr& audio = record.audio[index++];
        if (file.path.empty() || file.path[0] == '/') return;
        auto [it, added] = files.try_emplace(file.path);
        if (added) {
            it->second =
                store->audioFolder() /
                SessionBundle::uniqueName(fs::path(file.path).stem().string(), "wav", used);
            pending.push_back({audio, it->second});
            clipHomes[audio.get()] = {audio, it->second};
        }
        file.path = it->second.string();
    });
    return record.state;
}

std::optional<TimelineState>
EditorModel::timelineForDocument(std::vector<SessionBundle::ClipAudioFile>& clipFiles,
                                 std::vector<AudioDataPtr>& clipAudio) const {
    TimelineRecord record = timelineRecord();
    if (!record.state) return std::nullopt;
    std::set<std::string> listed;
    size_t index = 0;
    forEachFileClip(*record.state, [&](auto&, TimelineState::Clip::FileSource& file) {
        const AudioDataPtr& audio = record.audio[index++];
        clipAudio.push_back(audio);
        const bool inMemory = file.path.empty() || file.path[0] != '/';
        const bool inStore =
            !inMemory && store && relativeInside(file.path, store->audioFolder()).has_value();
        const bool inBundle =
            !inMemory && openDocument_ && relativeInside(file.path, openDocument_->url).has_value();
        // A file the user has stays where it is; the bundle keeps its own copies of the rest.
        if (!(inMemory || inStore || inBundle) || !listed.insert(file.path).second) return;
        if (inBundle)
            clipFiles.push_back({file.path, nullptr, true});
        else if (audio)
            clipFiles.push_back({file.path, audio, true});
    });
    return record.state;
}

void EditorModel::noteSavedClipFiles(const std::vector<AudioDataPtr>& clipAudio,
                                     const TimelineState& saved, const fs::path& bundle) {
    size_t index = 0;
    forEachFileClip(saved, [&](auto&, const TimelineState::Clip::FileSource& file) {
        if (index >= clipAudio.size()) return;
        const AudioDataPtr& audio = clipAudio[index++];
        if (audio && !file.path.empty() && file.path[0] != '/')
            clipHomes[audio.get()] = {audio, bundle / file.path};
    });
}

void EditorModel::beginTimelineRestore(const std::optional<TimelineState>& state,
                                       const std::vector<AudioTrackPtr>& tracks) {
    clipHomes.clear();
    pendingTimeline.reset();
    timelineModel->restore(TimelineState{}, {});
    setShowingTimeline(state && state->isShowing);
    if (!state) return;
    PendingTimeline pending;
    pending.state = *state;
    for (const auto& track : tracks)
        pending.trackIDs.push_back(track->id());
    forEachFileClip(pending.state, [&](auto&, auto& file) { pending.loading.insert(file.path); });
    const std::set<std::string> files = pending.loading;
    pendingTimeline = std::move(pending);
    const int generation = ++timelineGeneration;
    std::weak_ptr<EditorModel*> token = self;
    Executor& executor = exec;
    for (const std::string& path : files)
        exec.runInBackground([&executor, token, path, generation] {
            AudioDataPtr audio;
            try {
                audio = AudioLoader::load(path);
            } catch (const std::exception&) {
                // Reported with the other clips that have no audio.
            }
            executor.post([token, path, generation, audio] {
                auto alive = token.lock();
                if (!alive) return;
                EditorModel& model = **alive;
                if (!model.pendingTimeline || generation != model.timelineGeneration) return;
                model.pendingTimeline->loading.erase(path);
                model.pendingTimeline->files[path] = audio;
                model.finishTimelineRestore();
            });
        });
    finishTimelineRestore();
}

void EditorModel::finishTimelineRestore() {
    if (!pendingTimeline || !pendingTimeline->loading.empty()) return;
    for (const Uuid& id : pendingTimeline->trackIDs)
        if (const auto t = track(id); t && std::holds_alternative<AudioTrack::Loading>(t->state()))
            return; // not yet
    const PendingTimeline restored = std::move(*pendingTimeline);
    pendingTimeline.reset();
    Timeline::Sources sources;
    for (const Uuid& id : restored.trackIDs) {
        const auto t = track(id);
        sources.tracks.emplace_back(id, t ? t->audio() : nullptr);
    }
    sources.clipFile = [&](const std::string& path) {
        auto it = restored.files.find(path);
        return it == restored.files.end() ? nullptr : it->second;
    };
    const int missing = timelineModel->restore(restored.state, sources);
    for (const auto& [path, audio] : restored.files)
        if (audio) clipHomes[audio.get()] = {audio, path};
    if (documentAwaitsTimeline && openDocument_) {
        openDocument_->timelineRevision = timelineModel->editRevision();
        openDocument_->mixer = timelineModel->mixerState();
    }
    documentAwaitsTimeline = false;
    if (missing > 0) reportMissingClips(restored, missing);
    documentChanged.emit();
}

void EditorModel::reportMissingClips(const PendingTimeline& restored, int missing) {
    std::vector<std::string> names;
    auto note = [&](const fs::path& file) {
        const std::string name = "“" + file.filename().string() + "”";
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    };
    for (const auto& lane : restored.state.lanes)
        for (const auto& clip : lane.clips) {
            if (const auto* file = std::get_if<TimelineState::Clip::FileSource>(&clip.source)) {
                if (auto it = restored.files.find(file->path);
                    it == restored.files.end() || !it->second)
                    note(file->path);
            } else {
                const int64_t index = std::get<TimelineState::Clip::TrackSource>(clip.source).index;
                if (index < 0 || size_t(index) >= restored.trackIDs.size()) continue;
                if (const auto t = track(restored.trackIDs[size_t(index)]); t && !t->audio())
                    note(t->url());
            }
        }
    std::string files;
    for (size_t i = 0; i < names.size(); ++i)
        files += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    const std::string clips = missing == 1 ? "One clip" : std::to_string(missing) + " clips";
    showAlert({"Some clips have no audio",
               clips + " of the timeline could not be restored because " + files +
                   (names.size() == 1 ? " is" : " are") +
                   " missing or can't be read. The timeline opens without them; the saved "
                   "session keeps them until it is saved again."});
}

} // namespace sonvale
