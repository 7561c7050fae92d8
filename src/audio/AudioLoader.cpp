#include "audio/AudioLoader.h"

#include "audio/AudioErrors.h"

namespace sonvale {

AudioDataPtr AudioLoader::load(const std::filesystem::path& path, const Progress&) {
    throw FileError("decoding is not built yet: " + path.string());
}

AudioLoader::FileInfo AudioLoader::probe(const std::filesystem::path& path) {
    throw FileError("probing is not built yet: " + path.string());
}

const std::vector<std::string>& AudioLoader::audioExtensions() {
    static const std::vector<std::string> extensions{"wav", "aif", "aiff", "flac", "mp3", "m4a",
                                                     "aac", "ogg", "oga", "opus", "caf"};
    return extensions;
}

bool AudioLoader::isAudioFile(const std::filesystem::path&) { return false; }

} // namespace sonvale
