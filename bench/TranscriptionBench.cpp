// Transcription speed on one core as a multiple of real time, over five minutes of real read
// speech (pocketsphinx's test clip with a second of silence after each) at 44.1 kHz stereo, so
// that mixing and conversion count: whisper with the random-weight test model (or the model
// file SONVALE_WHISPER_MODEL names), and pocketsphinx for comparison.

#include "audio/AudioLoader.h"
#include "support/TinyWhisperModel.h"
#include "transcription/PocketSphinxRecognizer.h"
#include "transcription/Transcriber.h"
#include "transcription/WhisperRecognizer.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

using namespace sonvale;

namespace {

constexpr double rate = 44100;
constexpr double seconds = 300;

const AudioDataPtr& readSpeech() {
    static const AudioDataPtr audio = [] {
        std::ifstream raw("/usr/share/pocketsphinx/test/data/goforward.raw", std::ios::binary);
        std::vector<int16_t> clip(size_t(16000 * 10));
        raw.read(reinterpret_cast<char*>(clip.data()), std::streamsize(clip.size() * 2));
        clip.resize(size_t(raw.gcount() / 2));
        clip.resize(clip.size() + 16000); // a second of silence
        const auto frames = int64_t(seconds * rate);
        std::vector<FloatBuffer> channels;
        for (int c = 0; c < 2; ++c) {
            FloatBuffer buffer(frames);
            for (int64_t i = 0; i < frames; ++i) {
                // Nearest-sample rate change: the transcriber converts it properly.
                const auto at = size_t(double(i) * 16000 / rate) % clip.size();
                buffer[i] = float(clip[at]) / 32768.0f;
            }
            channels.push_back(std::move(buffer));
        }
        return AudioLoader::makeAudioData(rate, std::move(channels), frames);
    }();
    return audio;
}

void transcribe(benchmark::State& state, const Transcriber& transcriber,
                const std::string& locale) {
    const auto& audio = readSpeech();
    size_t lines = 0;
    double wall = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        lines = transcriber.transcribe(audio, locale, [](Transcriber::Stage) {}).size();
        wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(wall);
    }
    state.counters["x_real_time"] = seconds / wall;
    state.counters["lines"] = double(lines);
}

void BM_WhisperOneCore(benchmark::State& state) {
    std::string model;
    if (const char* given = std::getenv("SONVALE_WHISPER_MODEL")) {
        model = given;
    } else {
        model = "/tmp/sonvale-bench-ggml-test-" + std::to_string(::getpid()) + ".bin";
        test::writeTinyWhisperModel(model);
    }
    {
        const Transcriber transcriber(std::make_shared<WhisperRecognizer>(model, 1), nullptr);
        transcribe(state, transcriber, "en");
    }
    if (!std::getenv("SONVALE_WHISPER_MODEL")) std::remove(model.c_str());
}

void BM_PocketSphinxOneCore(benchmark::State& state) {
    const Transcriber transcriber(nullptr, std::make_shared<PocketSphinxRecognizer>());
    transcribe(state, transcriber, "en-US");
}

} // namespace

BENCHMARK(BM_WhisperOneCore)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_PocketSphinxOneCore)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
