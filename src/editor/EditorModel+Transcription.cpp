#include "editor/EditorModel.h"

#include "audio/AudioErrors.h"
#include "base/Executor.h"
#include "persistence/Preferences.h"

#include <fcntl.h>
#include <stdio.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace fs = std::filesystem;

namespace sonvale {

Transcriber& EditorModel::transcriber() {
    if (!speech) {
        speech = Transcriber::installed(models);
        speechFromFolder = true;
    }
    return *speech;
}

void EditorModel::setTranscriber(std::shared_ptr<Transcriber> engines) {
    speech = std::move(engines);
    speechFromFolder = false;
}

void EditorModel::modelFolderChanged() {
    chosenModel.reset(); // the folder's first model may be another now
    if (speechFromFolder) speech.reset();
    modelsChanged.emit();
}

bool EditorModel::canTranscribe(const AudioTrack& track) const {
    return track.audio() && track.frameCount() > 0 && !track.isRecording() &&
           !track.transcriptWork() && std::holds_alternative<AudioTrack::Ready>(track.state());
}

std::string EditorModel::transcribeTitle(const AudioTrack& track) {
    if (!track.transcript()) return "Transcribe";
    return track.isTranscriptStale() ? "Transcribe Again (audio was edited)" : "Transcribe Again";
}

template <typename Result>
void EditorModel::runTranscriptJob(
    const AudioTrackPtr& track, AudioTrack::TranscriptWork stage,
    std::function<Result(const std::atomic<bool>&, const StageReport&)> work,
    std::function<void(EditorModel&, const AudioTrackPtr&, Result)> done,
    std::function<void(EditorModel&, const std::string&)> failed) {
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    transcriptionJobs[track->id()] = cancelled;
    track->setTranscriptWork(stage);

    std::weak_ptr<AudioTrack> weakTrack = track;
    std::weak_ptr<EditorModel*> token = self;
    Executor& executor = exec;
    // Reports and the result are applied only while this job is still the track's.
    auto current = [weakTrack, token, cancelled]() -> std::pair<EditorModel*, AudioTrackPtr> {
        auto alive = token.lock();
        auto t = weakTrack.lock();
        if (!alive || !t) return {};
        auto it = (*alive)->transcriptionJobs.find(t->id());
        if (it == (*alive)->transcriptionJobs.end() || it->second != cancelled) return {};
        return {*alive, t};
    };
    exec.runInBackground([&executor, work = std::move(work), done = std::move(done),
                          failed = std::move(failed), cancelled, current] {
        std::optional<Result> result;
        std::string failure;
        try {
            const StageReport report = [&executor, current](AudioTrack::TranscriptWork value) {
                executor.post([current, value] {
                    if (auto [model, t] = current(); t) t->setTranscriptWork(value);
                });
            };
            result = work(*cancelled, report);
        } catch (const TranscriptionCancelled&) {
            return;
        } catch (const ResponseCancelled&) {
            return;
        } catch (const std::exception& error) {
            failure = userMessage(error);
        }
        executor.post([current, done, failed, result = std::move(result), failure]() mutable {
            auto [model, t] = current();
            if (!t) return;
            model->transcriptionJobs.erase(t->id());
            t->setTranscriptWork(std::nullopt);
            if (result)
                done(*model, t, std::move(*result));
            else
                failed(*model, failure);
        });
    });
}

void EditorModel::transcribe(const AudioTrackPtr& track) {
    if (!track || !canTranscribe(*track)) return;
    std::string locale;
    try {
        locale = transcriber().resolve(prefs.transcriptionLanguage());
    } catch (const std::exception& error) {
        showAlert({transcriptionFailedTitle, userMessage(error)});
        return;
    }
    const AudioDataPtr audio = track->audio();
    const int64_t revision = track->editRevision();
    std::shared_ptr<const Transcriber> engines = speech;
    runTranscriptJob<std::vector<TranscriptSegment>>(
        track, AudioTrack::Transcribing{0},
        [engines, audio, locale](const std::atomic<bool>& cancelled, const StageReport& report) {
            auto stage = [&report](Transcriber::Stage value) {
                std::visit([&](auto v) { report(v); }, value);
            };
            return engines->transcribe(audio, locale, stage, &cancelled);
        },
        [locale, revision](EditorModel& model, const AudioTrackPtr& t,
                           std::vector<TranscriptSegment> segments) {
            if (segments.empty())
                model.showAlert(
                    {transcriptionFailedTitle,
                     "The transcriber didn't recognise any speech in " + t->name() + "."});
            else
                t->setTranscript(
                    Transcript{locale, std::move(segments), revision, std::nullopt, std::nullopt});
        },
        [](EditorModel& model, const std::string& failure) {
            model.showAlert({transcriptionFailedTitle, failure});
        });
}

void EditorModel::setLanguageModel(std::shared_ptr<const LanguageModel> model) {
    chosenModel = std::move(model);
}

void EditorModel::setModelFolder(ModelFolder folder) {
    models = std::move(folder);
    modelFolderChanged();
}

std::optional<std::string> EditorModel::languageModelUnavailableReason() const {
    // A model already set or loaded needs only the setting.
    if (chosenModel && prefs.showsAIFeatures()) return std::nullopt;
    return TranscriptAI::unavailableReason(prefs.showsAIFeatures(), models);
}

bool EditorModel::canSummarize(const AudioTrack& track) const {
    return track.transcript() && !track.transcript()->segments.empty() && !track.transcriptWork();
}

bool EditorModel::canCreateRegionsFromTopics(const AudioTrack& track) const {
    return canSummarize(track) && !track.isTranscriptStale();
}

namespace {
// The model in use, loaded on the job's thread the first time; the main thread keeps it.
std::shared_ptr<const LanguageModel> modelFor(std::shared_ptr<const LanguageModel> chosen,
                                              const ModelFolder& folder) {
    return chosen ? chosen : TranscriptAI::installedModel(folder);
}
} // namespace

void EditorModel::summarizeTranscript(const AudioTrackPtr& track) {
    if (!track || !canSummarize(*track)) return;
    if (const auto reason = languageModelUnavailableReason()) {
        showAlert({summarizeFailedTitle, *reason});
        return;
    }
    using Answer = std::pair<std::shared_ptr<const LanguageModel>, TranscriptAI::Overview>;
    runTranscriptJob<Answer>(
        track, AudioTrack::Thinking{"Summarizing…"},
        [chosen = chosenModel, folder = models, transcript = *track->transcript()](
            const std::atomic<bool>& cancelled, const StageReport&) {
            auto model = modelFor(chosen, folder);
            return Answer{model, TranscriptAI(model).overview(transcript, &cancelled)};
        },
        [](EditorModel& editor, const AudioTrackPtr& t, Answer answer) {
            editor.chosenModel = answer.first;
            if (!t->transcript()) return;
            Transcript transcript = *t->transcript();
            transcript.suggestedTitle = answer.second.title;
            transcript.summary = answer.second.summary;
            t->setTranscript(std::move(transcript));
        },
        [](EditorModel& editor, const std::string& failure) {
            editor.showAlert({summarizeFailedTitle, failure});
        });
}

void EditorModel::createRegionsFromTopics(const AudioTrackPtr& track) {
    if (!track || !canCreateRegionsFromTopics(*track)) return;
    if (const auto reason = languageModelUnavailableReason()) {
        showAlert({topicsFailedTitle, *reason});
        return;
    }
    using Answer = std::pair<std::shared_ptr<const LanguageModel>, std::vector<TopicStart>>;
    runTranscriptJob<Answer>(
        track, AudioTrack::Thinking{"Finding topics…"},
        [chosen = chosenModel, folder = models, transcript = *track->transcript()](
            const std::atomic<bool>& cancelled, const StageReport&) {
            auto model = modelFor(chosen, folder);
            return Answer{model, TranscriptAI(model).topics(transcript, &cancelled)};
        },
        [](EditorModel& editor, const AudioTrackPtr& t, Answer answer) {
            editor.chosenModel = answer.first;
            const auto regions =
                t->transcript()
                    ? t->transcript()->regions(answer.second, t->sampleRate(), t->frameCount())
                    : std::vector<Marker>{};
            if (regions.empty()) {
                editor.showAlert({topicsFailedTitle, noTopicsMessage});
                return;
            }
            t->addRegions(regions);
            editor.markerListShown.emit();
        },
        [](EditorModel& editor, const std::string& failure) {
            editor.showAlert({topicsFailedTitle, failure});
        });
}

std::optional<std::string> EditorModel::suggestedFileName(const AudioTrack& track) const {
    if (!track.transcript() || !track.transcript()->suggestedTitle) return std::nullopt;
    std::string name;
    for (char c : *track.transcript()->suggestedTitle)
        if (c != '/' && static_cast<unsigned char>(c) >= 0x20) name += c;
    while (!name.empty() && (name.back() == ' ' || name.back() == '.'))
        name.pop_back();
    while (!name.empty() && (name.front() == ' ' || name.front() == '.'))
        name.erase(0, 1);
    if (name.empty() || name == track.name()) return std::nullopt;
    return name;
}

void EditorModel::renameToSuggestedTitle(const AudioTrackPtr& track) {
    const auto name = track ? suggestedFileName(*track) : std::nullopt;
    if (!name || track->isRecording()) return;
    const fs::path from = track->url();
    const fs::path to = from.parent_path() / (*name + from.extension().string());
    // RENAME_NOREPLACE: a file that appears meanwhile is never overwritten either.
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
        const std::string reason = errno == EEXIST
                                       ? "A file named “" + to.filename().string() +
                                             "” is already in " + from.parent_path().string() + "."
                                       : "“" + from.filename().string() +
                                             "” couldn't be renamed: " + std::strerror(errno) + ".";
        showAlert({"Couldn't rename the track", reason});
        return;
    }
    track->setURL(to);
}

