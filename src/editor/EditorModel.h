#pragma once

#include "analysis/Spectrogram.h"
#include "audio/AudioExporter.h"
#include "audio/AudioTrack.h"
#include "audio/ExportOptions.h"
#include "audio/Loudness.h"
#include "base/Executor.h"
#include "base/Uuid.h"
#include "effects/EffectChain.h"
#include "effects/EffectInsert.h"
#include "engine/AudioRecorder.h"
#include "engine/LevelMeter.h"
#include "persistence/SessionBundle.h"
#include "persistence/SessionStore.h"
#include "timeline/Timeline.h"
#include "transcription/ModelFolder.h"
#include "transcription/Transcriber.h"
#include "transcription/TranscriptAI.h"

#include <sigc++/signal.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sonvale {

class Executor;
class PlaybackEngine;
class Preferences;
class RenderSource;
class SessionStore;

// An alert's title and message; the editor shows one at a time.
struct AppAlert {
    std::string title;
    std::string message;
    std::string details = {};     // shown on request below the message; empty for none
    std::string actionTitle = {}; // a button besides OK runs the alert's action; empty: none
    friend bool operator==(const AppAlert&, const AppAlert&) = default;
};

// What the window asks before removing tracks whose audio clips on the timeline play.
struct TrackRemovalQuestion {
    std::set<Uuid> ids;
    std::string title;
    std::string message;
    static constexpr const char* removeClipsTitle = "Remove the Clips Too";
    static constexpr const char* keepClipsTitle = "Keep the Clips";
};

// Asked when reaching a loudness target needs more gain than the peaks allow.
struct ClippingQuestion {
    LoudnessTarget target;
    float gain = 0;      // dB the target needs
    float cleanGain = 0; // dB that bring the peak to 0 dBFS, the most that doesn't clip
    std::string title;
    std::string message;
    std::string cleanTitle; // "Stop at +4.2 dB"
    static constexpr const char* limitTitle = "Limit the Peaks";
};

// The object the whole window works on: the track list and which tracks are selected, the
// audio clipboard, the editing commands of the waveform editor, opening files into tracks
// with background decoding, exports, markers, and the alert being shown.
//
// Split by concern: EditorModel.cpp (tracks, selection, loading, alerts),
// EditorModel+Editing.cpp, EditorModel+Export.cpp, EditorModel+Markers.cpp.
// Main thread only; decoding and file writing run through the executor's background pool and
// report back on the main thread. Work still under way when the model is destroyed is
// dropped when it reports.
class EditorModel {
public:
    // `player` plays the audio; without one, an engine over the default output is made the
    // first time something plays.
    EditorModel(Executor& executor, Preferences& preferences);
    EditorModel(Executor& executor, Preferences& preferences,
                std::unique_ptr<PlaybackEngine> player);
    ~EditorModel();
    EditorModel(const EditorModel&) = delete;
    EditorModel& operator=(const EditorModel&) = delete;

    Executor& executor() const { return exec; }
    Preferences& preferences() const { return prefs; }

    // ---- tracks and their selection
    const std::vector<AudioTrackPtr>& tracks() const { return trackList; }
    AudioTrackPtr track(const Uuid& id) const;
    void addTrack(AudioTrackPtr track);
    // Removes tracks from the list. When that empties the selection, the track that moved
    // into the first removed one's place (else the new last one) is selected.
    void removeTracks(const std::set<Uuid>& ids);
    std::optional<TrackRemovalQuestion> trackRemovalQuestion(const std::set<Uuid>& ids) const;
    // "Remove from List": removes the tracks at once, or asks trackRemovalRequested first when
    // clips play their audio; the answer comes back through removeTracks(ids, removeClips).
    void requestTrackRemoval(const std::set<Uuid>& ids);
    // Removes the tracks and, with `removeClips`, their clips, the lanes that held nothing
    // else and the buses only those lanes fed (one undo step on the timeline). Kept clips
    // go on playing the audio, which the session then keeps with them.
    void removeTracks(const std::set<Uuid>& ids, bool removeClips);
    sigc::signal<void(TrackRemovalQuestion)> trackRemovalRequested;
    // Puts the tracks in the order of `order` (a drag in the list); tracks it leaves out keep
    // their relative order after the named ones, unknown ids are ignored.
    void reorderTracks(const std::vector<Uuid>& order);
    const std::set<Uuid>& selectedTrackIDs() const { return selectedIDs; }
    // Ids that name no track in the list are left out.
    void setSelectedTrackIDs(std::set<Uuid> ids);
    // The track the waveform editor shows: the first selected one in list order.
    AudioTrackPtr activeTrack() const;
    // Selects only the track `offset` places away from the active one, stopping at the ends
    // of the list; without an active track, the first (offset > 0) or last track.
    void selectAdjacentTrack(int offset);

    // ---- clipboard and editing (EditorModel+Editing.cpp)
    const std::optional<AudioClip>& clipboard() const { return clip; }
    void setClipboard(std::optional<AudioClip> clip);

    bool canCopy() const; // a non-empty selection on an active track with audio
    bool canEdit() const; // the same, and the track is not recording (cut, delete, trim, new track)
    bool canPaste() const; // a clipboard, and an active track with audio that is not recording
    void copySelection();
    void cutSelection();    // "Cut"
    void deleteSelection(); // "Delete"
    // Replaces the selection, or inserts at the cursor, and selects what was pasted ("Paste").
    void paste();
    // Keeps only `range` as one undo step named `actionName`. On a recording track it asks
    // for the system beep instead.
    void trim(FrameRange range, const std::string& actionName, bool selectKept);
    void trimToSelection(); // "Trim"
    // Writes the selection into the recordings folder as a 32-bit float WAV on the background
    // pool, then opens it as a new track carrying the markers inside the selection and the
    // gain, and selects it.
    void newTrackFromSelection();

