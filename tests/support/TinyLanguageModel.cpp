#include "support/TinyLanguageModel.h"

#include <ggml.h>
#include <gguf.h>

#include <random>
#include <stdexcept>
#include <string>

namespace sonvale::test {

void writeTinyLanguageModel(const std::filesystem::path& file, unsigned seed) {
    const std::string vocabFile = SONVALE_ENGINES_DIR "/share/sonvale/ggml-vocab-llama-spm.gguf";
    gguf_context* vocab = gguf_init_from_file(vocabFile.c_str(), {true, nullptr});
    if (!vocab) throw std::runtime_error("missing " + vocabFile);
    const int64_t tokens = gguf_get_arr_n(vocab, gguf_find_key(vocab, "tokenizer.ggml.tokens"));

    constexpr int64_t width = 64, hidden = 128, layers = 2, heads = 4;
    gguf_context* model = gguf_init_empty();
    gguf_set_kv(model, vocab);
    gguf_free(vocab);
    gguf_set_val_str(model, "general.architecture", "llama");
    gguf_set_val_str(model, "general.name", "tiny random test model");
    gguf_set_val_u32(model, "llama.context_length", 4096);
    gguf_set_val_u32(model, "llama.embedding_length", width);
    gguf_set_val_u32(model, "llama.feed_forward_length", hidden);
    gguf_set_val_u32(model, "llama.block_count", layers);
    gguf_set_val_u32(model, "llama.attention.head_count", heads);
    gguf_set_val_u32(model, "llama.attention.head_count_kv", heads);
    gguf_set_val_u32(model, "llama.rope.dimension_count", width / heads);
    gguf_set_val_f32(model, "llama.attention.layer_norm_rms_epsilon", 1e-5f);

    const size_t bytes =
        size_t(2 * width * tokens + layers * (4 * width * width + 3 * width * hidden + 2 * width) +
               width) *
            sizeof(float) +
        64 * ggml_tensor_overhead();
    ggml_context* tensors = ggml_init({bytes, nullptr, false});
    std::mt19937 random(seed);
    std::normal_distribution<float> weight(0.0f, 0.05f);
    auto add = [&](const std::string& name, int64_t inputs, int64_t outputs) {
        ggml_tensor* t = outputs == 1 ? ggml_new_tensor_1d(tensors, GGML_TYPE_F32, inputs)
                                      : ggml_new_tensor_2d(tensors, GGML_TYPE_F32, inputs, outputs);
        ggml_set_name(t, name.c_str());
        auto* data = static_cast<float*>(t->data);
        for (int64_t i = 0; i < ggml_nelements(t); ++i)
            data[i] = outputs == 1 ? 1.0f : weight(random); // norms scale by one
        gguf_add_tensor(model, t);
    };
    add("token_embd.weight", width, tokens);
    for (int64_t layer = 0; layer < layers; ++layer) {
        const std::string block = "blk." + std::to_string(layer) + ".";
        add(block + "attn_norm.weight", width, 1);
        for (const char* part : {"attn_q", "attn_k", "attn_v", "attn_output"})
            add(block + part + ".weight", width, width);
        add(block + "ffn_norm.weight", width, 1);
        add(block + "ffn_gate.weight", width, hidden);
        add(block + "ffn_up.weight", width, hidden);
        add(block + "ffn_down.weight", hidden, width);
    }
    add("output_norm.weight", width, 1);
    add("output.weight", width, tokens);
    const bool written = gguf_write_to_file(model, file.c_str(), false);
    gguf_free(model);
    ggml_free(tensors);
    if (!written) throw std::runtime_error("couldn't write " + file.string());
}

} // namespace sonvale::test
