#include "transcription/WhisperRecognizer.h"

#include "base/Errors.h"
#include "transcription/EngineLog.h"
#include "transcription/Transcriber.h"

#include <whisper.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

namespace sonvale {

namespace {

constexpr uint32_t ggmlMagic = 0x67676d6c;
constexpr int32_t multilingualVocabulary = 51865;
constexpr double centiseconds = 100; // whisper's unit of segment time

UserError loadFailure(const fs::path& file) {
    return UserError("The speech model file “" + file.filename().string() +
                         "” couldn't be loaded. It may be damaged or of a kind this version "
                         "can't run.",
                     takeEngineError());
}

// Walks the file's sections the way whisper's loader reads them, without allocating what they
// describe: the header's sizes must be sane and every tensor whole. whisper.cpp gives back
// little of what it allocated when a load fails, so a damaged file (most often one cut short
// by an interrupted download) is turned away here first.
bool isWholeModel(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    auto read = [&](auto& value) {
        return bool(in.read(reinterpret_cast<char*>(&value), sizeof value));
    };
    auto skip = [&](int64_t bytes) {
        return bytes >= 0 && bool(in.seekg(bytes, std::ios::cur)) && in.peek() != EOF;
    };
    uint32_t magic = 0;
    int32_t h[11] = {}; // vocabulary, audio context/width/heads/layers, text ditto, mels, type
    if (!read(magic) || magic != ggmlMagic) return false;
    for (int32_t& value : h)
        if (!read(value) || value < 0 || value > 1'000'000) return false;
    const int32_t audioLayers = h[4], textLayers = h[8];
    int32_t mels = 0, fftBins = 0, words = 0;
    if (!read(mels) || !read(fftBins) || mels <= 0 || mels > 1024 || fftBins <= 0 ||
        fftBins > 8192 || !skip(int64_t(mels) * fftBins * 4) || !read(words) || words < 0 ||
        words > 1'000'000)
        return false;
    for (int32_t i = 0; i < words; ++i) {
        uint32_t length = 0;
        if (!read(length) || length > 1024 || !skip(length)) return false;
    }
    int64_t tensors = 0;
    for (int32_t dims = 0; read(dims); ++tensors) {
        int32_t nameLength = 0, type = 0;
        if (!read(nameLength) || !read(type) || dims < 1 || dims > 4 || nameLength <= 0 ||
            nameLength > 256 || type < 0 || type >= GGML_TYPE_COUNT ||
            ggml_blck_size(ggml_type(type)) <= 0)
            return false;
        int64_t elements = 1;
        for (int32_t d = 0; d < dims; ++d) {
            int32_t size = 0;
            if (!read(size) || size <= 0) return false;
            elements *= size;
        }
        const auto bytes =
            elements * int64_t(ggml_type_size(ggml_type(type))) / ggml_blck_size(ggml_type(type));
        if (!skip(nameLength) || !in.seekg(bytes - 1, std::ios::cur) || in.get() == EOF)
            return false;
    }
    // Encoder 7 + 15 a layer, decoder 4 + 24 a layer, as whisper's loader expects.
    return tensors == 11 + 15 * int64_t(audioLayers) + 24 * int64_t(textLayers);
}

whisper_context* load(const fs::path& file) {
    if (!isWholeModel(file)) throw loadFailure(file);
    startEngines();
    auto params = whisper_context_default_params();
    params.use_gpu = false;
    whisper_context* context = whisper_init_from_file_with_params(file.c_str(), params);
    if (!context) throw loadFailure(file);
    return context;
}

std::string trimmed(const char* text) {
    std::string result = text ? text : "";
    const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
    result.erase(result.begin(), std::find_if_not(result.begin(), result.end(), isSpace));
    result.erase(std::find_if_not(result.rbegin(), result.rend(), isSpace).base(), result.end());
    return result;
}

struct StateDeleter {
    void operator()(whisper_state* state) const { whisper_free_state(state); }
};

class WhisperRun final : public RecognizerRun {
public:
    WhisperRun(whisper_context* context, std::string language, int threads, double blockSeconds,
               const std::atomic<bool>* cancelled)
        : context(context)
        , state(whisper_init_state(context))
        , language(std::move(language))
        , threads(threads)
        , blockSamples(size_t(blockSeconds * rate))
        , cancelled(cancelled) {
        if (!state) throw UserError("The speech recogniser couldn't start (not enough memory?).");
        pending.reserve(blockSamples);
    }

    void feed(std::span<const float> samples, double start,
              std::vector<RecognizerResult>& results) override {
        if (pending.empty()) pendingStart = start;
        for (size_t at = 0; at < samples.size();) {
            const size_t n = std::min(samples.size() - at, blockSamples - pending.size());
            pending.insert(pending.end(), samples.begin() + long(at),
                           samples.begin() + long(at + n));
            at += n;
            if (pending.size() == blockSamples) decode(false, results);
        }
    }