    // The active track's undo stack (switching tracks switches the history Undo acts on), or
    // the timeline's while the timeline shows.
    bool canUndo() const;
    bool canRedo() const;
    void undo();
    void redo();
    std::string undoMenuTitle() const;
    std::string redoMenuTitle() const;

    // ---- opening files (EditorModel.cpp)
    // Opens files and folders as new tracks, loading each in the background, and selects
    // them. A session document (extension "sonvale") among them is opened with openDocument
    // (the first one, when several are given).
    std::vector<AudioTrackPtr> open(const std::vector<std::filesystem::path>& urls);
    // The audio files among `urls`: folders are searched recursively, passing over hidden
    // entries, session documents and whatever can't be read; a file is kept when its
    // extension is one the decoders read. Sorted by path, case-insensitively; no duplicates.
    static std::vector<std::filesystem::path>
    audioFiles(const std::vector<std::filesystem::path>& urls);
    static bool isSessionDocument(const std::filesystem::path& url);
    // Decodes the track's file in the background: state loading(p) while it runs, then ready
    // with the audio, or failed(message).
    void load(const AudioTrackPtr& track);

    // ---- alerts
    const std::optional<AppAlert>& alert() const { return currentAlert; }
    // Replaces any alert being shown; `action` runs when the user picks its actionTitle.
    void showAlert(AppAlert alert, std::function<void()> action = {});
    // Dismisses the alert, showing the next one waiting (see reportDamage), if any.
    void dismissAlert();
    // Runs the shown alert's action, then dismisses it.
    void performAlertAction();
    // Tells the user, once, what decoding the track's file lost, and offers a region over
    // each silent stretch ("Add Regions"). Waits behind an alert being shown.
    void reportDamage(const AudioTrackPtr& track);
    // The regions reportDamage offers: one per damaged stretch, named "Damaged 1", ...
    static std::vector<Marker> damageRegions(const DecodeReport& report);

    // ==== effects of the waveform editor (EditorModel+Effects.cpp) ====
    // The chain being edited; none while the effects are closed.
    const EffectChainPtr& effectChain() const { return effects; }
    // Shows the chain of the master or a bus of the timeline in place of the editor's own:
    // its edits are heard in the timeline's mix at once and are never applied to a track. The
    // editor's chain is kept aside and comes back when the mixer's is closed, when the
    // timeline is hidden, or when the channel goes. Ignored while an apply runs and for a bus
    // that doesn't exist.
    void editMixerEffects(const MixerChannel& channel);
    // The mixer channel whose chain effectChain() is; none for the editor's own.
    const std::optional<MixerChannel>& mixerEffectsChannel() const { return mixerChannel; }
    // "Effects", or "Effects: Master", "Effects: Bus 1" while a mixer channel's chain shows.
    std::string effectsTitle() const;
    // A mixer channel's chain shows, or an active track with audio and no apply running.
    bool canAddEffect() const;
    // Appends a new effect, starting from the values last applied for its kind (else the
    // defaults), opens the chain when it is closed, and selects the new effect's panel.
    void addEffect(EffectKind kind);
    void removeEffect(const Uuid& id);
    // Drops the chain without touching the audio ("Close without changing the audio") and
    // takes the preview out of playback. Ignored while an apply runs. A mixer channel's chain
    // stays with its channel; the editor's chain kept aside comes back.
    void closeEffects();
    // Hear the audio without any of the effects.
    void setEffectsBypassed(bool flag);
    // Writes the active effects, in chain order, into the selection (the whole track without
    // one), with their tail, as one undo step named after the effect ("Effects" for several).
    // Renders on the background pool; the result is discarded when the track's audio changed
    // meanwhile. Afterwards the applied values are remembered per kind and the chain closes.
    void applyEffects();
    // Between 0 and 1 while an apply renders.
    const std::optional<double>& effectsApplyProgress() const { return applyProgress; }
    // Hands a fresh live preview of the chain to playback (none without a chain).
    void rebuildEffectPreview();

    // Where playback connects the live preview: `install` receives a factory of preview
    // processors for the played content's format (an empty function takes the preview out), and
    // `setBypassed` the chain-wide bypass. Without hooks the preview is built for the active
    // track's rate and channel count into effectPreviewInsert().
    using EffectFactory =
        std::function<std::unique_ptr<EffectProcessor>(double sampleRate, int channelCount)>;
    struct EffectPreviewHooks {
        std::function<void(EffectFactory)> install;
        std::function<void(bool)> setBypassed;
    };
    void setEffectPreviewHooks(EffectPreviewHooks hooks);
    const std::shared_ptr<EffectInsert>& effectPreviewInsert() const { return previewInsert; }

    sigc::signal<void()> effectChainChanged; // opened or closed
    sigc::signal<void()> effectsApplyProgressChanged;

private:
    void setEffectChain(EffectChainPtr chain);
    // Closes a mixer channel's chain whose channel or chain the timeline no longer has.
    void checkMixerEffects();
    void setEffectsApplyProgress(std::optional<double> value);
    void installEffectPreview(EffectFactory factory);
    struct EffectApply; // one apply's chain, track, range and values, kept while it renders
    void finishApplyingEffects(const EffectApply& job, AudioClip rendered);

