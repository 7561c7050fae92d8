#pragma once

#include <filesystem>

namespace sonvale::test {

// Writes a llama-architecture GGUF model with random weights and a real vocabulary (the
// SentencePiece one from llama.cpp's test files): tiny, fast, and talking nonsense, which is
// what a grammar has to hold to a form.
void writeTinyLanguageModel(const std::filesystem::path& file, unsigned seed = 1);

} // namespace sonvale::test
