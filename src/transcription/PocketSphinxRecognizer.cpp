#include "transcription/PocketSphinxRecognizer.h"

#include "base/Errors.h"

#include <pocketsphinx.h>

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {

constexpr double framesPerSecond = 100; // the model's feature frames

class PocketSphinxRun final : public RecognizerRun {
public:
    explicit PocketSphinxRun(const std::filesystem::path& folder) {
        const std::string hmm = (folder / "en-us").string();
        const std::string lm = (folder / "en-us.lm.bin").string();
        const std::string dict = (folder / "cmudict-en-us.dict").string();
        // One pass of the forward search with tighter beams and every other frame scored
        // fully: about twice as fast as the default passes, and as accurate on read speech.
        cmd_ln_t* config =
            cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-lm", lm.c_str(), "-dict",
                        dict.c_str(), "-logfn", "/dev/null", "-fwdflat", "no", "-bestpath", "no",
                        "-ds", "2", "-maxhmmpf", "3000", "-maxwpf", "5", nullptr);
        if (config) decoder = ps_init(config);
        cmd_ln_free_r(config);
        if (!decoder || ps_start_utt(decoder) < 0)
            throw UserError("The speech model in “" + folder.string() + "” couldn't be loaded.");
        samples.reserve(16000 * 2);
    }
    ~PocketSphinxRun() override {
        if (decoder) ps_free(decoder);
    }

    // The decoder counts its own frames from the first sample, so the buffers' stamps are
    // not needed.
    void feed(std::span<const float> input, double,
              std::vector<RecognizerResult>& results) override {
        samples.resize(input.size());
        std::transform(input.begin(), input.end(), samples.begin(), [](float x) {
            return int16(std::lrint(std::clamp(x, -1.0f, 1.0f) * 32767.0f));
        });
        // Fed in steps of a tenth of a second so that each pause is seen where it happens.
        constexpr size_t step = 1600;
        for (size_t at = 0; at < samples.size(); at += step) {
            const size_t n = std::min(step, samples.size() - at);
            if (ps_process_raw(decoder, samples.data() + at, n, FALSE, FALSE) < 0)
                throw UserError("The speech recogniser stopped with an error.");
            fed += n;
            const bool speaking = ps_get_in_speech(decoder);
            if (speaking && !inSpeech) utteranceStart = double(fed) / 16000;
            const bool tooLong = speaking && double(fed) / 16000 - utteranceStart > longest;
            if ((inSpeech && !speaking) || tooLong) {
                endUtterance(results);
                ps_start_utt(decoder);
                inSpeech = false;
                if (tooLong) utteranceStart = double(fed) / 16000;
                continue;
            }
            inSpeech = speaking;
        }
    }

    void finish(std::vector<RecognizerResult>& results) override { endUtterance(results); }

private:
    void endUtterance(std::vector<RecognizerResult>& results) {
        if (ps_end_utt(decoder) < 0) return;
        RecognizerResult result;
        for (ps_seg_t* seg = ps_seg_iter(decoder); seg; seg = ps_seg_next(seg)) {
            const std::string word = spokenWord(ps_seg_word(seg));
            if (word.empty()) continue;
            int first = 0, last = 0;
            ps_seg_frames(seg, &first, &last);
            const double start = first / framesPerSecond;
            const double end = (last + 1) / framesPerSecond;
            if (result.words.empty()) result.start = start;
            result.end = end;
            result.text += (result.text.empty() ? "" : " ") + word;
            result.words.push_back({" " + word, start, end});
        }
        if (!result.words.empty()) results.push_back(std::move(result));
    }

    static constexpr double longest = PocketSphinxRecognizer::longestUtterance;
    ps_decoder_t* decoder = nullptr;
    std::vector<int16> samples;
    int64_t fed = 0;
    bool inSpeech = false;
    double utteranceStart = 0;
};

} // namespace

std::filesystem::path PocketSphinxRecognizer::defaultModelFolder() {
    return "/usr/share/pocketsphinx/model/en-us";
}

bool PocketSphinxRecognizer::isInstalled(const std::filesystem::path& folder) {
    std::error_code error;
    return std::filesystem::is_directory(folder / "en-us", error) &&
           std::filesystem::is_regular_file(folder / "en-us.lm.bin", error) &&
           std::filesystem::is_regular_file(folder / "cmudict-en-us.dict", error);
}

PocketSphinxRecognizer::PocketSphinxRecognizer(std::filesystem::path modelFolder)
    : folder(std::move(modelFolder)) {}

std::unique_ptr<RecognizerRun> PocketSphinxRecognizer::start(const std::string&,
                                                             const std::atomic<bool>*) const {
    return std::make_unique<PocketSphinxRun>(folder);
}

std::string spokenWord(const std::string& token) {
    if (token.empty() || token.front() == '<' || token.front() == '[' || token.front() == '+')
        return {};
    std::string word = token;
    if (const auto mark = word.find('('); mark != std::string::npos && word.back() == ')')
        word.resize(mark);
    return word;
}

} // namespace sonvale
