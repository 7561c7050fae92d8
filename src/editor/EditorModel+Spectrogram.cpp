#include "editor/EditorModel.h"

#include "analysis/Spectrogram.h"
#include "audio/AudioErrors.h"
#include "base/Executor.h"
#include "persistence/Preferences.h"

namespace sonvale {

void EditorModel::setTrackView(TrackView view) {
    if (view == shownView) return;
    shownView = view;
    trackViewChanged.emit();
    showSpectrogramIfWanted();
}

void EditorModel::showSpectrogramIfWanted() {
    if (shownView == TrackView::spectrogram) requestSpectrogram(activeTrack());
}

bool EditorModel::hasCurrentSpectrogram(const AudioTrack& track) const {
    const auto& spectrogram = track.spectrogram();
    return spectrogram && track.audio() && spectrogram->source.lock() == track.audio() &&
           spectrogram->fftSize == prefs.spectrogramSettings().fftSize;
}

std::optional<double> EditorModel::spectrogramProgress(const AudioTrack& track) const {
    auto it = spectrogramWork.find(track.id());
    if (it == spectrogramWork.end()) return std::nullopt;
    return it->second->fraction();
}

void EditorModel::requestSpectrogram(const AudioTrackPtr& track) {
    const AudioDataPtr audio = track ? track->audio() : nullptr;
    if (!audio || hasCurrentSpectrogram(*track)) return;
    const int fftSize = prefs.spectrogramSettings().fftSize;
    if (track->spectrogramInFlight.lock() == audio && track->spectrogramInFlightSize == fftSize)
        return;
    // Whatever was being computed for this track is of no use any more.
    if (auto it = spectrogramWork.find(track->id()); it != spectrogramWork.end())
        it->second->cancelled = true;
    auto progress = std::make_shared<Spectrogram::Progress>();
    spectrogramWork[track->id()] = progress;
    track->spectrogramInFlight = audio;
    track->spectrogramInFlightSize = fftSize;
    spectrogramWorkChanged.emit();

    std::weak_ptr<AudioTrack> weakTrack = track;
    std::weak_ptr<EditorModel*> token = self;
    Executor& executor = exec;
    exec.runInBackground([&executor, weakTrack, token, audio, fftSize, progress] {
        std::shared_ptr<const Spectrogram> result;
        std::string failure;
        try {
            result = Spectrogram::compute(audio, fftSize, progress.get());
        } catch (const std::exception& error) {
            failure = userMessage(error);
        }
        executor.post([weakTrack, token, audio, progress, result, failure] {
            auto alive = token.lock();
            auto t = weakTrack.lock();
            if (!alive || !t) return;
            EditorModel& model = **alive;
            auto it = model.spectrogramWork.find(t->id());
            if (it == model.spectrogramWork.end() || it->second != progress) return;
            model.spectrogramWork.erase(it);
            t->spectrogramInFlight.reset();
            t->spectrogramInFlightSize = 0;
            model.spectrogramWorkChanged.emit();
            if (!failure.empty()) {
                model.showAlert({spectrogramFailedTitle, failure});
                return;
            }
            if (result && t->audio() == audio) t->setSpectrogram(result);
            // The audio or the size changed while it ran: the view asks for the current one.
            if (t == model.activeTrack()) model.showSpectrogramIfWanted();
        });
    });
}

void EditorModel::cancelSpectrogram(AudioTrack& track) {
    auto it = spectrogramWork.find(track.id());
    if (it == spectrogramWork.end()) return;
    it->second->cancelled = true;
    spectrogramWork.erase(it);
    // Nothing is on its way any more: a track that comes back asks afresh.
    track.spectrogramInFlight.reset();
    track.spectrogramInFlightSize = 0;
    spectrogramWorkChanged.emit();
}

} // namespace sonvale
