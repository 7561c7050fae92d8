#include "editor/EditorModel.h"

#include "audio/AudioErrors.h"
#include "base/Executor.h"
#include "persistence/Preferences.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

Transcriber& EditorModel::transcriber() {
    if (!speech) speech = Transcriber::installed();
    return *speech;
}

void EditorModel::setTranscriber(std::shared_ptr<Transcriber> engines) {
    speech = std::move(engines);
}

bool EditorModel::canTranscribe(const AudioTrack& track) const {
    return track.audio() && track.frameCount() > 0 && !track.isRecording() &&
           !track.transcriptWork() && std::holds_alternative<AudioTrack::Ready>(track.state());
}

std::string EditorModel::transcribeTitle(const AudioTrack& track) {
    if (!track.transcript()) return "Transcribe";
    return track.isTranscriptStale() ? "Transcribe Again (audio was edited)" : "Transcribe Again";
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
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    transcriptionJobs[track->id()] = cancelled;
    track->setTranscriptWork(AudioTrack::Transcribing{0});

    std::weak_ptr<AudioTrack> weakTrack = track;
    std::weak_ptr<EditorModel*> token = self;
    Executor& executor = exec;
    std::shared_ptr<const Transcriber> engines = speech;
    // Stage reports and the result are applied only while this job is still the track's.
    auto current = [weakTrack, token, cancelled]() -> std::pair<EditorModel*, AudioTrackPtr> {
        auto alive = token.lock();
        auto t = weakTrack.lock();
        if (!alive || !t) return {};
        auto it = (*alive)->transcriptionJobs.find(t->id());
        if (it == (*alive)->transcriptionJobs.end() || it->second != cancelled) return {};
        return {*alive, t};
    };
    exec.runInBackground([&executor, engines, audio, locale, cancelled, current, revision] {
        std::vector<TranscriptSegment> segments;
        std::string failure;
        try {
            auto stage = [&executor, current](Transcriber::Stage value) {
                executor.post([current, value] {
                    auto [model, t] = current();
                    if (!t) return;
                    std::visit([&](auto v) { t->setTranscriptWork(v); }, value);
                });
            };
            segments = engines->transcribe(audio, locale, stage, cancelled.get());
        } catch (const TranscriptionCancelled&) {
            return;
        } catch (const std::exception& error) {
            failure = userMessage(error);
        }
        executor.post([current, segments = std::move(segments), failure, locale, revision] {
            auto [model, t] = current();
            if (!t) return;
            model->transcriptionJobs.erase(t->id());
            t->setTranscriptWork(std::nullopt);
            if (!failure.empty()) {
                model->showAlert({transcriptionFailedTitle, failure});
            } else if (segments.empty()) {
                model->showAlert(
                    {transcriptionFailedTitle,
                     "The transcriber didn't recognise any speech in " + t->name() + "."});
            } else {
                t->setTranscript(
                    Transcript{locale, segments, revision, std::nullopt, std::nullopt});
            }
        });
    });
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