    EffectChainPtr effects;
    std::optional<MixerChannel> mixerChannel;
    EffectChainPtr editorEffects; // the editor's chain, kept aside while a mixer chain shows
    std::optional<double> applyProgress;
    EffectPreviewHooks previewHooks;
    std::shared_ptr<EffectInsert> previewInsert = std::make_shared<EffectInsert>();
    sigc::connection chainEffectsConnection;
    sigc::connection trackSwitchConnection;

public:
    // ==== end of effects ====

    // ---- export (EditorModel+Export.cpp)
    // Between 0 and 1 while an export runs; at most one runs at a time.
    const std::optional<double>& exportProgress() const { return progress; }
    // An active track with audio that is not recording, and no export running.
    bool canExport() const;
    // canExport, and the track has at least one region.
    bool canExportRegions() const;
    // The export dialog's proposed name: the track's name, " (selection)" when it has a
    // selection, else " (edited)", and the format's extension.
    std::string proposedExportFileName(ExportFormat format) const;
    // The choices shown beside the export dialog for the active track.
    std::unique_ptr<ExportOptions> makeExportOptions(ExportFormat format) const;
    // The confirmed export dialog: the selection when `selectionOnly` and there is one, else
    // the whole track. A whole-track export marks the revision it started from as exported.
    void exportActiveTrack(const std::filesystem::path& url, ExportFormat format,
                           bool selectionOnly);
    // "Choose a folder for N region files."
    std::string exportRegionsMessage() const;
    // The confirmed folder chooser: one file per region of the active track.
    void exportRegions(const std::filesystem::path& folder, ExportFormat format);
    // Writes the jobs one after another on the background pool with the linear `gain`;
    // progress reaches exportProgress, success runs `onSuccess` on the main thread, failure
    // shows "Export failed". Does nothing while another export runs.
    void exportJobs(AudioDataPtr audio, std::vector<ExportJob> jobs, float gain,
                    ExportFormat format, std::function<void()> onSuccess = {});

    // ---- markers and the playhead (EditorModel+Markers.cpp)
    // Where playback connects: the heard playhead of a track while it plays, and how a jump
    // moves it. Without hooks the playhead is the active track's cursor and a scrub sets it.
    struct PlayheadHooks {
        std::function<std::optional<int64_t>(const AudioTrack&)> position;
        std::function<void(AudioTrack&, int64_t)> scrub;
    };
    void setPlayheadHooks(PlayheadHooks hooks) { playhead = std::move(hooks); }
    // The active track's playhead; 0 without an active track.
    int64_t playheadPosition() const;
    void scrub(int64_t frame);

    bool canAddMarker() const; // an active track with audio
    bool hasMarkers() const;
    // "Add Region from Selection" with a selection, else "Add Marker at Playhead".
    std::string addMarkerTitle() const;
    // A region over the selection, else a point at the playhead.
    void addMarker();
    void removeAllMarkers();
    // To the nearest marker boundary before the playhead (direction < 1) or after it.
    void jumpToMarker(int direction);

    // ---- moving around from the keyboard (EditorModel+Navigation.cpp)
    // Where a cursor key takes the active track's cursor: to an end, a tenth of the visible
    // span back or forward, or one screen point (a nudge).
    enum class CursorMove { start, end, back, forward, nudgeBack, nudgeForward };
    // Moves the cursor (the playhead while the track plays) and scrolls to keep it in view;
    // with a selection, back and forward first go to its start or end. With `extend` one
    // edge of the selection moves instead, and repeated extensions keep the other edge.
    void moveCursor(CursorMove move, bool extend);
    void scrollByScreen(int direction); // one visible width back (< 0) or forward
    // The J, K and L keys. L plays at normal speed, and faster on each further press; K stops;
    // J plays slower while playing and steps the playhead back a second while stopped.
    void shuttle(int direction);

    // ---- gain, loudness and Trim Silence (EditorModel+Loudness.cpp)
    // Measures the track's integrated loudness in the background unless the cached value
    // belongs to its current audio; a result for audio that changed meanwhile is dropped.
    void measureLoudness(const AudioTrackPtr& track);
    // The targets of the normalize menu, with the custom target from the preferences.
    std::vector<LoudnessTarget> loudnessTargets() const;
    bool canNormalize() const;           // an active track with audio
    bool canNormalizeToLoudness() const; // ... whose loudness has been measured
    // "Peak to 0 dBFS": the gain that brings the peak to full scale, within ±30 dB.
    void normalizePeak();
    // The gain that brings the measured loudness to the target, within ±30 dB. When that gain
    // would take the peaks over 0 dBFS nothing changes yet: clippingQuestionRequested asks
    // whether to limit the peaks or to stop at the highest clean gain.
    void normalizeLoudness(const LoudnessTarget& target);
    // What normalizeLoudness would ask for the active track; none when the gain fits.
    std::optional<ClippingQuestion> clippingQuestion(const LoudnessTarget& target) const;
    sigc::signal<void(ClippingQuestion)> clippingQuestionRequested;
    // The answers: normalizePeak() stops at the clean gain; this one sets the track's gain
    // back to 0 dB and opens a limiter in the effects panel that adds the gain with its ceiling
    // at -1 dBFS, to be heard and applied.
    void limitPeaksForLoudness(const ClippingQuestion& question);
    // Cuts what lies below -60 dBFS at both ends, keeping 10 ms, as one undo step.
    void trimSilence();

