#pragma once

#include "audio/AudioData.h"
#include "audio/AudioLoader.h"
#include "audio/LiveAudio.h"
#include "audio/Marker.h"
#include "audio/Transcript.h"
#include "base/UndoStack.h"
#include "base/Uuid.h"

#include <sigc++/signal.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace sonvale {

// The computed spectrogram of a track's audio; defined by the analysis code, cached here.
struct Spectrogram;

// The visible part of a track's waveform.
struct Viewport {
    double start = 0;           // first visible frame
    double samplesPerPoint = 0; // frames per screen point
    double width = 0;           // visible width in points

    double visibleSpan() const { return samplesPerPoint * width; }
    friend bool operator==(const Viewport&, const Viewport&) = default;
};

// One entry of the track list: an opened or recorded file with its decoded audio, load state,
// viewport, selection and cursor, markers, gain, its own undo stack and the revision counters
// that tell whether its edits were exported or saved.
//
// Every change of the audio goes through replace(), which registers its own inverse. Each
// observable property group has a signal that fires only when a value really changed.
// Main thread only, except gainBox(), which the render thread reads.
class AudioTrack : public std::enable_shared_from_this<AudioTrack> {
    struct Passkey {};

public:
    struct Loading {
        double progress = 0;
        friend bool operator==(const Loading&, const Loading&) = default;
    };
    struct Failed {
        std::string message;      // plain words, naming the file
        std::string details = {}; // the decoding library's or the system's own line, if any
        friend bool operator==(const Failed&, const Failed&) = default;
    };
    struct Ready {
        friend bool operator==(const Ready&, const Ready&) = default;
    };
    using LoadState = std::variant<Loading, Failed, Ready>;

    struct Transcribing {
        double progress = 0;
        friend bool operator==(const Transcribing&, const Transcribing&) = default;
    };
    struct Thinking {
        std::string status;
        friend bool operator==(const Thinking&, const Thinking&) = default;
    };
    struct DownloadingModel {
        friend bool operator==(const DownloadingModel&, const DownloadingModel&) = default;
    };
    using TranscriptWork = std::variant<Transcribing, Thinking, DownloadingModel>;

    // The deepest zoom: frames per screen point.
    static constexpr double minSamplesPerPoint = 0.0002;

    static std::shared_ptr<AudioTrack> create(std::filesystem::path url, Uuid id = Uuid::random());
    AudioTrack(Passkey, std::filesystem::path url, Uuid id);
    AudioTrack(const AudioTrack&) = delete;
    AudioTrack& operator=(const AudioTrack&) = delete;

    // ---- identity and file
    const Uuid& id() const { return trackID; }
    const std::filesystem::path& url() const { return fileURL; }
    void setURL(std::filesystem::path url);
    // The file's name without its extension, as the track list shows it.
    std::string name() const;
    bool isNewFile() const { return newFile; }
    void setIsNewFile(bool value) { newFile = value; }
    const std::optional<std::vector<uint8_t>>& bookmark() const { return fileBookmark; }
    void setBookmark(std::optional<std::vector<uint8_t>> data) { fileBookmark = std::move(data); }

    // ---- loading
    const LoadState& state() const { return loadState; }
    void setState(LoadState state);
    bool isReady() const { return std::holds_alternative<Ready>(loadState); }
    // Installs freshly decoded audio: state ready, viewport fitted to the whole track, and
    // markers, selection and cursor brought inside it. Not an edit. `report` is what the
    // decoder could not recover from the file.
    void finishLoading(AudioDataPtr audio, DecodeReport report = {});
    // What decoding the file lost (silent stretches, an early end); empty for a sound file.
    const DecodeReport& decodeReport() const { return loadReport; }

    // ---- audio
    const AudioDataPtr& audio() const { return currentAudio; }
    // Frames of the current audio, 0 without audio.
    int64_t frameCount() const { return currentAudio ? currentAudio->frameCount : 0; }
    double sampleRate() const { return currentAudio ? currentAudio->sampleRate : 0; }

    // The one destructive edit: replaces `range` with `clip` (matched to the track's channel
    // count) as one undo step named `actionName`. The selection becomes `selectingAfter` and
    // the cursor its start (else range.lower). Markers after the range shift with the change
    // in length, those inside it are pulled into the new content, regions that become empty
    // are removed; `restoringMarkers` (used by undo and redo) sets them exactly instead.
    // Does nothing without audio. Throws EditError or AudioLoaderError and then changes nothing.
    // The clip's sample rate is the caller's business.
    void replace(FrameRange range, const AudioClip& clip, std::optional<FrameRange> selectingAfter,
                 const std::string& actionName,
                 std::optional<std::vector<Marker>> restoringMarkers = std::nullopt);

