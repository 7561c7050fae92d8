#include "editor/EditorModel.h"

#include "audio/AudioExporter.h"
#include "persistence/Preferences.h"

#include <ctime>

namespace sonvale {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds liveInterval{50};

} // namespace

void EditorModel::setAudioInputFactory(std::function<std::unique_ptr<AudioInput>()> make) {
    inputFactory = std::move(make);
}

double EditorModel::recordedSeconds() const {
    if (!isRecording()) return 0;
    const auto& writer = recorder->currentWriter();
    return double(writer->frames()) / writer->sampleRate;
}

std::string EditorModel::recordingName(std::chrono::system_clock::time_point date) {
    const std::time_t time = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&time, &local);
    // Numbers only: the same text in every locale.
    char text[64];
    std::snprintf(text, sizeof text, "Recording %04d-%02d-%02d at %02d.%02d.%02d",
                  local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                  local.tm_min, local.tm_sec);
    return text;
}

fs::path EditorModel::recordingURL(const fs::path& folder,
                                   std::chrono::system_clock::time_point date) {
    return uniqueWAV(folder, recordingName(date));
}

void EditorModel::toggleRecording() {
    if (isRecording())
        stopRecording();
    else
        startRecording();
}

void EditorModel::startRecording() { beginRecording(true); }

void EditorModel::beginRecording(bool permissionGranted) {
    if (isRecording()) return;
    if (!permissionGranted) {
        showAlert({recordingFailedTitle, recordingFailureText(RecordingFailure::permissionDenied)});
        return;
    }
    stop();
    const auto now = std::chrono::system_clock::now();
    const fs::path folder = prefs.recordingsFolder();
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec) {
        showAlert({recordingFailedTitle, describeFileError("The recordings folder", folder.string(),
                                                           "can't be created: " + ec.message())});
        return;
    }
    const fs::path url = reserveNewTrackFile(folder, recordingName(now));
    if (!recorder) recorder = std::make_unique<AudioRecorder>(inputFactory);
    try {
        recorder->start(url, prefs.recordingFormat(), prefs.inputDeviceUID());
    } catch (const std::exception& error) {
        filesBeingWritten.erase(url);
        showAlert({recordingFailedTitle, userMessage(error)});
        return;
    }
    const auto& writer = recorder->currentWriter();
    auto track = AudioTrack::create(url);
    track->setIsNewFile(true);
    track->setIsRecording(true);
    track->setLiveAudio(std::make_shared<LiveAudio>(writer->sampleRate, writer->channelCount));
    addTrack(track);
    setSelectedTrackIDs({track->id()});
    recordingTrack = track;
    recordingStart = now;
    recordingLaneFrame.reset();
    if (showingTimeline) recordingLaneFrame = timelineModel->cursor();
    currentInputLevel.peaksDB.assign(size_t(writer->channelCount), -120.0f); // until input comes
    recordingChanged.emit();
    recordingTick();
}

void EditorModel::recordingTick() {
    if (!isRecording()) return;
    if (recorder->inputFailed()) {
        finishRecording(true);
        return;
    }
    const auto& writer = recorder->currentWriter();
    const auto track = recordingTrack.lock();
    // Its track was removed from the list: the recording ends there, its file kept.
    if (!track || !this->track(track->id())) {
        finishRecording(false);
        return;
    }
    if (track->liveAudio()) {
        try {
            track->liveAudio()->append(writer->takePending());
            track->liveAudioGrew();
        } catch (const std::exception&) {
            // Out of memory for the picture: the file goes on recording; the waveform stops.
            track->setLiveAudio(nullptr);
        }
    }
    if (auto peaks = writer->peaksDB(); !peaks.empty()) {
        currentInputLevel.peaksDB = std::move(peaks);
        inputLevelChanged.emit();
    }
    std::weak_ptr<EditorModel*> weak = self;
    recordingTimer = exec.postAfter(liveInterval, [weak] {
        if (const auto alive = weak.lock()) (*alive)->recordingTick();
    });
}

void EditorModel::stopRecording() {
    if (isRecording()) finishRecording(false);
}

void EditorModel::finishRecording(bool interrupted) {
    recordingTimer.cancel();
    const auto writer = recorder->stop();
    auto track = recordingTrack.lock();
    if (track && !this->track(track->id())) track.reset(); // removed from the list meanwhile
    recordingTrack.reset();
    recordingStart.reset();
    currentInputLevel = {};
    const fs::path url = writer->url;
    filesBeingWritten.erase(url);

    if (writer->frames() == 0 && !writer->writeError()) {
        // Nothing was captured: no track and no empty file are left behind.
        if (track) removeTracks({track->id()});
        std::error_code ignored;
        fs::remove(url, ignored);
    } else if (track) {
        track->setIsRecording(false);
        // The live picture stays until the file has loaded in its place.
        whenLoaded(track, [](const AudioTrackPtr& loaded) { loaded->setLiveAudio(nullptr); });
        load(track);
        if (const auto frame = recordingLaneFrame)
            whenLoaded(track, [this, frame](const AudioTrackPtr& loaded) {
                placeTrack(loaded->id(), std::nullopt, std::nullopt, *frame);
            });
    }
    recordingLaneFrame.reset();

    if (const auto error = writer->writeError())
        showAlert({recordingIncompleteTitle, *error});
    else if (writer->droppedFrames() > 0)
        showAlert({recordingIncompleteTitle,
                   "The disk couldn't keep up: " +
                       durationString(double(writer->droppedFrames()) / writer->sampleRate) +
                       " of input was lost and is silent in “" + url.filename().string() + "”."});
    else if (interrupted)
        showAlert({recordingStoppedTitle, inputChangedMessage});
    recordingChanged.emit();
    inputLevelChanged.emit();
}

} // namespace sonvale