    // ==== transport (EditorModel+Transport.cpp) ====
    // Play runs on the active track: a selection plays from its start to its end, otherwise
    // the whole track from the cursor (from 0 when the cursor is at the end). With looping
    // on, the selection (or the whole track) repeats. Stop moves the cursor to the frame
    // being heard when no selection was playing, so play carries on from there; at the end of
    // the content the transport stops by itself and the cursor stays put. While playing, the
    // playhead is the frame being heard and a scrub (jumpToMarker, a click) seeks.
    // Selecting another track while playing carries on at the same time on that track.
    static constexpr const char* loopPlaybackToolTip = "Loop playback (Ctrl+L)";
    static constexpr const char* playbackRateToolTip =
        "Playback speed, pitch preserved (Ctrl+[ slower, Ctrl+] faster)";
    static constexpr std::chrono::milliseconds playbackTimerInterval{33};

    PlaybackEngine& player();
    bool canPlay() const; // an active track with audio that is not recording
    bool isPlaying() const { return playingTrack.has_value() || playingTimeline; }
    const std::optional<Uuid>& playingTrackID() const { return playingTrack; }
    void play();
    void stop();
    void togglePlayback(); // Space
    // Pause stops and leaves the cursor at the frame being heard, also inside a selection, so
    // that play carries on from there. stopAndReturn stops and puts the cursor back where play
    // started. goToStart and goToEnd move the cursor (a seek to the start of the play range
    // while playing; the end stops) and drop the selection. On the track, or on the timeline
    // while it shows.
    void pause();
    void stopAndReturn();
    void goToStart();
    void goToEnd();
    static constexpr const char* pauseShortcut = "P";
    static constexpr const char* stopShortcut = "Shift+Space";
    static constexpr const char* goToStartShortcut = "Ctrl+Home";
    static constexpr const char* goToEndShortcut = "Ctrl+End";
    // Moves the playhead: a seek while playing (kept inside the play range), else the cursor.
    void seek(int64_t frame);
    bool isLooping() const { return looping; }
    void loopPlayback(); // toggles looping, also for the play under way
    float playbackRate() const { return rate; }
    void changePlaybackRate(int step);    // one step through PlaybackEngine::playbackRates
    std::string playbackRateText() const; // "0.5×" ... "2×"
    void startPlaybackTimer();
    void continuePlaybackOnSelectedTrack();

    sigc::signal<void()> transportChanged; // isPlaying, isLooping, playbackRate
    sigc::signal<void()> playheadChanged;  // the playing track's heard position moved
    // ==== end transport ====

    // ==== the multitrack timeline (EditorModel+Timeline.cpp) ====
    static constexpr const char* mixdownTitle = "Mixdown to New Track";
    static constexpr const char* mixdownFailedTitle = "Can't mix down";
    const TimelinePtr& timeline() const { return timelineModel; }
    // Whether the window shows the timeline rather than the waveform editor; while it does,
    // the transport plays the timeline's mix from its cursor (or its selection).
    bool isShowingTimeline() const { return showingTimeline; }
    void setShowingTimeline(bool flag);
    bool isPlayingTimeline() const { return playingTimeline; }
    // Where the timeline's playback is heard while it plays.
    std::optional<int64_t> timelinePlayhead() const;
    static constexpr const char* addToTimelineTitle = "Add to Timeline";
    // The active track has audio to place: its selection, or all of it.
    bool canAddToTimeline() const;
    // "Add to Timeline": the active track's selection (or all of it) as a clip on a new lane
    // named after the track, at the timeline's cursor, as one undo step; then the timeline
    // shows. An empty timeline takes the track's sample rate first.
    void addToTimeline();
    // "Mixdown to a new track: the timeline as a stereo track, with the mixer's effects", or
    // "Mixdown the selection to a new track, with the mixer's effects".
    std::string mixdownHelp() const;
    bool canMixdown() const; // something on the timeline, and no mixdown running
    // Renders the timeline (or its selection) with its effect tails to a stereo float WAV in the
    // recordings folder on the background pool, then opens it as a new track.
    void mixdown();
    const std::optional<double>& mixdownProgress() const { return mixdownFraction; }

    // Clip drags snap to the timeline start, the cursor, markers and clip edges while on.
    bool snapsClips() const { return snapping; }
    void setSnapsClips(bool flag);
    // The clip clipboard: a clip and the lane it was copied from.
    const std::optional<TimelineClip>& clipClipboard() const { return copiedClip; }
    bool hasSelectedClip() const { return timelineModel->selectedClip().has_value(); }
    bool canPasteClip() const { return copiedClip.has_value(); }
    // Some clip can be split at the timeline's cursor.
    bool canSplitClips() const;
    void copyClip();
    void cutClip();    // "Cut Clip"
    void deleteClip(); // "Delete Clip"
    // "Paste Clip": on the lane it was copied from (a new lane when that is gone) at the
    // cursor; the cursor moves to the pasted clip's end.
    void pasteClip();
    // "Duplicate Clip": a copy right after the selected clip on its lane.
    void duplicateClip();
    // "Split Clip at Cursor".
    void splitClipsAtCursor();
    // Places a track's audio (its `range`, or all of it) on a lane at `frame` as "Place Track";
    // with no lane, on a new lane named after the track.
    void placeTrack(const Uuid& trackID, std::optional<FrameRange> range,
                    std::optional<Uuid> laneID, int64_t frame);
    // Opens audio files and places each on `laneID` at `frame` once it has loaded, one after
    // another; files that fail to open are reported as any open is.
    void openOntoLane(const std::vector<std::filesystem::path>& urls, std::optional<Uuid> laneID,
                      int64_t frame);
    sigc::signal<void()> clipClipboardChanged;
    sigc::signal<void()> snapsClipsChanged;
    sigc::signal<void()> timelineShowingChanged;
    sigc::signal<void()> mixdownProgressChanged;

