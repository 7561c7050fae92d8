// sonvale-cli record: records the audio input into a WAV file until a number of seconds has
// been captured or Ctrl-C, showing the input level on a terminal. sonvale-cli devices: the
// audio devices there are.

#include "audio/AudioLoader.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "engine/AudioInputDevice.h"
#include "engine/AudioRecorder.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <thread>

namespace sonvale::cli {

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

RecordingFormat parseRecordingFormat(const std::string& raw) {
    if (raw == "wav16") return RecordingFormat::wav16;
    if (raw == "wav24") return RecordingFormat::wav24;
    if (raw == "wav32f") return RecordingFormat::wav32Float;
    throw UsageError{"--format must be wav16, wav24 or wav32f, not " + curlyQuoted(raw)};
}

// The uid of the input device called `name` (its name or its uid).
std::string findInput(const std::string& name) {
    for (const auto& device : audioInputDevices())
        if (device.uid == name || device.name == name) return device.uid;
    throw UsageError{"there is no audio input called " + curlyQuoted(name) +
                     " (sonvale-cli devices lists them)"};
}

// "L  -12.3 dB [########            ]" per channel, on one line.
std::string levelLine(const std::vector<float>& peaksDB) {
    std::string line;
    for (size_t c = 0; c < peaksDB.size(); ++c) {
        const float db = peaksDB[c];
        char text[48];
        std::snprintf(text, sizeof text, "  %s %6.1f dB [",
                      peaksDB.size() == 2 ? (c == 0 ? "L" : "R") : std::to_string(c + 1).c_str(),
                      std::max(db, -99.9f));
        line += text;
        const int bars = int(std::lround(std::clamp((db + 60) / 60, 0.0f, 1.0f) * 20));
        line += std::string(size_t(bars), '#') + std::string(size_t(20 - bars), ' ') + "]";
    }
    return line;
}

} // namespace

int record(const Arguments& args) {
    const char* usage = "record -o OUT.wav [--seconds N] [--format wav16|wav24|wav32f] "
                        "[--device NAME]";
    std::string output, device;
    double seconds = 0;
    RecordingFormat format = RecordingFormat::wav24;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        const std::string option = cursor.current();
        if (option == "-o")
            output = cursor.value();
        else if (option == "--seconds")
            seconds = parseNumber(cursor.value(), option, "seconds");
        else if (option == "--format")
            format = parseRecordingFormat(cursor.value());
        else if (option == "--device")
            device = cursor.value();
        else if (cursor.isOption())
            cursor.unknownOption();
        else
            throw UsageError{std::string("record takes no file but -o OUT (") + usage + ")"};
    }
    if (output.empty()) throw UsageError{"record needs -o OUT.wav"};
    if (seconds < 0) throw UsageError{"--seconds must be positive"};
    const std::optional<std::string> uid =
        device.empty() ? std::nullopt : std::optional(findInput(device));

    // A file already there stays whole until the new recording replaces it; a new name is
    // written in place, so that a recording cut off by a crash is found under it.
    const fs::path destination = output;
    std::error_code ec;
    const bool replacing = fs::exists(destination, ec);
    const fs::path target =
        replacing ? fs::path(destination.string() + ".recording-" + std::to_string(getpid()))
                  : destination;

    RecordingWriter::Options options;
    options.keepsPending = false;
    options.secondsLimit = seconds;
    AudioRecorder recorder;
    try {
        recorder.start(target, format, uid, 2, options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sonvale-cli record: %s\n", failureText(error).c_str());
        return 1;
    }
    const auto writer = recorder.currentWriter();

    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    const bool terminal = isatty(STDOUT_FILENO);
    std::printf("recording %s from %s (%.0f Hz, %d channel%s)%s\n", output.c_str(),
                recorder.deviceName().c_str(), writer->sampleRate, writer->channelCount,
                writer->channelCount == 1 ? "" : "s", seconds > 0 ? "" : "; Ctrl-C stops");
    std::fflush(stdout);
    bool inputLost = false;
    auto nextLine = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    std::vector<float> loudest(size_t(writer->channelCount), -120.0f);
    while (!interrupted) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (writer->isComplete()) break;
        if (writer->writeError()) break;
        if (recorder.inputFailed()) {
            inputLost = true;
            break;
        }
        auto peaks = writer->peaksDB();
        if (peaks.empty()) peaks.assign(loudest.size(), -120.0f); // nothing arrived this time
        for (size_t c = 0; c < loudest.size(); ++c)
            loudest[c] = std::max(loudest[c], peaks[c]);
        const double at = double(writer->frames()) / writer->sampleRate;
        if (terminal) {
            std::printf("\r%s %s ", durationString(at).c_str(), levelLine(peaks).c_str());
            std::fflush(stdout);
        } else if (std::chrono::steady_clock::now() >= nextLine) {
            std::printf("%s %s\n", durationString(at).c_str(), levelLine(loudest).c_str());
            std::fflush(stdout);
            std::fill(loudest.begin(), loudest.end(), -120.0f);
            nextLine += std::chrono::seconds(1);
        }
    }
    if (terminal) std::printf("\n");
    const int64_t overflows = recorder.overflowCount();
    recorder.stop();
    const int64_t frames = writer->frames();
    if (frames == 0) {
        // Nothing came in: no empty file is left, and a file that was there stays as it was.
        fs::remove(target, ec);
        if (const auto error = writer->writeError())
            std::fprintf(stderr, "sonvale-cli record: %s\n", error->c_str());
        std::fprintf(stderr, "sonvale-cli record: nothing was recorded%s\n",
                     replacing ? ("; " + output + " is as it was").c_str() : "");
        return 1;
    }
    if (replacing) fs::rename(target, destination, ec);
    if (ec) {
        std::fprintf(stderr, "sonvale-cli record: %s\n",
                     describeFileError("The recording couldn't replace", output,
                                       ec.message() + "; it is in " + target.string())
                         .c_str());
        return 1;
    }
    std::printf("recorded %s (%lld frames) into %s",
                durationString(double(frames) / writer->sampleRate).c_str(),
                static_cast<long long>(frames), output.c_str());
    if (writer->droppedFrames() > 0)
        std::printf("; %s of input lost (the disk couldn't keep up), silent in the file",
                    durationString(double(writer->droppedFrames()) / writer->sampleRate).c_str());
    if (overflows > 0)
        std::printf("; the input device overflowed %lld times", static_cast<long long>(overflows));
    std::printf("\n");
    if (const auto error = writer->writeError()) {
        std::fprintf(stderr, "sonvale-cli record: %s\n", error->c_str());
        return 1;
    }
    if (inputLost) {
        std::fprintf(stderr, "sonvale-cli record: the audio input went away; what was recorded "
                             "is kept\n");
        return 1;
    }
    return 0;
}

int devices(const Arguments& args) {
    if (!args.empty()) throw UsageError{"devices takes no arguments"};
    const AudioDeviceList list = audioDevices();
    auto print = [](const char* heading, const std::vector<AudioInputDevice>& found,
                    const std::string& standard) {
        std::printf("%s:\n", heading);
        if (found.empty()) std::printf("  (none)\n");
        for (const auto& device : found)
            std::printf("  %s%s\n", device.uid.c_str(),
                        device.uid == standard ? "   (default)" : "");
    };
    print("inputs", list.inputs, list.defaultInput);
    print("outputs", list.outputs, list.defaultOutput);
    return 0;
}

} // namespace sonvale::cli
