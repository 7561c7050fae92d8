#pragma once

#include "audio/Transcript.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {
class Transcriber;
}

namespace sonvale::cli {

using Arguments = std::vector<std::string>;

// A command-line error: the one-line message is printed and the tool exits with status 1.
struct UsageError {
    std::string message;
};

// Each command takes the arguments after its name and returns the exit status.
int info(const Arguments& args);
int exportCommand(const Arguments& args);
int effects(const Arguments& args);
int apply(const Arguments& args);
int loudness(const Arguments& args);
int normalize(const Arguments& args);
int trimSilence(const Arguments& args);
int play(const Arguments& args);
// Reports its own wrong arguments with status 2; a bundle that can't be read gives 1.
int session(const Arguments& args);
// Reports its own wrong arguments with status 2; other failures give 1.
int mixdown(const Arguments& args);
int record(const Arguments& args);
int devices(const Arguments& args);
int spectrogram(const Arguments& args);
int transcribe(const Arguments& args);
// Both transcribe FILE first, then ask a language model on this computer about the transcript.
int summarize(const Arguments& args);
int topics(const Arguments& args);

// A file's speech, and the length of the audio it was heard in.
struct RecognisedSpeech {
    Transcript transcript;
    double sampleRate = 0;
    int64_t frameCount = 0; // as decoded, whatever the file's header stated
};
// Recognises the speech in `input` the way `transcribe` does, decoding the file as it goes
// with a progress line. The language is checked and the file opened first; `beforeDecoding`
// runs next, so that quick failures of a command's own set-up come before the slow part.
// When no speech is heard, says so on stderr for `command` and returns none. The engines are
// those installed, or `engines` when given.
std::optional<RecognisedSpeech> recogniseSpeech(const std::string& command,
                                                const std::string& input,
                                                const std::optional<std::string>& language,
                                                const std::function<void()>& beforeDecoding = {},
                                                std::shared_ptr<Transcriber> engines = nullptr);
// FILE [--json] [--language ID] [--model PATH], as transcribe, summarize and topics take them.
struct SpeechOptions {
    std::string input;
    bool json = false;
    std::optional<std::string> language;
    std::optional<std::string> model;
};
SpeechOptions parseSpeechOptions(const Arguments& args, const std::string& usage);
// A UsageError when there is nothing at `path` for --model to load.
void checkModelFileExists(const std::string& path);

} // namespace sonvale::cli