    // ==== recording (EditorModel+Recording.cpp) ====
    static constexpr const char* recordToolTip =
        "Record from the audio input into a new track (Ctrl+R)";
    static constexpr const char* stopRecordingToolTip = "Stop recording (Ctrl+R)";
    static constexpr const char* recordingFailedTitle = "Can't record";
    static constexpr const char* recordingIncompleteTitle = "Recording incomplete";
    static constexpr const char* recordingStoppedTitle = "Recording stopped";
    static constexpr const char* inputChangedMessage =
        "The audio input changed. What was recorded so far was kept.";
    // Where recordings take their input: PortAudio unless set (tests give their own).
    void setAudioInputFactory(std::function<std::unique_ptr<AudioInput>()> make);
    bool isRecording() const { return recorder && recorder->isRecording(); }
    // When the running recording started.
    const std::optional<std::chrono::system_clock::time_point>& recordingStarted() const {
        return recordingStart;
    }
    // Seconds of audio in the running recording's file.
    double recordedSeconds() const;
    // The input's level while recording (one entry per channel), refreshed 20 times a second.
    const InputLevel& inputLevel() const { return currentInputLevel; }
    void toggleRecording();
    void startRecording();
    // There is no permission to ask for on Linux: starting always comes here granted. Stops
    // playback and records into a new file in the recordings folder, shown as a new track
    // while it grows; in the timeline it lands on a new lane at the cursor when it stops.
    void beginRecording(bool permissionGranted);
    // Finishes the file and opens it as a normal track in place of the live one.
    void stopRecording();
    // "Recording 2026-02-03 at 09.05.07" for that local time, whatever the user's locale.
    static std::string recordingName(std::chrono::system_clock::time_point date);
    // That name as a WAV in `folder` that is not taken yet.
    static std::filesystem::path recordingURL(const std::filesystem::path& folder,
                                              std::chrono::system_clock::time_point date);
    sigc::signal<void()> recordingChanged; // isRecording
    sigc::signal<void()> inputLevelChanged;

    // ==== the spectrogram view (EditorModel+Spectrogram.cpp) ====
    enum class TrackView { waveform, spectrogram };
    static constexpr const char* spectrogramFailedTitle = "Can't show the spectrogram";
    // How the active track is shown: "Waveform (Ctrl+1) or spectrogram (Ctrl+2)".
    TrackView trackView() const { return shownView; }
    // Showing the spectrogram starts computing the active track's when it has none for its
    // current audio at the preferred FFT size.
    void setTrackView(TrackView view);
    // Computes the track's spectrogram in the background and caches it on the track, unless
    // it is cached or on its way. A computation for older audio or another size is cancelled.
    void requestSpectrogram(const AudioTrackPtr& track);
    // The cached spectrogram is of the track's current audio at the preferred FFT size.
    bool hasCurrentSpectrogram(const AudioTrack& track) const;
    // 0…1 while the track's spectrogram is being computed.
    std::optional<double> spectrogramProgress(const AudioTrack& track) const;
    sigc::signal<void()> trackViewChanged;
    sigc::signal<void()> spectrogramWorkChanged; // a computation started or ended

    // ==== transcription (EditorModel+Transcription.cpp) ====
    static constexpr const char* transcriptionFailedTitle = "Transcription failed";
    static constexpr const char* staleTranscriptNotice =
        "The audio was edited after transcribing, so times may be off.";
    static constexpr const char* transcribeToolTip =
        "Transcribe the speech in this track on your computer. Nothing is uploaded.";
    // The engines jobs run on: those installed on this computer unless set otherwise.
    Transcriber& transcriber();
    void setTranscriber(std::shared_ptr<Transcriber> engines);
    // A track with audio, not recording, and no transcript work under way.
    bool canTranscribe(const AudioTrack& track) const;
    // "Transcribe", "Transcribe Again", or "Transcribe Again (audio was edited)" when stale.
    static std::string transcribeTitle(const AudioTrack& track);
    // Transcribes the track's audio in the background in the chosen language, showing the
    // stages in its transcriptWork. The result replaces the transcript; a failure, or no
    // speech at all, shows "Transcription failed".
    void transcribe(const AudioTrackPtr& track);
    // Stops the track's job without a word; the transcript stays as it was.
    void cancelTranscription(AudioTrack& track);
    // Moves the playhead to the line's start (a seek while playing) and shows it.
    void go(const TranscriptSegment& segment, const AudioTrackPtr& track);
    // Hands the transcript's text (Transcript::text) to textCopied.
    void copyTranscript(const AudioTrack& track);
    sigc::signal<void(std::string)> textCopied; // the shell puts it on the clipboard

