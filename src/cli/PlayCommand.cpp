// sonvale-cli play: plays a file through the default output with the live effect chain,
// printing the heard position and the output's peak once a second. Ctrl-C stops cleanly.

#include "audio/AudioLoader.h"
#include "audio/Decibels.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "effects/EffectChain.h"
#include "effects/EffectSetup.h"
#include "engine/LevelMeter.h"
#include "engine/PlaybackEngine.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <optional>
#include <thread>

namespace sonvale::cli {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

std::string decibels(float peak) {
    char text[32];
    if (peak <= 0)
        std::snprintf(text, sizeof text, "  -inf");
    else
        std::snprintf(text, sizeof text, "%6.1f", decibelsFromGain(peak));
    return text;
}

} // namespace

int play(const Arguments& args) {
    const char* usage = "play FILE [--speed X] [--loop] [--from SECONDS] [--seconds N] [--effect "
                        "KIND[@PRESET][,NAME=VALUE...] ...]";
    std::string file;
    double speed = 1, from = 0, seconds = -1;
    bool loop = false;
    std::vector<std::string> effects;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        const std::string option = cursor.current();
        if (option == "--speed")
            speed = parseNumber(cursor.value(), option, "a number");
        else if (option == "--from")
            from = parseNumber(cursor.value(), option, "seconds");
        else if (option == "--seconds")
            seconds = parseNumber(cursor.value(), option, "seconds");
        else if (option == "--loop")
            loop = true;
        else if (option == "--effect")
            effects.push_back(cursor.value());
        else if (cursor.isOption())
            cursor.unknownOption();
        else if (file.empty())
            file = option;
        else
            throw UsageError{std::string("play takes one FILE (") + usage + ")"};
    }
    if (file.empty()) throw UsageError{"play needs a FILE"};
    if (!(speed >= 0.5 && speed <= 2.0)) throw UsageError{"--speed must lie between 0.5 and 2"};
    if (from < 0) throw UsageError{"--from must not be negative"};
    if (seconds == 0 || (seconds < 0 && seconds != -1))
        throw UsageError{"--seconds must be positive"};

    // Parsed before decoding, so a bad effect fails at once.
    auto chain = std::make_shared<EffectChain>();
    for (const auto& effect : effects) {
        const EffectSetup setup = EffectSetup::parse(effect);
        chain->append(EffectSession::make(setup.kind, setup.values));
    }
    DecodeReport report;
    AudioDataPtr audio;
    try {
        audio = AudioLoader::load(file, {}, &report);
    } catch (...) {
        rethrowNamingInput(file);
    }
    warnAboutDamage(file, report, audio->sampleRate);
    const int64_t start =
        std::min<int64_t>(std::llround(from * audio->sampleRate), audio->frameCount);
    if (start >= audio->frameCount)
        throw UsageError{"--from is past the end of the file (" +
                         std::to_string(audio->duration()) + " s)"};

    PlaybackEngine engine;
    if (!chain->effects().empty())
        engine.setEffectFactory(
            [chain](double rate, int channels) -> std::unique_ptr<EffectProcessor> {
                return chain->previewProcessor(rate, channels);
            });
    engine.setRate(float(speed));
    auto gain = std::make_shared<GainBox>(1.0f);
    try {
        auto source = engine.prepare(AudioDataContent::make(audio), gain);
        source->start({0, audio->frameCount}, start, loop);
        engine.start();
    } catch (const PlaybackError& error) {
        std::fprintf(stderr, "sonvale-cli play: %s: %s\n", playbackFailedTitle, error.what());
        return 1;
    }

    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigaction(SIGINT, &action, nullptr);

    std::printf("playing %s (%.1f s at %.0f Hz, %d channel%s) from %.2f s at speed %.2g%s\n",
                file.c_str(), audio->duration(), audio->sampleRate, audio->channelCount(),
                audio->channelCount() == 1 ? "" : "s", double(start) / audio->sampleRate, speed,
                loop ? ", looping" : "");
    std::fflush(stdout);

    const auto began = std::chrono::steady_clock::now();
    auto nextReport = began + std::chrono::seconds(1);
    OutputPeakReader reader;
    LevelMeters::Peaks peak;
    auto& source = *engine.source();
    std::optional<int64_t> lastHeard;
    // When the first frame reaches the ear: --seconds counts audio heard, not time since
    // the start, which would leave the output latency's worth unheard.
    std::optional<std::chrono::steady_clock::time_point> heardSince;
    while (!interrupted) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        engine.checkOutput();
        if (auto frame = engine.audibleFrame()) {
            lastHeard = frame;
            if (!heardSince)
                heardSince = std::chrono::steady_clock::now() -
                             std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                 std::chrono::duration<double>(double(*frame - start) /
                                                               (audio->sampleRate * speed)));
        }
        if (auto heard =
                heardOutputPeaks(reader, engine.outputMeters(), engine.outputLatencyFrames())) {
            peak.left = std::max(peak.left, heard->left);
            peak.right = std::max(peak.right, heard->right);
        }
        auto now = std::chrono::steady_clock::now();
        if (now >= nextReport) {
            if (lastHeard)
                std::printf("%8.2f s   peak %s dB %s dB\n", double(*lastHeard) / audio->sampleRate,
                            decibels(peak.left).c_str(), decibels(peak.right).c_str());
            std::fflush(stdout);
            peak = {};
            nextReport += std::chrono::seconds(1);
        }
        // (An output that gives no time stamps is stopped by the clock, a second late.)
        if (seconds > 0 &&
            (heardSince ? std::chrono::duration<double>(now - *heardSince).count() >= seconds
                        : std::chrono::duration<double>(now - began).count() >= seconds + 1))
            break;
        if (!engine.isSounding()) {
            // Let the output play out what it holds.
            std::this_thread::sleep_for(
                std::chrono::duration<double>(engine.outputLatency() + 0.05));
            break;
        }
    }
    const bool ended = !source.playing.load();
    if (auto frame = engine.audibleFrame()) lastHeard = frame;
    engine.stop();
    if (interrupted)
        std::printf("interrupted");
    else
        std::printf(ended ? "finished" : "stopped");
    if (lastHeard)
        std::printf(" at %.2f s", double(std::clamp<int64_t>(*lastHeard, 0, audio->frameCount)) /
                                      audio->sampleRate);
    std::printf("; %lld output underruns\n", static_cast<long long>(engine.underflowCount()));
    if (auto failure = engine.takeRestartFailure())
        throw PlaybackError(std::string(playbackFailedTitle) + ": " + *failure);
    return 0;
}

} // namespace sonvale::cli
