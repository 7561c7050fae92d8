#include "audio/AudioTrack.h"

#include "audio/Decibels.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

std::shared_ptr<AudioTrack> AudioTrack::create(std::filesystem::path url, Uuid id) {
    return std::make_shared<AudioTrack>(Passkey{}, std::move(url), id);
}

AudioTrack::AudioTrack(Passkey, std::filesystem::path url, Uuid id)
    : trackID(id)
    , fileURL(std::move(url)) {}

void AudioTrack::setURL(std::filesystem::path url) {
    if (url == fileURL) return;
    fileURL = std::move(url);
    urlChanged.emit();
}

std::string AudioTrack::name() const { return fileURL.stem().string(); }

void AudioTrack::setState(LoadState state) {
    if (state == loadState) return;
    loadState = std::move(state);
    stateChanged.emit();
}

void AudioTrack::finishLoading(AudioDataPtr audio, DecodeReport report) {
    loadReport = std::move(report);
    setAudio(std::move(audio));
    fitViewportToAudio();
    clampToAudio();
    setState(Ready{});
}

void AudioTrack::setAudio(AudioDataPtr audio) {
    if (audio == currentAudio) return;
    currentAudio = std::move(audio);
    if (spectrogramCache) {
        spectrogramCache.reset();
        cachesChanged.emit();
    }
    audioChanged.emit();
}

// ---- the edit ------------------------------------------------------------------------

namespace {

// Where a position lands when lower..<upper becomes `inserted` frames long.
int64_t movedPosition(int64_t p, int64_t lower, int64_t upper, int64_t inserted) {
    if (p <= lower) return p;
    if (p >= upper) return p + inserted - (upper - lower);
    return lower + std::min(inserted, p - lower);
}

} // namespace

void AudioTrack::replace(FrameRange range, const AudioClip& clip,
                         std::optional<FrameRange> selectingAfter, const std::string& actionName,
                         std::optional<std::vector<Marker>> restoringMarkers) {
    if (!currentAudio) return;
    const int64_t lower = std::clamp<int64_t>(range.lower, 0, currentAudio->frameCount);
    const int64_t upper = std::clamp<int64_t>(range.upper, lower, currentAudio->frameCount);

    // What the inverse needs; building the new audio may throw, and then nothing has changed.
    AudioClip removed = currentAudio->clip({lower, upper});
    const std::optional<FrameRange> savedSelection = currentSelection;
    std::vector<Marker> savedMarkers = markerList;
    const int64_t oldLength = currentAudio->frameCount;
    // The track usually holds the only reference to its audio, which is then edited where it
    // lies; when anything else holds it, it is copied. Either way a throw changes nothing.
    AudioDataPtr replaced = AudioData::replacingOwned(currentAudio, {lower, upper}, clip);
    const int64_t inserted = replaced->frameCount - (oldLength - (upper - lower));

    setAudio(replaced);
    setSelection(selectingAfter);
    setCursor(selectingAfter ? selectingAfter->lower : lower);

    if (restoringMarkers) {
        applyMarkers(std::move(*restoringMarkers));
    } else {
        std::vector<Marker> moved;
        moved.reserve(markerList.size());
        for (Marker marker : markerList) {
            marker.start = movedPosition(marker.start, lower, upper, inserted);
            if (marker.end) {
                marker.end = movedPosition(*marker.end, lower, upper, inserted);
                if (marker.start >= *marker.end) continue;
            }
            moved.push_back(std::move(marker));
        }
        applyMarkers(std::move(moved));
    }
    clampToAudio();

    undo.registerUndo(actionName,
                      [weak = weak_from_this(), at = FrameRange{lower, lower + inserted},
                       removed = std::move(removed), savedSelection,
                       savedMarkers = std::move(savedMarkers), actionName] {
                          // The markers are copied, not moved: a failed undo stays on the stack to
                          // be retried.
                          if (auto track = weak.lock())
                              track->replace(at, removed, savedSelection, actionName, savedMarkers);
                      });

    editDepth += undo.isUndoing() ? -1 : 1;
    ++editRev;
    revisionsChanged.emit();
    setRenamingMarker(std::nullopt);
    if (onAudioReplaced) onAudioReplaced(replaced);
}

// ---- recording -----------------------------------------------------------------------

void AudioTrack::setIsRecording(bool value) {
    if (value == recording) return;
    recording = value;
    recordingChanged.emit();
}

void AudioTrack::setLiveAudio(std::shared_ptr<LiveAudio> audio) {
    if (audio == live) return;
    live = std::move(audio);
    recordingChanged.emit();
}

// ---- selection -------------------------------------------------------------------------

