// sonvale-cli transcribe: the speech in a file as timed lines of text, made on this computer.

#include "audio/AudioDecoder.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "persistence/SessionState.h"
#include "transcription/Transcriber.h"

#include <cstdio>
#include <optional>

namespace sonvale::cli {

namespace {

constexpr const char* usage = "usage: transcribe FILE [--json] [--language ID]";

struct Options {
    std::string input;
    bool json = false;
    std::optional<std::string> language;
};

Options parse(const Arguments& args) {
    Options options;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        const std::string& arg = cursor.current();
        if (arg == "--json") {
            options.json = true;
        } else if (arg == "--language") {
            options.language = cursor.value();
        } else if (cursor.isOption()) {
            cursor.unknownOption();
        } else if (options.input.empty()) {
            options.input = arg;
        } else {
            throw UsageError{std::string("only one file at a time (") + usage + ")"};
        }
    }
    if (options.input.empty()) throw UsageError{std::string("a file is needed (") + usage + ")"};
    return options;
}

} // namespace

int transcribe(const Arguments& args) {
    const Options options = parse(args);
    const auto engines = Transcriber::installed();
    // The language is checked before the file is read, so a wrong one fails at once.
    const std::string locale = engines->resolve(options.language);

    // The file is decoded as the engine goes, so a long one is never held whole.
    std::unique_ptr<AudioDecoder> decoder;
    try {
        decoder = openAudioDecoder(options.input);
    } catch (...) {
        rethrowNamingInput(options.input);
    }
    const AudioLoader::FileInfo info = decoder->info();
    std::vector<std::vector<float>> planes(size_t(info.channels));
    std::vector<float*> channels(planes.size());
    ConvertedInput::Source source{info.sampleRate, info.frames, {}};
    source.read = [&](float* mono, int64_t maxFrames) {
        for (size_t c = 0; c < planes.size(); ++c) {
            planes[c].resize(size_t(maxFrames));
            channels[c] = planes[c].data();
        }
        const int64_t frames = decoder->read(channels.data(), maxFrames);
        ConvertedInput::mixToMono(channels.data(), int(channels.size()), frames, mono);
        return frames;
    };

    ProgressLine progress("Transcribing " + options.input);
    auto show = progress.callback();
    Transcript transcript;
    transcript.locale = locale;
    try {
        transcript.segments =
            engines->transcribe(std::move(source), locale, [&](Transcriber::Stage stage) {
                const auto* running = std::get_if<AudioTrack::Transcribing>(&stage);
                if (running && show) show(running->progress);
            });
    } catch (...) {
        rethrowNamingInput(options.input);
    }
    progress.clear();
    warnAboutDamage(options.input, decoder->report(), info.sampleRate);
    if (transcript.segments.empty()) {
        std::fprintf(stderr,
                     "sonvale-cli transcribe: the transcriber didn't recognise any speech in %s.\n",
                     curlyQuoted(options.input).c_str());
        return 1;
    }
    if (options.json) {
        std::fputs(encodeTranscript(transcript).c_str(), stdout);
    } else {
        std::fputs(transcript.text().c_str(), stdout);
    }
    return 0;
}

} // namespace sonvale::cli