    // Called after every replace with the new audio (the editor hands it to playback).
    std::function<void(const AudioDataPtr&)> onAudioReplaced;

    // ---- recording
    bool isRecording() const { return recording; }
    void setIsRecording(bool value);
    // What a recording has captured so far, while it runs; the recorder appends to it and
    // then calls liveAudioGrew().
    const std::shared_ptr<LiveAudio>& liveAudio() const { return live; }
    void setLiveAudio(std::shared_ptr<LiveAudio> audio);
    void liveAudioGrew() { liveAudioChanged.emit(); }

    // ---- selection and cursor
    const std::optional<FrameRange>& selection() const { return currentSelection; }
    int64_t cursor() const { return cursorFrame; }
    // Selects between two positions given in either order, rounded to frames and kept inside
    // the audio; with snapping, both edges move to the nearest zero crossing within
    // min(100 ms, 6 points). An empty result clears the selection; the cursor goes to the
    // lower edge either way.
    void select(double a, double b, bool snapToZeroCrossings);
    // An empty range clears the selection.
    void setSelection(std::optional<FrameRange> range);
    void setCursor(int64_t frame);
    // Brings selection, cursor and markers back inside the audio (nothing without audio).
    void clampToAudio();

    // ---- viewport (implemented in AudioTrack+Viewport.cpp)
    const Viewport& viewport() const { return view; }
    void setViewport(const Viewport& viewport); // clamped
    void zoom(double factor, double anchorX);   // factor > 1 zooms out
    void pan(double points);
    void show(double from, double to);
    void scrollToStart(double start);
    void follow(int64_t frame);
    void updateWidth(double points);
    float verticalZoom() const { return vertical; }
    void setVerticalZoom(float zoom);

    // ---- markers (implemented in AudioTrack+Markers.cpp)
    const std::vector<Marker>& markers() const { return markerList; }
    int64_t markerRevision() const { return markerRev; }
    // The markers that have an end, in list order.
    std::vector<Marker> regions() const;
    // Every marker start and region end, sorted, without duplicates.
    std::vector<int64_t> markerBoundaries() const;
    // A region over `range` when it is non-empty ("Add Region"), else a point at `frame`
    // ("Add Marker"), named "Region N" / "Marker N". Returns the new marker's id, nothing
    // without audio.
    std::optional<Uuid> addMarker(int64_t frame, std::optional<FrameRange> range);
    // Adds several regions as one step ("Add Regions"); markers without a proper end are
    // left out, and nothing happens when none is left.
    void addRegions(const std::vector<Marker>& regions);
    void removeMarker(const Uuid& markerID);
    // Moves a marker to `start` (and a region's end to `end`) as one step ("Move Marker" /
    // "Move Region"), kept inside the audio; a region must keep start < end. Nothing happens
    // for an unknown id, an unchanged position or a region that would become empty.
    void moveMarker(const Uuid& markerID, int64_t start, std::optional<int64_t> end);
    // Empties the list as one step ("Remove All Markers"); no step when already empty.
    void removeAllMarkers();
    // Gives a marker a new name ("Rename Marker" / "Rename Region") and ends its renaming.
    // A blank name, or the same name, changes nothing.
    void renameMarker(const Uuid& markerID, const std::string& newName);
    const std::optional<Uuid>& renamingMarker() const { return renaming; }
    void setRenamingMarker(std::optional<Uuid> markerID);
    // Replaces the list without an undo step (sessions, new tracks); sorted on the way in.
    void setMarkers(std::vector<Marker> markers);
    // Saves the current markers and registers their restoration under `actionName`; every
    // marker change calls it first.
    void registerMarkerUndo(const std::string& actionName);
    // The name a new point ("Marker") or region ("Region") gets: the word, a space and one
    // more than the largest number in existing names of that form and kind.
    std::string nextMarkerName(bool region) const;

    // ---- gain
    float gainDB() const { return gain; }
    // Stores the gain and writes 10^(dB/20) into the gain box, every time.
    void setGainDB(float dB);
    // The same as an undo step named `actionName` ("Gain", "Normalize"); nothing when the
    // gain is already `dB`.
    void changeGain(float dB, const std::string& actionName);
    const std::shared_ptr<GainBox>& gainBox() const { return box; }

