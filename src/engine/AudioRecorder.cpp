#include "engine/AudioRecorder.h"

#include <system_error>

namespace sonvale {

AudioRecorder::AudioRecorder(std::function<std::unique_ptr<AudioInput>()> make)
    : makeInput(make ? std::move(make) : [] { return makePortAudioInput(); }) {}

AudioRecorder::~AudioRecorder() { stop(); }

void AudioRecorder::start(const std::filesystem::path& url, RecordingFormat format,
                          const std::optional<std::string>& deviceUID, int maxChannels,
                          RecordingWriter::Options options) {
    stop();
    input = makeInput();
    try {
        const AudioInput::Format found = input->open(deviceUID, maxChannels);
        writer = std::make_shared<RecordingWriter>(url, found.sampleRate, found.channelCount,
                                                   format, std::move(options));
        input->start(writer.get());
    } catch (...) {
        input.reset();
        if (writer) {
            writer->finish();
            writer.reset();
            std::error_code ignored;
            std::filesystem::remove(url, ignored);
        }
        throw;
    }
    latency = input->inputLatency();
}
std::shared_ptr<RecordingWriter> AudioRecorder::stop() {
    if (input) {
        input->stop();
        input->close();
    }
    auto finished = std::move(writer);
    writer.reset();
    if (finished) finished->finish();
    return finished;
}

bool AudioRecorder::inputFailed() const { return input && writer && input->hasFailed(); }

int64_t AudioRecorder::overflowCount() const { return input ? input->overflowCount() : 0; }

std::string AudioRecorder::deviceName() const { return input ? input->deviceName() : ""; }

} // namespace sonvale
