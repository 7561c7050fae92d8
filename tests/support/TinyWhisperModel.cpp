#include "support/TinyWhisperModel.h"

#include <cstdint>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace sonvale::test {

namespace {

class ModelWriter {
public:
    ModelWriter(const std::filesystem::path& file, unsigned seed)
        : out(file, std::ios::binary)
        , random(seed) {}

    template <typename T> void put(T value) {
        out.write(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void put(const std::string& text) {
        put(uint32_t(text.size()));
        out.write(text.data(), std::streamsize(text.size()));
    }

    // A float tensor with ggml's dimensions (fastest first): layer-norm gains are 1, biases
    // 0, everything else small random numbers.
    void tensor(const std::string& name, std::vector<int32_t> dims) {
        put(int32_t(dims.size()));
        put(int32_t(name.size()));
        put(int32_t(0)); // float32
        int64_t count = 1;
        for (int32_t d : dims) {
            put(d);
            count *= d;
        }
        out.write(name.data(), std::streamsize(name.size()));
        const bool bias = name.ends_with(".bias");
        const bool gain = name.ends_with("ln.weight") || name.ends_with("ln_post.weight") ||
                          name.ends_with("_ln.weight");
        std::normal_distribution<float> weight(0.0f, 0.05f);
        for (int64_t i = 0; i < count; ++i)
            put(bias ? 0.0f : gain ? 1.0f : weight(random));
    }

    std::ofstream out;
    std::mt19937 random;
};

} // namespace

void writeTinyWhisperModel(const std::filesystem::path& file, bool multilingual, unsigned seed) {
    constexpr int32_t audioContext = 1500, textContext = 448, width = 64, heads = 2, mels = 80;
    const int32_t vocabulary = multilingual ? 51865 : 51864;
    ModelWriter w(file, seed);
    w.put(uint32_t(0x67676d6c));
    for (int32_t value : {vocabulary, audioContext, width, heads, 1, textContext, width, heads, 1,
                          mels, 0 /* float32 */})
        w.put(value);

    constexpr int32_t fftBins = 201;
    w.put(mels);
    w.put(fftBins);
    std::uniform_real_distribution<float> filter(0.0f, 0.01f);
    for (int i = 0; i < mels * fftBins; ++i)
        w.put(filter(w.random));

    // The text tokens; whisper names its special tokens itself. The blank " " must exist.
    const int32_t words = multilingual ? 50257 : 50256;
    w.put(words);
    w.put(std::string(" "));
    for (int32_t i = 1; i < words; ++i)
        w.put(" w" + std::to_string(i));

    const int32_t S = width;
    auto block = [&](const std::string& prefix) {
        for (const char* ln : {"mlp_ln", "attn_ln"}) {
            w.tensor(prefix + ln + ".weight", {S});
            w.tensor(prefix + ln + ".bias", {S});
        }
        w.tensor(prefix + "mlp.0.weight", {S, 4 * S});
        w.tensor(prefix + "mlp.0.bias", {4 * S});
        w.tensor(prefix + "mlp.2.weight", {4 * S, S});
        w.tensor(prefix + "mlp.2.bias", {S});
    };
    auto attention = [&](const std::string& prefix) {
        for (const char* part : {"query", "key", "value", "out"}) {
            w.tensor(prefix + part + ".weight", {S, S});
            if (std::string(part) != "key") w.tensor(prefix + part + ".bias", {S});
        }
    };
    w.tensor("encoder.positional_embedding", {S, audioContext});
    w.tensor("encoder.conv1.weight", {3, mels, S});
    w.tensor("encoder.conv1.bias", {1, S});
    w.tensor("encoder.conv2.weight", {3, S, S});
    w.tensor("encoder.conv2.bias", {1, S});
    w.tensor("encoder.ln_post.weight", {S});
    w.tensor("encoder.ln_post.bias", {S});
    block("encoder.blocks.0.");
    attention("encoder.blocks.0.attn.");
    w.tensor("decoder.positional_embedding", {S, textContext});
    w.tensor("decoder.token_embedding.weight", {S, vocabulary});
    w.tensor("decoder.ln.weight", {S});
    w.tensor("decoder.ln.bias", {S});
    block("decoder.blocks.0.");
    attention("decoder.blocks.0.attn.");
    w.tensor("decoder.blocks.0.cross_attn_ln.weight", {S});
    w.tensor("decoder.blocks.0.cross_attn_ln.bias", {S});
    attention("decoder.blocks.0.cross_attn.");
}

} // namespace sonvale::test
