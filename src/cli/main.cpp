// sonvale-cli: Sonvale's batch tool for scripted audio work.

#include "cli/Commands.h"
#include "cli/Options.h"

#include "base/Errors.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <map>

using namespace sonvale::cli;

namespace {

struct Command {
    const char* synopsis;
    std::function<int(const Arguments&)> run;
};

const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> table{
        {"info",
         {"info [--json] FILE...            container, codec, rate, channels, frames, "
          "duration, peak",
          info}},
        {"export",
         {"export IN -o OUT [--format wav16|wav24|aiff16|aac] [--gain DB] "
          "[--range START:END]",
          exportCommand}},
        {"effects",
         {"effects [--json] [KIND]          the effect catalogue: parameters, ranges, "
          "defaults, units, presets",
          effects}},
        {"apply",
         {"apply IN -o OUT [--range START:END] --effect KIND[@PRESET][,NAME=VALUE...] "
          "[--effect ...]",
          apply}},
        {"loudness",
         {"loudness [--json] FILE...        integrated loudness (LUFS) and sample peak", loudness}},
        {"normalize", {"normalize IN -o OUT (--peak | --loudness LUFS) [--format F]", normalize}},
        {"trim-silence",
         {"trim-silence IN -o OUT [--format F]   cut the silence at both ends", trimSilence}},
        {"play",
         {"play FILE [--speed X] [--loop] [--from SECONDS] [--seconds N] "
          "[--effect KIND[@PRESET][,NAME=VALUE...] ...]",
          play}},
        {"record",
         {"record -o OUT.wav [--seconds N] [--format wav16|wav24|wav32f] [--device NAME]   "
          "record the audio input until N seconds are in or Ctrl-C",
          record}},
        {"devices", {"devices                          the audio inputs and outputs", devices}},
        {"spectrogram",
         {"spectrogram IN -o OUT.png [--fft 512|1024|2048|4096] [--map inferno|magma|viridis|"
          "grayscale] [--linear] [--width W --height H] [--range START:END]   the spectrogram "
          "as a picture, time across and frequency up",
          spectrogram}},
        {"transcribe",
         {"transcribe FILE [--json] [--language ID] [--model PATH]   the speech in a file as "
          "timed lines, recognised on this computer",
          transcribe}},
        {"summarize",
         {"summarize FILE [--model PATH] [--json] [--language ID]   a title and summary of "
          "what is said in a file, from a language model on this computer",
          summarize}},
        {"topics",
         {"topics FILE [--model PATH] [--json] [--language ID]   the regions of a file's "
          "topics, found by a language model on this computer",
          topics}},
        {"session",
         {"session info [--json] BUNDLE.sonvale   a saved session's format, tracks (found "
          "or missing), lanes, buses and snapshots",
          session}},
        {"mixdown",
         {"mixdown SESSION.sonvale -o OUT.wav [--range START:END]   a session's timeline mixed "
          "to a stereo 32-bit float WAV, effect tails included",
          mixdown}},
    };
    return table;
}

void printUsage(FILE* to) {
    std::fprintf(to, "usage: sonvale-cli COMMAND [ARGS...]\n\ncommands:\n");
    for (auto& [name, command] : commands())
        std::fprintf(to, "  %s\n", command.synopsis);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
        printUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 1 : 0;
    }
    if (!std::strcmp(argv[1], "--version")) {
        std::printf("sonvale-cli %s\n", SONVALE_VERSION);
        return 0;
    }
    auto found = commands().find(argv[1]);
    if (found == commands().end()) {
        std::fprintf(stderr, "sonvale-cli: unknown command \"%s\" (try --help)\n", argv[1]);
        return 1;
    }
    try {
        return found->second.run(Arguments(argv + 2, argv + argc));
    } catch (const UsageError& error) {
        std::fprintf(stderr, "sonvale-cli %s: %s\n", argv[1], error.message.c_str());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sonvale-cli %s: %s\n", argv[1], failureText(error).c_str());
    }
    return 1;
}
