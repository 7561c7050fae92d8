#include "editor/EditorModel.h"

#include "audio/AudioErrors.h"
#include "audio/AudioLoader.h"
#include "base/Executor.h"
#include "base/Text.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"

#include <algorithm>
#include <cctype>
#include <new>

#include <unistd.h>

namespace sonvale {

namespace fs = std::filesystem;

std::string userMessage(const std::exception& error) {
    if (dynamic_cast<const std::bad_alloc*>(&error))
        return AudioLoaderError::description(AudioLoaderError::Code::outOfMemory);
    return error.what();
}

EditorModel::EditorModel(Executor& executor, Preferences& preferences)
    : EditorModel(executor, preferences, nullptr) {}

EditorModel::EditorModel(Executor& executor, Preferences& preferences,
                         std::unique_ptr<PlaybackEngine> player)
    : exec(executor)
    , prefs(preferences)
    , self(std::make_shared<EditorModel*>(this))
    , engine(std::move(player)) {
    connectTransport();
    for (auto* signal : {&tracksChanged, &selectionChanged, &transportChanged,
                         &timelineShowingChanged, &timelineModel->contentChanged,
                         &timelineModel->effectsChanged, &timelineModel->selectionChanged})
        signal->connect([this] { sessionContentChanged(); });
    for (auto* signal : {&timelineModel->contentChanged, &timelineModel->effectsChanged})
        signal->connect([this] { checkMixerEffects(); });
    selectionChanged.connect([this] { showSpectrogramIfWanted(); });
    std::weak_ptr<EditorModel*> token = self;
    prefs.changed.connect([token](Preferences::Setting setting) {
        auto alive = token.lock();
        if (alive && setting == Preferences::Setting::spectrogramSettings)
            (*alive)->showSpectrogramIfWanted();
    });
}

EditorModel::~EditorModel() {
    // Spectrograms still being computed are of no use to anyone now.
    for (auto& [id, progress] : spectrogramWork)
        progress->cancelled = true;
    for (auto& [id, cancelled] : transcriptionJobs)
        *cancelled = true;
}

// ---- tracks ------------------------------------------------------------------------------

AudioTrackPtr EditorModel::track(const Uuid& id) const {
    for (const auto& t : trackList)
        if (t->id() == id) return t;
    return nullptr;
}

void EditorModel::addTrack(AudioTrackPtr newTrack) {
    if (!newTrack || track(newTrack->id())) return;
    watchTrack(newTrack);
    trackList.push_back(std::move(newTrack));
    tracksChanged.emit();
}

void EditorModel::removeTracks(const std::set<Uuid>& ids) {
    const auto firstRemoved = std::find_if(trackList.begin(), trackList.end(),
                                           [&](const auto& t) { return ids.count(t->id()) > 0; });
    if (firstRemoved == trackList.end()) return;
    const size_t place = size_t(firstRemoved - trackList.begin());
    for (const auto& t : trackList)
        if (ids.count(t->id())) {
            cancelSpectrogram(*t);
            cancelTranscription(*t);
        }
    std::erase_if(trackList, [&](const auto& t) { return ids.count(t->id()) > 0; });
    tracksChanged.emit();

    std::set<Uuid> kept;
    for (const auto& id : selectedIDs)
        if (!ids.count(id)) kept.insert(id);
    if (kept.empty() && !selectedIDs.empty() && !trackList.empty())
        kept.insert(trackList[std::min(place, trackList.size() - 1)]->id());
    setSelectedTrackIDs(std::move(kept));
}

void EditorModel::reorderTracks(const std::vector<Uuid>& order) {
    std::vector<AudioTrackPtr> reordered;
    reordered.reserve(trackList.size());
    for (const auto& id : order)
        for (const auto& t : trackList)
            if (t->id() == id &&
                std::find(reordered.begin(), reordered.end(), t) == reordered.end())
                reordered.push_back(t);
    for (const auto& t : trackList)
        if (std::find(reordered.begin(), reordered.end(), t) == reordered.end())
            reordered.push_back(t);
    if (reordered == trackList) return;
    trackList = std::move(reordered);
    tracksChanged.emit();
}

void EditorModel::setSelectedTrackIDs(std::set<Uuid> ids) {
    std::erase_if(ids, [&](const Uuid& id) { return !track(id); });
    if (ids == selectedIDs) return;
    selectedIDs = std::move(ids);
    selectionChanged.emit();
}

AudioTrackPtr EditorModel::activeTrack() const {
    for (const auto& t : trackList)
        if (selectedIDs.count(t->id())) return t;
    return nullptr;
}

void EditorModel::selectAdjacentTrack(int offset) {
    if (trackList.empty()) return;
    const auto active = activeTrack();
    const auto last = long(trackList.size()) - 1;
    long index;
    if (!active) {
        index = offset > 0 ? 0 : last;
    } else {
        const long current =
            long(std::find(trackList.begin(), trackList.end(), active) - trackList.begin());
        index = std::clamp(current + long(offset), 0L, last);
    }
    setSelectedTrackIDs({trackList[size_t(index)]->id()});
}

// ---- opening -------------------------------------------------------------------------------

namespace {

// The last component, also for a folder given with a trailing slash.
fs::path lastComponent(const fs::path& path) {
    return path.has_filename() ? path.filename() : path.parent_path().filename();
}

bool isHidden(const fs::path& path) {
    const std::string name = lastComponent(path).string();
    return !name.empty() && name[0] == '.';
}

// Case-insensitive order first, so "b.wav" sorts between "A.wav" and "C.wav"; exact order breaks
// ties.
bool pathOrder(const fs::path& a, const fs::path& b) {
    const std::string la = lowercased(a.string()), lb = lowercased(b.string());
    return la != lb ? la < lb : a < b;
}

} // namespace

bool EditorModel::isSessionDocument(const fs::path& url) {
    return lowercased(lastComponent(url).extension().string()) == ".sonvale";
}

std::vector<fs::path> EditorModel::audioFiles(const std::vector<fs::path>& urls) {
    std::vector<fs::path> found;
    for (const auto& url : urls) {
        std::error_code ec;
        if (!fs::is_directory(url, ec)) {
            if (AudioLoader::isAudioFile(url)) found.push_back(url);
            continue;
        }
        fs::recursive_directory_iterator it(url, fs::directory_options::skip_permission_denied, ec);
        for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
            const fs::path& path = it->path();
            std::error_code typeError;
            const bool isFolder = it->is_directory(typeError);
            if (isHidden(path) || (isFolder && isSessionDocument(path))) {
                if (isFolder) it.disable_recursion_pending();
                continue;
            }
            // Files inside a folder that can't be read are passed over; a file opened by name
            // becomes a track that shows why it failed.
            if (!isFolder && it->is_regular_file(typeError) && AudioLoader::isAudioFile(path) &&
                access(path.c_str(), R_OK) == 0)
                found.push_back(path);
        }
    }
    std::sort(found.begin(), found.end(), pathOrder);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::vector<AudioTrackPtr> EditorModel::open(const std::vector<fs::path>& urls) {
    std::vector<fs::path> others;
    std::optional<fs::path> document;
    for (const auto& url : urls) {
        if (!isSessionDocument(url))
            others.push_back(url);
        else if (!document)
            document = url;
    }
    if (document) openDocument(*document);
    std::vector<AudioTrackPtr> opened;
    for (const auto& file : audioFiles(others))
        opened.push_back(AudioTrack::create(file));
    if (opened.empty()) return opened;

    std::set<Uuid> ids;
    for (const auto& t : opened) {
        watchTrack(t);
        trackList.push_back(t);
        ids.insert(t->id());
    }
    tracksChanged.emit();
    for (const auto& t : opened)
        load(t);
    setSelectedTrackIDs(std::move(ids));
    return opened;
}

void EditorModel::load(const AudioTrackPtr& track) {
    track->setState(AudioTrack::Loading{0});
    Executor& executor = exec;
    std::weak_ptr<EditorModel*> token = self;
    exec.runInBackground(
        [&executor, token, weak = std::weak_ptr<AudioTrack>(track), url = track->url()] {
            auto report = [&executor, weak](auto update) {
                executor.post([weak, update = std::move(update)] {
                    if (auto t = weak.lock()) update(*t);
                });
            };
            try {
                DecodeReport lost;
                AudioDataPtr audio = AudioLoader::load(
                    url,
                    [&](double fraction) {
                        report([fraction](AudioTrack& t) {
                            if (std::holds_alternative<AudioTrack::Loading>(t.state()))
                                t.setState(AudioTrack::Loading{fraction});
                        });
                    },
                    &lost);
                report([token, audio = std::move(audio), lost = std::move(lost)](AudioTrack& t) {
                    t.finishLoading(audio, lost);
                    if (auto alive = token.lock()) {
                        (*alive)->trackFinishedLoading(t);
                        if (!lost.isClean()) (*alive)->reportDamage(t.shared_from_this());
                    }
                });
            } catch (const std::exception& error) {
                std::error_code missing;
                const std::string message =
                    fs::exists(url, missing) ? userMessage(error) : missingFileMessage(url);
                const auto* user = dynamic_cast<const UserError*>(&error);
                std::string details = user ? user->details() : std::string();
                report([token, message, details = std::move(details)](AudioTrack& t) {
                    t.setState(AudioTrack::Failed{message, details});
                    if (auto alive = token.lock()) (*alive)->finishTimelineRestore();
                });
            }
        });
}

// ---- alerts --------------------------------------------------------------------------------

void EditorModel::showAlert(AppAlert alert, std::function<void()> action) {
    currentAlert = std::move(alert);
    currentAlertAction = std::move(action);
    alertChanged.emit();
}

void EditorModel::dismissAlert() {
    if (!currentAlert) return;
    currentAlert.reset();
    currentAlertAction = nullptr;
    if (!waitingAlerts.empty()) {
        auto [alert, action] = std::move(waitingAlerts.front());
        waitingAlerts.pop_front();
        showAlert(std::move(alert), std::move(action));
        return;
    }
    alertChanged.emit();
}

void EditorModel::performAlertAction() {
    if (auto action = std::move(currentAlertAction)) action();
    dismissAlert();
}

std::vector<Marker> EditorModel::damageRegions(const DecodeReport& report) {
    std::vector<Marker> regions;
    for (const FrameRange& range : report.damaged)
        regions.push_back({Uuid::random(), "Damaged " + std::to_string(regions.size() + 1),
                           range.lower, range.upper});
    return regions;
}

void EditorModel::reportDamage(const AudioTrackPtr& track) {
    const DecodeReport& report = track->decodeReport();
    const auto audio = track->audio();
    if (report.isClean() || !audio) return;
    AppAlert alert;
    alert.title = report.damaged.empty() ? "Part of a file could not be read" : "A file is damaged";
    alert.message = report.summary(track->url().filename().string(), audio->sampleRate);
    for (const std::string& line : report.details(audio->sampleRate))
        alert.details += (alert.details.empty() ? "" : "\n") + line;
    std::function<void()> action;
    if (!report.damaged.empty()) {
        alert.actionTitle = report.damaged.size() == 1 ? "Add a Region" : "Add Regions";
        action = [weak = std::weak_ptr<AudioTrack>(track), regions = damageRegions(report)] {
            if (auto t = weak.lock()) t->addRegions(regions);
        };
    }
    if (currentAlert)
        waitingAlerts.emplace_back(std::move(alert), std::move(action));
    else
        showAlert(std::move(alert), std::move(action));
}

} // namespace sonvale
