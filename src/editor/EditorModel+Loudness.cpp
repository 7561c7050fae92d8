#include "editor/EditorModel.h"

#include "base/Executor.h"
#include "persistence/Preferences.h"

#include <cstdio>

namespace sonvale {

void EditorModel::watchTrack(const AudioTrackPtr& track) {
    std::weak_ptr<AudioTrack> weakTrack = track;
    std::weak_ptr<EditorModel*> token = self;
    track->audioChanged.connect([weakTrack, token] {
        auto alive = token.lock();
        auto t = weakTrack.lock();
        if (alive && t) (*alive)->measureLoudness(t);
    });
    measureLoudness(track);
    watchTrackForSession(track);
}

void EditorModel::measureLoudness(const AudioTrackPtr& track) {
    const AudioDataPtr audio = track ? track->audio() : nullptr;
    if (!audio || track->isLoudnessMeasured()) return;
    auto& inFlight = loudnessInFlight[track->id()];
    if (inFlight.lock() == audio) return;
    inFlight = audio;

    std::weak_ptr<AudioTrack> weakTrack = track;
    std::weak_ptr<EditorModel*> token = self;
    Executor& executor = exec;
    exec.runInBackground([&executor, weakTrack, token, audio] {
        const auto lufs = Loudness::integrated(*audio);
        executor.post([weakTrack, token, audio, lufs] {
            auto alive = token.lock();
            auto t = weakTrack.lock();
            if (!alive || !t) return;
            auto& inFlight = (*alive)->loudnessInFlight[t->id()];
            if (inFlight.lock() == audio) inFlight.reset();
            // The audio changed while it was measured: that audio has a measurement of its own.
            if (t->audio() != audio) return;
            t->setIntegratedLoudness(lufs, audio);
        });
    });
}

std::vector<LoudnessTarget> EditorModel::loudnessTargets() const {
    return sonvale::loudnessTargets(prefs.customLoudnessTarget());
}

bool EditorModel::canNormalize() const {
    const auto track = activeTrack();
    return track && track->audio();
}

bool EditorModel::canNormalizeToLoudness() const {
    const auto track = activeTrack();
    return canNormalize() && track->currentLoudness().has_value();
}

namespace {
constexpr const char* normalizeTitle = "Normalize";
} // namespace

void EditorModel::normalizePeak() {
    if (!canNormalize()) return;
    const auto track = activeTrack();
    if (auto gain = peakNormalizationGain(track->audio()->peak))
        track->changeGain(*gain, normalizeTitle);
}

void EditorModel::normalizeLoudness(const LoudnessTarget& target) {
    if (!canNormalizeToLoudness()) return;
    const auto track = activeTrack();
    track->changeGain(loudnessNormalizationGain(target.value, *track->currentLoudness()),
                      normalizeTitle);
}

void EditorModel::trimSilence() {
    if (!canNormalize()) return;
    const auto track = activeTrack();
    const auto& audio = *track->audio();
    const auto range = audio.audibleRange(-60, 0.01);
    if (!range) {
        showAlert({"Nothing to trim", "The whole track is silent."});
        return;
    }
    if (*range == FrameRange{0, audio.frameCount}) {
        char message[128];
        std::snprintf(message, sizeof message,
                      "There's no silence (below %.0f dBFS) at the start or end.", -60.0);
        showAlert({"Nothing to trim", message});
        return;
    }
    trim(*range, "Trim Silence", false);
}

} // namespace sonvale