void EditorModel::addModel(const fs::path& source) {
    if (modelCopy) return;
    modelCopy = 0;
    modelCopyCancelled = std::make_shared<std::atomic<bool>>(false);
    modelsChanged.emit();
    std::weak_ptr<EditorModel*> token = self;
    Executor& executor = exec;
    exec.runInBackground(
        [&executor, token, folder = models, source, cancelled = modelCopyCancelled] {
            std::string failure;
            auto report = [&executor, token, cancelled](double fraction) {
                executor.post([token, cancelled, fraction] {
                    auto alive = token.lock();
                    if (!alive || (*alive)->modelCopyCancelled != cancelled) return;
                    (*alive)->modelCopy = fraction;
                    (*alive)->modelsChanged.emit();
                });
            };
            try {
                folder.add(source, report, cancelled.get());
            } catch (const ModelCopyCancelled&) {
                return;
            } catch (const std::exception& error) {
                failure = userMessage(error);
            }
            executor.post([token, cancelled, failure] {
                auto alive = token.lock();
                if (!alive || (*alive)->modelCopyCancelled != cancelled) return;
                EditorModel& model = **alive;
                model.modelCopy.reset();
                model.modelCopyCancelled.reset();
                if (!failure.empty()) model.showAlert({"Couldn't add the model", failure});
                model.modelFolderChanged();
            });
        });
}

