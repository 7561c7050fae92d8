// sonvale-cli transcribe: the speech in a file as timed lines of text, made on this computer.

#include "audio/AudioDecoder.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "persistence/SessionState.h"
#include "transcription/PocketSphinxRecognizer.h"
#include "transcription/Transcriber.h"
#include "transcription/WhisperRecognizer.h"

#include <cstdio>
#include <filesystem>
#include <optional>

namespace sonvale::cli {

namespace {

constexpr const char* transcribeUsage =
    "usage: transcribe FILE [--json] [--language ID] [--model PATH]";

} // namespace

SpeechOptions parseSpeechOptions(const Arguments& args, const std::string& usage) {
    SpeechOptions options;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        const std::string& arg = cursor.current();
        if (arg == "--json") {
            options.json = true;
        } else if (arg == "--language") {
            options.language = cursor.value();
        } else if (arg == "--model") {
            options.model = cursor.value();
        } else if (cursor.isOption()) {
            cursor.unknownOption();
        } else if (options.input.empty()) {
            options.input = arg;
        } else {
            throw UsageError{"only one file at a time (" + usage + ")"};
        }
    }
    if (options.input.empty()) throw UsageError{"a file is needed (" + usage + ")"};
    return options;
}

void checkModelFileExists(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) throw UsageError{"No such model file: " + path};
}

std::optional<RecognisedSpeech> recogniseSpeech(const std::string& command,
                                                const std::string& input,
                                                const std::optional<std::string>& language,
                                                const std::function<void()>& beforeDecoding,
                                                std::shared_ptr<Transcriber> engines) {
    if (!engines) engines = Transcriber::installed();
    // The language is checked before the file is read, so a wrong one fails at once.
    const std::string locale = engines->resolve(language);

    // The file is decoded as the engine goes, so a long one is never held whole.
    std::unique_ptr<AudioDecoder> decoder;
    try {
        decoder = openAudioDecoder(input);
    } catch (...) {
        rethrowNamingInput(input);
    }
    if (beforeDecoding) beforeDecoding();

    const AudioLoader::FileInfo info = decoder->info();
    std::vector<std::vector<float>> planes(size_t(info.channels));
    std::vector<float*> channels(planes.size());
    RecognisedSpeech speech;
    speech.sampleRate = info.sampleRate;
    ConvertedInput::Source source{info.sampleRate, info.frames, {}};
    source.read = [&](float* mono, int64_t maxFrames) {
        for (size_t c = 0; c < planes.size(); ++c) {
            planes[c].resize(size_t(maxFrames));
            channels[c] = planes[c].data();
        }
        const int64_t frames = decoder->read(channels.data(), maxFrames);
        ConvertedInput::mixToMono(channels.data(), int(channels.size()), frames, mono);
        speech.frameCount += frames;
        return frames;
    };

    ProgressLine progress("Transcribing " + input);
    auto show = progress.callback();
    speech.transcript.locale = locale;
    try {
        speech.transcript.segments =
            engines->transcribe(std::move(source), locale, [&](Transcriber::Stage stage) {
                const auto* running = std::get_if<AudioTrack::Transcribing>(&stage);
                if (running && show) show(running->progress);
            });
    } catch (...) {
        rethrowNamingInput(input);
    }
    progress.clear();
    warnAboutDamage(input, decoder->report(), info.sampleRate);
    if (speech.transcript.segments.empty()) {
        std::fprintf(stderr, "sonvale-cli %s: the transcriber didn't recognise any speech in %s.\n",
                     command.c_str(), curlyQuoted(input).c_str());
        return std::nullopt;
    }
    return speech;
}

int transcribe(const Arguments& args) {
    const SpeechOptions options = parseSpeechOptions(args, transcribeUsage);
    // A whisper model given here takes the place of the folder's; pocketsphinx stays for the
    // languages it lacks.
    std::shared_ptr<Transcriber> engines;
    if (options.model) {
        checkModelFileExists(*options.model);
        std::shared_ptr<const SpeechRecognizer> dictation;
        if (PocketSphinxRecognizer::isInstalled())
            dictation = std::make_shared<PocketSphinxRecognizer>();
        engines = std::make_shared<Transcriber>(std::make_shared<WhisperRecognizer>(*options.model),
                                                std::move(dictation));
    }
    const auto speech =
        recogniseSpeech("transcribe", options.input, options.language, {}, std::move(engines));
    if (!speech) return 1;
    if (options.json) {
        std::fputs(encodeTranscript(speech->transcript).c_str(), stdout);
    } else {
        std::fputs(speech->transcript.text().c_str(), stdout);
    }
    return 0;
}

} // namespace sonvale::cli
