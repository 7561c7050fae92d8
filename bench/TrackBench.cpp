// The cost of a destructive edit on a long track, and of its undo: time, the peak of memory
// while the new audio is built, and what the undo history keeps afterwards.

#include "audio/AudioLoader.h"
#include "audio/AudioTrack.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>

using namespace sonvale;

namespace {

// A field of /proc/self/status in bytes ("VmRSS", "VmHWM").
int64_t statusBytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(field) + ":";
    while (std::getline(status, line))
        if (line.rfind(prefix, 0) == 0) return std::stoll(line.substr(prefix.size())) * 1024;
    return 0;
}

// Makes the kernel's resident-set high-water mark start again from the current size.
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

int64_t audioBytes(const AudioDataPtr& audio) {
    AudioMemory::Accumulator account;
    account.addAudio(audio);
    return account.result.samples + account.result.levels;
}

AudioDataPtr noiseTrack(int64_t frames, int channels) {
    std::vector<FloatBuffer> buffers;
    std::minstd_rand engine(7);
    for (int c = 0; c < channels; ++c) {
        FloatBuffer buffer(frames);
        for (int64_t i = 0; i < frames; ++i)
            buffer[i] = float(int32_t(engine() % 20001) - 10000) / 20000.0f;
        buffers.push_back(std::move(buffer));
    }
    return AudioLoader::makeAudioData(48000, std::move(buffers), frames);
}

// Deletes one second in the middle of a 60-minute stereo 48 kHz track, then undoes it.
// Counters (MB = 10^6 bytes):
//   audioMB        the track's samples and levels
//   deletePeakMB   resident memory above the starting point while the delete ran
//   heldAfterMB    resident memory above the starting point once the delete is done
//                  (the old audio is gone; the undo keeps the one-second clip)
//   undoClipMB     the samples the undo step holds
//   undoPeakMB     the same peak for the undo
void BM_DeleteOneSecondFromAnHourAndUndo(benchmark::State& state) {
    const int64_t frames = int64_t(60) * 60 * 48000;
    auto track = AudioTrack::create("/bench/hour.wav");
    track->finishLoading(noiseTrack(frames, 2));
    const int64_t audio = audioBytes(track->audio());
    const FrameRange second{frames / 2, frames / 2 + 48000};

    // The first edit of the process takes memory the process never had; on a virtual machine
    // the host then faults in every page too (seconds for 1.7 GB). That round is timed on its
    // own (firstDeleteMs), the rest show the edit itself.
    auto w0 = std::chrono::steady_clock::now();
    track->replace(second, AudioClip{}, std::nullopt, "Delete");
    auto w1 = std::chrono::steady_clock::now();
    track->undoStack().undo();
    track->undoStack().removeAll();

    double deleteSeconds = 0, undoSeconds = 0;
    int64_t deletePeak = 0, heldAfter = 0, undoPeak = 0;
    for (auto _ : state) {
        const int64_t before = statusBytes("VmRSS");
        resetPeak();
        auto t0 = std::chrono::steady_clock::now();
        track->replace(second, AudioClip{}, std::nullopt, "Delete");
        auto t1 = std::chrono::steady_clock::now();
        deletePeak = std::max(deletePeak, statusBytes("VmHWM") - before);
        heldAfter = statusBytes("VmRSS") - before;

        const int64_t beforeUndo = statusBytes("VmRSS");
        resetPeak();
        auto t2 = std::chrono::steady_clock::now();
        track->undoStack().undo();
        auto t3 = std::chrono::steady_clock::now();
        undoPeak = std::max(undoPeak, statusBytes("VmHWM") - beforeUndo);
        state.SetIterationTime(std::chrono::duration<double>(t3 - t2 + (t1 - t0)).count());
        deleteSeconds += std::chrono::duration<double>(t1 - t0).count();
        undoSeconds += std::chrono::duration<double>(t3 - t2).count();
        // The redo step would hold the second again; start each round from a clean history.
        track->undoStack().removeAll();
    }
    const double n = double(state.iterations());
    state.counters["audioMB"] = double(audio) / 1e6;
    state.counters["firstDeleteMs"] = std::chrono::duration<double>(w1 - w0).count() * 1e3;
    state.counters["deleteMs"] = deleteSeconds / n * 1e3;
    state.counters["undoMs"] = undoSeconds / n * 1e3;
    state.counters["deletePeakMB"] = double(deletePeak) / 1e6;
    state.counters["heldAfterMB"] = double(heldAfter) / 1e6;
    state.counters["undoClipMB"] = 48000.0 * 2 * 4 / 1e6;
    state.counters["undoPeakMB"] = double(undoPeak) / 1e6;
}
BENCHMARK(BM_DeleteOneSecondFromAnHourAndUndo)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(5);

} // namespace