    // ==== titles, summaries and topics (EditorModel+TranscriptAI.cpp) ====
    static constexpr const char* summarizeFailedTitle = "Couldn't summarize";
    static constexpr const char* topicsFailedTitle = "Couldn't find topics";
    static constexpr const char* noTopicsMessage =
        "The model didn't find distinct topics in this transcript.";
    static constexpr const char* languageModelNote =
        "Suggest Title & Summary and Create Regions from Topics use the on-device language "
        "model; nothing leaves the computer.";
    // The model the commands use; by default the first in the models folder, loaded on first
    // use in the background.
    void setLanguageModel(std::shared_ptr<const LanguageModel> model);
    void setModelFolder(ModelFolder folder);
    const ModelFolder& modelFolder() const { return models; }
    // Why the commands can't run now, or none.
    std::optional<std::string> languageModelUnavailableReason() const;
    // A transcript with lines and no transcript work under way (and, for topics, not stale).
    bool canSummarize(const AudioTrack& track) const;
    bool canCreateRegionsFromTopics(const AudioTrack& track) const;
    // Asks the model for a title and a summary, stored in the transcript; "Couldn't
    // summarize" on failure.
    void summarizeTranscript(const AudioTrackPtr& track);
    // Asks the model for topics and adds them as regions, one undo step, then shows the
    // marker list; "Couldn't find topics" when none result or the model fails.
    void createRegionsFromTopics(const AudioTrackPtr& track);
    sigc::signal<void()> markerListShown;
    // "Use “TITLE” as Name": renames the track's file, in its folder, to the suggested title
    // (characters a file name can't hold left out); never over another file.
    std::optional<std::string> suggestedFileName(const AudioTrack& track) const;
    void renameToSuggestedTitle(const AudioTrackPtr& track);

    // ---- the models folder
    // Copies a model file into the models folder in the background ("Couldn't add the
    // model" on failure); the new file is used from the next command on.
    void addModel(const std::filesystem::path& source);
    // 0…1 while a copy runs.
    std::optional<double> modelCopyProgress() const { return modelCopy; }
    void cancelModelCopy();
    void removeModel(const std::filesystem::path& file);
    sigc::signal<void()> modelsChanged; // the folder's files or the copy's progress

    // ==== sessions and documents (EditorModel+Session.cpp) ====
    // The open session bundle and what each track was when it was last saved.
    struct SessionDocument {
        struct TrackContent {
            Uuid id;
            std::string path; // the track's file
            float gainDB = 0;
            std::vector<Marker> markers;
            std::optional<Transcript> transcript;
            int64_t revision = 0; // the track's editRevision
            friend bool operator==(const TrackContent&, const TrackContent&) = default;
        };
        std::filesystem::path url;
        std::vector<TrackContent> saved;
        // Where each track's audio lies inside the bundle, for tracks whose audio it holds.
        std::map<Uuid, std::string> bundlePaths;
        int64_t timelineRevision = 0;
        std::optional<TimelineState::Mixer> mixer;
    };
    static constexpr const char* incognitoMessage =
        "Incognito session: nothing from this session is saved. The tracks and settings from your "
        "last normal session are left as they were and come back on the next launch. (Started "
        "blank because Shift was held at launch, or with --no-session.)";
    static constexpr const char* saveFailedTitle = "Couldn't save the session";
    static constexpr std::chrono::milliseconds sessionSaveDelay{1000};

    // The automatic last session; without one nothing is saved automatically.
    void attachSessionStore(std::shared_ptr<SessionStore> store);
    const std::shared_ptr<SessionStore>& sessionStore() const { return store; }
    // At launch: an incognito launch starts empty and is never saved; otherwise, unless the
    // preferences say to start empty, the document that was open comes back (with the
    // changes the automatic store holds beyond it), else the automatic store's session.
    void restoreLastSession(bool incognito);
    bool isSessionTemporary() const { return temporarySession; }

    // The live session with absolute paths; clip audio that has no file yet is named by a
    // relative "Name.wav".
    SessionState sessionState() const;
    // Replaces the live session: tracks are made from the states and load in the background,
    // keeping their selection, cursor and zoom; the open document stays as it is.
    void restoreSession(const SessionState& state);
    // One automatic save, one second after the last of a burst of changes.
    void scheduleSave();
    // Saves the automatic store now (audio off the main thread); nothing while incognito.
    void saveSession();

    const std::optional<SessionDocument>& document() const { return openDocument_; }
    // "Untitled Session" without a document.
    std::string documentName() const;
    // The live session differs from what the open document saved.
    bool isDocumentEdited() const;
    // A track has edits that were neither exported nor saved.
    bool hasUnsavedChanges() const;
    // What closing the session would lose: the document's changes, or without a document
    // the unsaved edits.
    bool needsSaving() const { return openDocument_ ? isDocumentEdited() : hasUnsavedChanges(); }

    // Writes the session as a bundle on the background pool, with a snapshot and the window's
    // picture; then the bundle is the open document. Refused while recording or while another
    // save runs; failures show "Couldn't save the session". `then` runs after a success.
    void saveDocument(std::function<void()> then = {});
    void saveDocumentAs(std::filesystem::path url, std::function<void()> then = {});
    bool isSavingDocument() const { return saveProgress.has_value(); }
    const std::optional<double>& documentSaveProgress() const { return saveProgress; }
    // Gives the JPEG picture of the window kept with each snapshot.
    std::function<std::optional<std::vector<uint8_t>>()> windowPicture;

    // Opens a bundle in place of the live session. When that would lose changes,
    // documentReplaceRequested asks the window first; it answers with openDocumentNow.
    void openDocument(const std::filesystem::path& url);
    bool openDocumentNow(const std::filesystem::path& url);
    // An empty session without a document.
    void newSession();
    // Reads the open document again ("Can't revert" on failure).
    void revertDocument();
    std::vector<SessionBundle::Snapshot> snapshots() const;
    // Puts the session of snapshot `id` in place of the live one; the document stays open
    // and shows as edited ("Can't restore the snapshot" on failure).
    void restoreSnapshot(const std::string& id);