void AudioTrack::select(double a, double b, bool snapToZeroCrossings) {
    const int64_t frames = frameCount();
    auto frameAt = [frames](double x) {
        const double rounded = std::round(x);
        if (!(rounded > 0)) return int64_t(0); // also NaN
        if (rounded >= double(frames)) return frames;
        return int64_t(rounded);
    };
    int64_t lo = frameAt(std::min(a, b));
    int64_t hi = frameAt(std::max(a, b));
    if (snapToZeroCrossings && currentAudio) {
        const double byTime = std::trunc(currentAudio->sampleRate / 10); // 100 ms
        const double byScreen = std::trunc(view.samplesPerPoint * 6);    // six points
        const double radius = std::max(0.0, std::min(byTime, byScreen));
        const auto r = int64_t(std::min(radius, double(frames)));
        lo = currentAudio->nearestZeroCrossing(lo, r);
        hi = currentAudio->nearestZeroCrossing(hi, r);
    }
    setSelection(lo < hi ? std::optional<FrameRange>(FrameRange{lo, hi}) : std::nullopt);
    setCursor(lo);
}

void AudioTrack::setSelection(std::optional<FrameRange> range) {
    if (range && range->isEmpty()) range.reset();
    if (range == currentSelection) return;
    currentSelection = range;
    selectionChanged.emit();
}

void AudioTrack::setCursor(int64_t frame) {
    if (frame == cursorFrame) return;
    cursorFrame = frame;
    cursorChanged.emit();
}

void AudioTrack::clampToAudio() {
    if (!currentAudio) return;
    const int64_t frames = currentAudio->frameCount;
    if (currentSelection) {
        FrameRange s = *currentSelection;
        s.lower = std::clamp<int64_t>(s.lower, 0, frames);
        s.upper = std::clamp<int64_t>(s.upper, 0, frames);
        setSelection(s.isEmpty() ? std::nullopt : std::optional<FrameRange>(s));
    }
    setCursor(std::clamp<int64_t>(cursorFrame, 0, frames));

    bool changed = false;
    std::vector<Marker> kept;
    kept.reserve(markerList.size());
    for (Marker marker : markerList) {
        if (marker.end) {
            if (marker.start >= frames) {
                changed = true;
                continue;
            }
            if (*marker.end > frames) {
                marker.end = frames;
                changed = true;
            }
        } else if (marker.start > frames) {
            changed = true;
            continue;
        }
        kept.push_back(std::move(marker));
    }
    if (changed) applyMarkers(std::move(kept));
}

// ---- gain ------------------------------------------------------------------------------

void AudioTrack::setGainDB(float dB) {
    const bool changed = dB != gain;
    gain = dB;
    box->store(float(gainFromDecibels(dB)));
    if (changed) gainChanged.emit();
}

void AudioTrack::changeGain(float dB, const std::string& actionName) {
    if (dB == gain) return;
    undo.registerUndo(actionName, [weak = weak_from_this(), saved = gain, actionName] {
        if (auto track = weak.lock()) track->changeGain(saved, actionName);
    });
    setGainDB(dB);
}

// ---- revisions ---------------------------------------------------------------------------

void AudioTrack::setExportedRevision(int64_t revision) {
    if (revision == exportedRev) return;
    exportedRev = revision;
    revisionsChanged.emit();
}

void AudioTrack::setFileRevision(int64_t revision) {
    if (revision == fileRev) return;
    fileRev = revision;
    revisionsChanged.emit();
}

// ---- transcript and caches -------------------------------------------------------------

void AudioTrack::setTranscript(std::optional<Transcript> transcript) {
    if (transcript == currentTranscript) return;
    currentTranscript = std::move(transcript);
    transcriptChanged.emit();
}

void AudioTrack::setTranscriptWork(std::optional<TranscriptWork> newWork) {
    if (newWork == work) return;
    work = std::move(newWork);
    transcriptChanged.emit();
}

void AudioTrack::setSpectrogram(std::shared_ptr<const Spectrogram> spectrogram) {
    if (spectrogram == spectrogramCache) return;
    spectrogramCache = std::move(spectrogram);
    cachesChanged.emit();
}

void AudioTrack::setIntegratedLoudness(std::optional<double> lufs, const AudioDataPtr& source) {
    loudness = lufs;
    loudnessAudio = source;
    cachesChanged.emit();
}

bool AudioTrack::isLoudnessMeasured() const {
    const auto source = loudnessAudio.lock();
    return source && source == currentAudio;
}

std::optional<double> AudioTrack::currentLoudness() const {
    const auto source = loudnessAudio.lock();
    if (!source || source != currentAudio) return std::nullopt;
    return loudness;
}

} // namespace sonvale
