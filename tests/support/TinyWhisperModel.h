#pragma once

#include <filesystem>

namespace sonvale::test {

// Writes a whisper model file with random weights, one layer each side and 64 wide: small
// and quick, loading and running like a real model while hearing nothing in particular.
// `multilingual` gives the vocabulary size that makes whisper offer all its languages.
void writeTinyWhisperModel(const std::filesystem::path& file, bool multilingual = true,
                           unsigned seed = 1);

} // namespace sonvale::test