    // The track's file is gone (it failed to load and nothing is at its path).
    static bool isMissing(const AudioTrack& track);
    static std::string missingFileMessage(const std::filesystem::path& path);
    // Points the track at `file` and loads it; other missing tracks whose file name is in
    // the same folder are relinked with it. Returns how many tracks were relinked.
    int relinkMissing(const Uuid& trackID, const std::filesystem::path& file);
    // Files Sonvale made for this session (recordings, new tracks) that the saved document
    // doesn't have.
    std::vector<std::filesystem::path> newFilesNotInSavedSession() const;
    // The title and message of the question whether to keep them.
    static AppAlert keepNewFilesQuestion(const std::vector<std::filesystem::path>& files);

    sigc::signal<void()> documentChanged; // document, its edited state, its save progress
    sigc::signal<void(std::filesystem::path)> documentReplaceRequested;
    // ==== end of sessions ====

    // ---- change signals
    sigc::signal<void()> tracksChanged;
    sigc::signal<void()> selectionChanged; // selectedTrackIDs, and so activeTrack
    sigc::signal<void()> clipboardChanged;
    // An export wrote everything: the file, or for regions the folder and the number of files.
    sigc::signal<void(std::filesystem::path, size_t)> exportFinished;
    sigc::signal<void()> exportProgressChanged;
    sigc::signal<void()> alertChanged;
    // The shell sounds the system beep (a refused edit on a recording track).
    sigc::signal<void()> beepRequested;

private:
    void setExportProgress(std::optional<double> value);
    // Runs an edit of the active track; a failure becomes the alert "<actionName> failed".
    bool attemptEdit(const std::string& actionName, const std::function<void()>& edit);
    // Starts following a track that joined the list (loudness measurement on new audio).
    void watchTrack(const AudioTrackPtr& track);
    // Places a track's `range` (all of it with none) on `laneID` (a new lane named after the
    // track when there is no such lane) at `frame`, as one undo step; an empty timeline takes
    // the track's rate first. A failure shows `failureTitle`'s alert and returns false.
    bool placeOnTimeline(const AudioTrack& track, std::optional<FrameRange> range,
                         std::optional<Uuid> laneID, int64_t frame, const std::string& actionName,
                         const std::string& failureTitle);
    std::filesystem::path reserveNewTrackFile(const std::filesystem::path& folder,
                                              const std::string& name);
    // Runs `then` once the track has loaded (at once when it has); not when loading fails.
    void whenLoaded(const AudioTrackPtr& track, std::function<void(const AudioTrackPtr&)> then);

    Executor& exec;
    Preferences& prefs;
    // Posted work holds a weak reference to this token and checks it before touching the model.
    std::shared_ptr<EditorModel*> self;

    std::vector<AudioTrackPtr> trackList;
    std::set<Uuid> selectedIDs;
    std::optional<AudioClip> clip;
    std::optional<AppAlert> currentAlert;
    std::function<void()> currentAlertAction;
    std::deque<std::pair<AppAlert, std::function<void()>>> waitingAlerts;
    std::optional<double> progress;
    std::set<std::filesystem::path> filesBeingWritten;
    PlayheadHooks playhead;
    // The selection the last keyboard extension made: the edge it keeps and the one it moves.
    struct KeyedSelection {
        Uuid track;
        int64_t anchor = 0;
        int64_t edge = 0;
    };
    std::optional<KeyedSelection> keyedSelection;
    // The audio each track's loudness is being measured for.
    std::map<Uuid, std::weak_ptr<const AudioData>> loudnessInFlight;

    // ==== session state (EditorModel+Session.cpp) ====
    void sessionContentChanged();
    std::vector<int64_t> selectedIndices() const; // of the selected tracks, in list order
    void watchTrackForSession(const AudioTrackPtr& track);
    void trackFinishedLoading(AudioTrack& track);
    TrackState trackState(const AudioTrack& track) const;
    // The file that holds the track's audio now, and its audio when no file does.
    std::pair<std::filesystem::path, AudioDataPtr> trackSource(const AudioTrack& track) const;
    SessionDocument recordDocument(const std::filesystem::path& url,
                                   const SessionState& saved) const;
    void noteDocument(const std::filesystem::path& url);
    // The path of `file` relative to `folder` when it lies inside it.
    static std::optional<std::string> relativeInside(const std::filesystem::path& file,
                                                     const std::filesystem::path& folder);
    bool readDocument(const std::filesystem::path& url, const std::string& failureTitle);
    std::shared_ptr<SessionStore> store;
    std::optional<SessionDocument> openDocument_;
    // A stored timeline waiting for the audio its clips play: the session's tracks (by
    // index) and the clip files being read.
    struct PendingTimeline {
        TimelineState state;
        std::vector<Uuid> trackIDs;
        std::set<std::string> loading;
        std::map<std::string, AudioDataPtr> files; // none for a file that couldn't be read
    };
    std::optional<PendingTimeline> pendingTimeline;
    int timelineGeneration = 0;
    // The document was recorded while its timeline was pending: its revision is the restored one.
    bool documentAwaitsTimeline = false;
    // The file that holds clip audio no track has, once it has one.
    struct ClipHome {
        std::weak_ptr<const AudioData> audio;
        std::filesystem::path file;
    };
    std::map<const AudioData*, ClipHome> clipHomes;
    std::optional<std::filesystem::path> clipHome(const AudioDataPtr& audio) const;
    // The timeline's record (none while it is empty and hidden), and per file clip in lane and
    // clip order the audio it plays. A clip file whose audio has no file yet is named by a
    // relative "Name.wav".
    struct TimelineRecord {
        std::optional<TimelineState> state;
        std::vector<AudioDataPtr> audio;
    };
    TimelineRecord timelineRecord() const;
    // The record for the automatic store: audio without a file is queued into its folder.
    std::optional<TimelineState> timelineForStore(std::set<std::string>& used,
                                                  std::vector<SessionStore::PendingAudio>& pending);
    // The record for a bundle, with the clip files the bundle keeps.
    std::optional<TimelineState>
    timelineForDocument(std::vector<SessionBundle::ClipAudioFile>& clipFiles,
                        std::vector<AudioDataPtr>& clipAudio) const;
    // After a bundle was written: its clip files are the homes of their audio.
    void noteSavedClipFiles(const std::vector<AudioDataPtr>& clipAudio, const TimelineState& saved,
                            const std::filesystem::path& bundle);
    // Empties the timeline and restores `state` once the tracks and clip files have loaded.
    void beginTimelineRestore(const std::optional<TimelineState>& state,
                              const std::vector<AudioTrackPtr>& tracks);
    void finishTimelineRestore();
    void reportMissingClips(const PendingTimeline& restored, int missing);
    std::map<Uuid, TrackState> restoredStates; // applied when each track has loaded
    struct StoredAudio {
        std::weak_ptr<const AudioData> audio;
        std::filesystem::path file;
    };
    std::map<Uuid, StoredAudio> storedAudio;
    std::optional<double> saveProgress;
    DelayedTask pendingSave;
    bool temporarySession = false;
    bool restoring = false;
    // ==== end session state ====

