#include "audio/AudioExporter.h"

#include "base/Errors.h"

namespace sonvale {

void AudioExporter::exportAudio(const AudioData&, FrameRange, float, ExportFormat,
                                const std::filesystem::path& url, const Progress&) {
    throw FileError("export is not built yet: " + url.string());
}

void AudioExporter::writeLossless(const AudioClip&, const std::filesystem::path& url) {
    throw FileError("export is not built yet: " + url.string());
}

} // namespace sonvale
