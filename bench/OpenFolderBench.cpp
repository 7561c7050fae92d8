// Opening a folder of short files through the editor (background decoding on a thread pool,
// results committed on the main thread) against decoding the same files one after another.
//
// The folder is $SONVALE_BENCH_FOLDER when set (bench/open-folder.sh makes one with ffmpeg),
// else 200 ten-second stereo files written here: half 16-bit WAV, half AAC.

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"
#include "base/ThreadPoolExecutor.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

using namespace sonvale;
namespace fs = std::filesystem;

namespace {

fs::path makeFolder() {
    const fs::path folder = fs::temp_directory_path() / "sonvale-bench-open-folder";
    if (fs::exists(folder / "done")) return folder;
    fs::create_directories(folder);
    const int64_t frames = 10 * 44100;
    std::vector<FloatBuffer> buffers;
    for (int c = 0; c < 2; ++c) {
        FloatBuffer buffer(frames);
        for (int64_t i = 0; i < frames; ++i)
            buffer[i] = 0.3f * float(std::sin(2 * M_PI * (220.0 + 110 * c) * double(i) / 44100));
        buffers.push_back(std::move(buffer));
    }
    const AudioDataPtr audio = AudioLoader::makeAudioData(44100, std::move(buffers), frames);
    for (int i = 0; i < 200; ++i) {
        const ExportFormat format = i % 2 ? ExportFormat::aac : ExportFormat::wav16;
        char name[32];
        std::snprintf(name, sizeof name, "clip %03d.%s", i,
                      std::string(fileExtension(format)).c_str());
        AudioExporter::exportAudio(*audio, {0, frames}, 1.0f, format, folder / name);
    }
    std::ofstream(folder / "done") << "";
    return folder;
}

const fs::path& benchFolder() {
    static const fs::path folder = [] {
        if (const char* given = std::getenv("SONVALE_BENCH_FOLDER"); given && *given)
            return fs::path(given);
        return makeFolder();
    }();
    return folder;
}

void BM_OpenFolderThroughEditor(benchmark::State& state) {
    fs::path folder;
    try {
        folder = benchFolder();
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
        return;
    }
    ThreadPoolExecutor executor(unsigned(state.range(0)));
    Preferences preferences;
    size_t files = 0, failed = 0;
    for (auto _ : state) {
        EditorModel model(executor, preferences);
        const auto tracks = model.open({folder});
        executor.runMainUntil([&] {
            for (const auto& t : tracks)
                if (std::holds_alternative<AudioTrack::Loading>(t->state())) return false;
            return true;
        });
        files = tracks.size();
        failed = 0;
        for (const auto& t : tracks)
            failed += !t->isReady();
    }
    state.counters["files"] = double(files);
    state.counters["failed"] = double(failed);
    state.counters["filesPerSecond"] =
        benchmark::Counter(double(files), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_OpenFolderThroughEditor)
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_DecodeFolderOneAfterAnother(benchmark::State& state) {
    fs::path folder;
    try {
        folder = benchFolder();
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
        return;
    }
    const auto files = EditorModel::audioFiles({folder});
    for (auto _ : state) {
        for (const auto& file : files) {
            auto audio = AudioLoader::load(file);
            benchmark::DoNotOptimize(audio.get());
        }
    }
    state.counters["files"] = double(files.size());
    state.counters["filesPerSecond"] =
        benchmark::Counter(double(files.size()), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_DecodeFolderOneAfterAnother)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