    // ==== spectrogram state (EditorModel+Spectrogram.cpp) ====
    void showSpectrogramIfWanted();
    void cancelSpectrogram(AudioTrack& track);
    TrackView shownView = TrackView::waveform;
    std::map<Uuid, std::shared_ptr<Spectrogram::Progress>> spectrogramWork;

    // ==== transcription state (EditorModel+Transcription.cpp) ====
    std::shared_ptr<Transcriber> speech;
    bool speechFromFolder = false; // made from the models folder, so remade when it changes
    // Lets go of the engines and model taken from the folder, which now holds other files.
    void modelFolderChanged();
    // The cancel flag of each track's job under way.
    std::map<Uuid, std::shared_ptr<std::atomic<bool>>> transcriptionJobs;
    // Runs `work` in the background as the track's transcript job (it may report further
    // stages), then `done` on the main thread with its result or a failure's message; nothing
    // when the job was cancelled or the track has gone.
    using StageReport = std::function<void(AudioTrack::TranscriptWork)>;
    template <typename Result>
    void runTranscriptJob(
        const AudioTrackPtr& track, AudioTrack::TranscriptWork stage,
        std::function<Result(const std::atomic<bool>& cancelled, const StageReport&)> work,
        std::function<void(EditorModel&, const AudioTrackPtr&, Result)> done,
        std::function<void(EditorModel&, const std::string& failure)> failed);
    std::shared_ptr<const LanguageModel> chosenModel;
    ModelFolder models;
    std::optional<double> modelCopy;
    std::shared_ptr<std::atomic<bool>> modelCopyCancelled;

    // ==== recording state (EditorModel+Recording.cpp) ====
    void recordingTick();
    // `interrupted`: the input went away, and the alert says so.
    void finishRecording(bool interrupted);
    std::function<std::unique_ptr<AudioInput>()> inputFactory;
    std::unique_ptr<AudioRecorder> recorder;
    std::weak_ptr<AudioTrack> recordingTrack;
    std::optional<std::chrono::system_clock::time_point> recordingStart;
    // The timeline cursor when recording began in the timeline.
    std::optional<int64_t> recordingLaneFrame;
    InputLevel currentInputLevel;
    DelayedTask recordingTimer;
    // ==== end recording state ====

    // ==== transport state (EditorModel+Transport.cpp) ====
    void connectTransport();
    void playFrom(const AudioTrackPtr& track, FrameRange range, int64_t at);
    void finishPlayback(bool moveCursor);
    void playbackTick();
    std::optional<int64_t> heardFrame() const;
    std::unique_ptr<PlaybackEngine> engine;
    std::shared_ptr<RenderSource> playingSource;
    std::optional<Uuid> playingTrack;
    bool playingTimeline = false;
    TimelinePtr timelineModel = Timeline::create();
    bool showingTimeline = false;
    std::optional<double> mixdownFraction;
    bool snapping = true;
    std::optional<TimelineClip> copiedClip;
    std::optional<Uuid> copiedClipLane;
    void playTimeline();
    // Prepares and starts `content` from `at` within `range`; on failure shows the alert and
    // returns false with nothing playing.
    bool startSource(std::shared_ptr<const PlaybackContent> content, std::shared_ptr<GainBox> gain,
                     bool liveEffect, FrameRange range, int64_t at);
    UndoStack* visibleUndoStack() const;
    bool playingSelection = false;
    // Where the last play started, and where a pause left the cursor (play resumes there
    // inside a selection as long as the cursor hasn't moved).
    int64_t playStart = 0;
    std::optional<int64_t> pausedAt;
    bool looping = false;
    float rate = 1.0f;
    DelayedTask playbackTimer;
    // ==== end transport state ====
};

// The text of an error for the person using Sonvale.
std::string userMessage(const std::exception& error);

} // namespace sonvale