    void finish(std::vector<RecognizerResult>& results) override {
        while (!pending.empty())
            decode(true, results);
    }

private:
    static constexpr double rate = 16000;

    static bool shouldAbort(void* data) {
        const auto* flag = static_cast<const std::atomic<bool>*>(data);
        return flag && flag->load(std::memory_order_relaxed);
    }

    // Runs the engine over the pending block. Unless it is the last, a phrase that starts in
    // the block's second half is left for the next block, which begins with it, so a phrase
    // is never cut at a block's edge.
    void decode(bool last, std::vector<RecognizerResult>& results) {
        auto params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
        params.n_threads = threads;
        params.language = language.c_str();
        params.print_progress = params.print_realtime = params.print_timestamps = false;
        params.print_special = false;
        params.abort_callback = shouldAbort;
        params.abort_callback_user_data = const_cast<std::atomic<bool>*>(cancelled);
        const int status = whisper_full_with_state(context, state.get(), params, pending.data(),
                                                   int(pending.size()));
        if (shouldAbort(params.abort_callback_user_data)) throw TranscriptionCancelled();
        if (status != 0)
            throw UserError("The speech recogniser stopped with an error.", takeEngineError());

        const int count = whisper_full_n_segments_from_state(state.get());
        const double length = double(pending.size()) / rate;
        auto segmentTime = [&](int64_t t) { return double(t) / centiseconds; };
        int kept = count;
        double carriedFrom = length;
        if (!last && count >= 2) {
            const double lastStart =
                segmentTime(whisper_full_get_segment_t0_from_state(state.get(), count - 1));
            if (lastStart >= length / 2 && lastStart < length) {
                kept = count - 1;
                carriedFrom = lastStart;
            }
        }
        // The engine's times, held inside the block and in order.
        double previousEnd = 0;
        for (int i = 0; i < kept; ++i) {
            std::string text = trimmed(whisper_full_get_segment_text_from_state(state.get(), i));
            if (text.empty()) continue;
            const double start =
                std::clamp(segmentTime(whisper_full_get_segment_t0_from_state(state.get(), i)),
                           previousEnd, length);
            const double end = std::clamp(
                segmentTime(whisper_full_get_segment_t1_from_state(state.get(), i)), start, length);
            previousEnd = end;
            results.push_back({std::move(text), pendingStart + start, pendingStart + end, {}});
        }
        const size_t consumed =
            kept == count ? pending.size() : size_t(std::max(carriedFrom, previousEnd) * rate);
        pending.erase(pending.begin(), pending.begin() + long(consumed));
        pendingStart += double(consumed) / rate;
    }

    whisper_context* context;
    std::unique_ptr<whisper_state, StateDeleter> state;
    std::string language;
    int threads;
    size_t blockSamples;
    const std::atomic<bool>* cancelled;
    std::vector<float> pending;
    double pendingStart = 0;
};

} // namespace

WhisperRecognizer::WhisperRecognizer(fs::path file, int threads, double blockSeconds)
    : path(std::move(file))
    , threadCount(threads > 0 ? threads
                              : int(std::clamp(std::thread::hardware_concurrency(), 1u, 4u)))
    , block(blockSeconds) {
    std::ifstream in(path, std::ios::binary);
    uint32_t magic = 0;
    int32_t vocabulary = 0;
    if (!in.read(reinterpret_cast<char*>(&magic), sizeof magic) || magic != ggmlMagic ||
        !in.read(reinterpret_cast<char*>(&vocabulary), sizeof vocabulary))
        throw loadFailure(path);
    multilingual = vocabulary >= multilingualVocabulary;
}

WhisperRecognizer::~WhisperRecognizer() {
    if (loaded) whisper_free(loaded);
}

void WhisperRecognizer::checkLoads(const fs::path& file) { whisper_free(load(file)); }

std::vector<std::string> WhisperRecognizer::supportedLocales() const {
    if (!multilingual) return {"en"};
    std::vector<std::string> codes;
    for (int id = 0; id <= whisper_lang_max_id(); ++id)
        codes.emplace_back(whisper_lang_str(id));
    return codes;
}

whisper_context* WhisperRecognizer::context() const {
    std::lock_guard lock(loading);
    if (!loaded) loaded = load(path);
    return loaded;
}

std::unique_ptr<RecognizerRun> WhisperRecognizer::start(const std::string& locale,
                                                        const std::atomic<bool>* cancelled) const {
    const std::string code = locale.substr(0, locale.find_first_of("-_"));
    return std::make_unique<WhisperRun>(context(), code, threadCount, block, cancelled);
}

std::string whisperLanguageName(const std::string& code) {
    // Looked up by hand: whisper_lang_id reports an unknown code as an engine error.
    for (int id = 0; id <= whisper_lang_max_id(); ++id) {
        if (code != whisper_lang_str(id)) continue;
        std::string name = whisper_lang_str_full(id);
        if (!name.empty()) name.front() = char(std::toupper((unsigned char)name.front()));
        return name;
    }
    return {};
}

} // namespace sonvale
