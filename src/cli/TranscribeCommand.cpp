// sonvale-cli transcribe: the speech in a file as timed lines of text, made on this computer.

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
    const AudioDataPtr audio = loadWithProgress(options.input);

    ProgressLine progress("Transcribing");
    auto show = progress.callback();
    Transcript transcript;
    transcript.locale = locale;
    transcript.segments = engines->transcribe(audio, locale, [&](Transcriber::Stage stage) {
        if (const auto* running = std::get_if<AudioTrack::Transcribing>(&stage); running && show)
            show(running->progress);
    });
    progress.clear();
    if (transcript.segments.empty()) {
        std::fprintf(stderr,
                     "sonvale-cli transcribe: the transcriber didn't recognise any speech in %s.\n",
                     curlyQuoted(options.input).c_str());
        return 1;
    }
    if (options.json) {
        std::fputs(encodeTranscript(transcript).c_str(), stdout);
    } else {
        for (const auto& line : transcript.segments)
            std::printf("%s %s\n", Transcript::clock(line.start).c_str(), line.text.c_str());
    }
    return 0;
}

} // namespace sonvale::cli