void EditorModel::cancelModelCopy() {
    if (!modelCopyCancelled) return;
    *modelCopyCancelled = true;
    modelCopyCancelled.reset();
    modelCopy.reset();
    modelsChanged.emit();
}

void EditorModel::removeModel(const fs::path& file) {
    try {
        models.remove(file);
    } catch (const std::exception& error) {
        showAlert({"Couldn't remove the model", userMessage(error)});
    }
    modelFolderChanged();
}

void EditorModel::cancelTranscription(AudioTrack& track) {
    auto it = transcriptionJobs.find(track.id());
    if (it == transcriptionJobs.end()) return;
    *it->second = true;
    transcriptionJobs.erase(it);
    track.setTranscriptWork(std::nullopt);
}

void EditorModel::go(const TranscriptSegment& segment, const AudioTrackPtr& track) {
    if (!track || !track->audio()) return;
    if (track != activeTrack()) setSelectedTrackIDs({track->id()});
    const auto frame = int64_t(std::llround(segment.start * track->sampleRate()));
    scrub(std::clamp<int64_t>(frame, 0, track->frameCount()));
    track->follow(playheadPosition());
}

void EditorModel::copyTranscript(const AudioTrack& track) {
    if (track.transcript() && !track.transcript()->segments.empty())
        textCopied.emit(track.transcript()->text());
}

} // namespace sonvale