    // ---- undo and revisions
    UndoStack& undoStack() { return undo; }
    const UndoStack& undoStack() const { return undo; }
    int64_t editRevision() const { return editRev; }
    int64_t exportedRevision() const { return exportedRev; }
    void setExportedRevision(int64_t revision);
    int64_t audioEditDepth() const { return editDepth; }
    int64_t fileRevision() const { return fileRev; }
    void setFileRevision(int64_t revision);
    // Edited since loading, and this state was not exported as a whole track.
    bool hasUnexportedEdits() const { return editDepth != 0 && editRev != exportedRev; }

    // ---- transcript
    const std::optional<Transcript>& transcript() const { return currentTranscript; }
    void setTranscript(std::optional<Transcript> transcript);
    const std::optional<TranscriptWork>& transcriptWork() const { return work; }
    void setTranscriptWork(std::optional<TranscriptWork> work);
    bool isTranscriptStale() const {
        return currentTranscript && currentTranscript->revision != editRev;
    }

    // ---- caches, valid only for the AudioData they were made from
    const std::shared_ptr<const Spectrogram>& spectrogram() const { return spectrogramCache; }
    void setSpectrogram(std::shared_ptr<const Spectrogram> spectrogram);
    std::weak_ptr<const AudioData> spectrogramInFlight;
    int64_t spectrogramInFlightSize = 0;
    const std::optional<double>& integratedLoudness() const { return loudness; }
    const std::weak_ptr<const AudioData>& loudnessSource() const { return loudnessAudio; }
    // Caches a measurement of `source`.
    void setIntegratedLoudness(std::optional<double> lufs, const AudioDataPtr& source);
    // The cached loudness when it belongs to the current audio.
    std::optional<double> currentLoudness() const;
    // The current audio was measured, with or without a result (silence, or under 400 ms).
    bool isLoudnessMeasured() const;

    // ---- change signals
    sigc::signal<void()> urlChanged;
    sigc::signal<void()> stateChanged;
    sigc::signal<void()> audioChanged;
    sigc::signal<void()> recordingChanged; // isRecording, liveAudio
    sigc::signal<void()> liveAudioChanged; // the live audio grew
    sigc::signal<void()> selectionChanged;
    sigc::signal<void()> cursorChanged;
    sigc::signal<void()> viewportChanged; // viewport, verticalZoom
    sigc::signal<void()> markersChanged;  // markers, markerRevision
    sigc::signal<void()> renamingMarkerChanged;
    sigc::signal<void()> gainChanged;
    sigc::signal<void()>
        revisionsChanged; // editRevision, exportedRevision, audioEditDepth, fileRevision
    sigc::signal<void()> transcriptChanged; // transcript, transcriptWork
    sigc::signal<void()> cachesChanged;     // spectrogram, integratedLoudness

private:
    void setAudio(AudioDataPtr audio);
    void applyMarkers(std::vector<Marker> markers);
    void clampViewport(Viewport& v) const;
    void commitViewport(const Viewport& v);
    void fitViewportToAudio();

    Uuid trackID;
    std::filesystem::path fileURL;
    std::optional<Transcript> currentTranscript;
    std::optional<TranscriptWork> work;
    LoadState loadState = Loading{0};
    AudioDataPtr currentAudio;
    DecodeReport loadReport;
    bool recording = false;
    bool newFile = false;
    std::shared_ptr<LiveAudio> live;
    Viewport view;
    std::optional<FrameRange> currentSelection;
    int64_t cursorFrame = 0;
    float vertical = 1;
    std::vector<Marker> markerList;
    int64_t markerRev = 0;
    std::optional<Uuid> renaming;
    float gain = 0;
    std::shared_ptr<GainBox> box = std::make_shared<GainBox>(1.0f);
    std::optional<std::vector<uint8_t>> fileBookmark;
    UndoStack undo;
    int64_t editRev = 0;
    int64_t exportedRev = 0;
    std::shared_ptr<const Spectrogram> spectrogramCache;
    std::optional<double> loudness;
    std::weak_ptr<const AudioData> loudnessAudio;
    int64_t editDepth = 0;
    int64_t fileRev = 0;
};

using AudioTrackPtr = std::shared_ptr<AudioTrack>;

} // namespace sonvale
