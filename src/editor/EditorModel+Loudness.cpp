#include "editor/EditorModel.h"

#include "base/Executor.h"
#include "effects/EffectChain.h"
#include "effects/EffectSession.h"
#include "effects/LimiterProcessor.h"
#include "persistence/Preferences.h"

#include <algorithm>
#include <cstdio>

namespace sonvale {

void EditorModel::watchTrack(const AudioTrackPtr& track) {
    std::weak_ptr<AudioTrack> weakTrack = track;
    std::weak_ptr<EditorModel*> token = self;
    track->audioChanged.connect([weakTrack, token] {
        auto alive = token.lock();
        auto t = weakTrack.lock();
        if (alive && t) (*alive)->measureLoudness(t);
        if (alive && t && t == (*alive)->activeTrack()) (*alive)->showSpectrogramIfWanted();
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

std::optional<ClippingQuestion> EditorModel::clippingQuestion(const LoudnessTarget& target) const {
    if (!canNormalizeToLoudness()) return std::nullopt;
    const auto track = activeTrack();
    const float gain = loudnessNormalizationGain(target.value, *track->currentLoudness());
    const auto clean = peakNormalizationGain(track->audio()->peak);
    // Within a hundredth of a dB of full scale counts as clean, as the gain display rounds.
    if (!clean || gain <= *clean + 0.01f) return std::nullopt;
    ClippingQuestion question;
    question.target = target;
    question.gain = gain;
    question.cleanGain = *clean;
    char text[256];
    std::snprintf(text, sizeof text, "Normalizing to %s would clip", target.name.c_str());
    question.title = text;
    std::snprintf(text, sizeof text,
                  "Reaching %.1f LUFS needs %+.1f dB of gain, which takes the loudest peaks "
                  "%.1f dB over 0 dBFS. A limiter can hold the peaks down, or the gain can stop "
                  "where the peaks just reach 0 dBFS (%.1f LUFS).",
                  target.value, double(gain), double(gain - *clean),
                  *track->currentLoudness() + double(*clean));
    question.message = text;
    std::snprintf(text, sizeof text, "Stop at %+.1f dB", double(*clean));
    question.cleanTitle = text;
    return question;
}

void EditorModel::normalizeLoudness(const LoudnessTarget& target) {
    if (!canNormalizeToLoudness()) return;
    if (auto question = clippingQuestion(target)) {
        clippingQuestionRequested(*question);
        return;
    }
    const auto track = activeTrack();
    track->changeGain(loudnessNormalizationGain(target.value, *track->currentLoudness()),
                      normalizeTitle);
}

void EditorModel::limitPeaksForLoudness(const ClippingQuestion& question) {
    if (!canNormalize() || !canAddEffect()) return;
    activeTrack()->changeGain(0, normalizeTitle);
    if (mixerChannel) closeEffects(); // the limiter goes into the editor's own chain
    addEffect(EffectKind::limiter);
    // The limiter's gain reaches +24 dB at most; its release keeps its remembered value.
    if (auto limiter = effects ? effects->selected() : nullptr) {
        limiter->setValue(LimiterProcessor::gain, std::min(double(question.gain), 24.0));
        limiter->setValue(LimiterProcessor::ceiling, -1.0);
    }
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
