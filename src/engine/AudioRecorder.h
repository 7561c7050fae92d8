#pragma once

#include "engine/AudioInput.h"
#include "engine/RecordingFormat.h"
#include "engine/RecordingWriter.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace sonvale {

// Records the audio input into a new WAV file: opens the input (the chosen device, else the
// default one) at its own rate and channels, and hands every buffer to a RecordingWriter.
// Main thread only; the writer does the work on the capture and writer threads.
class AudioRecorder {
public:
    using Failure = RecordingFailure;

    // `makeInput` makes the device layer (PortAudio unless given).
    explicit AudioRecorder(std::function<std::unique_ptr<AudioInput>()> makeInput = {});
    ~AudioRecorder();
    AudioRecorder(const AudioRecorder&) = delete;
    AudioRecorder& operator=(const AudioRecorder&) = delete;

    // Starts recording into `url`, which must not exist. With at most `maxChannels` of the
    // input's channels. Throws RecordingError (or FileError); on a failure nothing is left
    // behind: the file is deleted.
    void start(const std::filesystem::path& url, RecordingFormat format,
               const std::optional<std::string>& deviceUID, int maxChannels = 2,
               RecordingWriter::Options options = {});
    // Stops the input and finishes the file; returns the writer that was in use (none when
    // not recording).
    std::shared_ptr<RecordingWriter> stop();

    bool isRecording() const { return writer != nullptr; }
    const std::shared_ptr<RecordingWriter>& currentWriter() const { return writer; }
    // The input stopped by itself (the device went away or failed). Polled by the owner,
    // which then stops as it would for the user; onInterrupted is not called by the recorder.
    bool inputFailed() const;
    // Input buffers the device itself lost (overflows) during this recording.
    int64_t overflowCount() const;
    double inputLatency() const { return latency; }
    std::string deviceName() const;

private:
    std::function<std::unique_ptr<AudioInput>()> makeInput;
    std::unique_ptr<AudioInput> input;
    std::shared_ptr<RecordingWriter> writer;
    double latency = 0;
};

} // namespace sonvale
