#include "audio/AudioErrors.h"

#include "audio/AudioLoader.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sonvale {

AudioLoaderError::AudioLoaderError(Code code, std::string details)
    : UserError(description(code), std::move(details))
    , errorCode(code) {}

const char* AudioLoaderError::description(Code code) {
    switch (code) {
    case Code::empty: return "The file contains no audio.";
    case Code::outOfMemory: return "Not enough memory to decode the file.";
    }
    return "";
}

AudioFileError::AudioFileError(Kind kind, const std::filesystem::path& path, std::string details,
                               const std::string& argument)
    : FileError("Couldn't open", path.string(), description(kind, argument), std::move(details))
    , errorKind(kind) {}

std::string AudioFileError::description(Kind kind, const std::string& argument) {
    switch (kind) {
    case Kind::missing: return "The file doesn't exist.";
    case Kind::folder: return "This is a folder, not a file.";
    case Kind::notAFile: return "It isn't a file but a pipe or a device.";
    case Kind::emptyFile: return "The file is empty.";
    case Kind::notAudio: return "This is not an audio file.";
    case Kind::damagedHeader: return "The file's header is damaged.";
    case Kind::noSampleRate: return "The header says the sample rate is 0 Hz.";
    case Kind::unsupportedCodec: return "The codec (" + argument + ") is not supported.";
    case Kind::undecodable: return "The audio could not be decoded.";
    case Kind::damagedAfter: return "The file is damaged after " + argument + ".";
    case Kind::unreadable: return "The file could not be read (" + argument + ").";
    }
    return "";
}

AudioFileError AudioFileError::fromErrno(const std::filesystem::path& path, int errnum) {
    if (errnum == ENOENT || errnum == ENOTDIR) return {Kind::missing, path, std::strerror(errnum)};
    if (errnum == EISDIR) return {Kind::folder, path, std::strerror(errnum)};
    return unreadable(path, std::strerror(errnum));
}

AudioFileError AudioFileError::unreadable(const std::filesystem::path& path,
                                          const std::string& reason) {
    // "Permission denied" reads as part of the sentence: "(permission denied)".
    std::string inSentence = reason;
    if (inSentence.size() > 1 && std::isupper(static_cast<unsigned char>(inSentence[0])) &&
        !std::isupper(static_cast<unsigned char>(inSentence[1])))
        inSentence[0] = char(std::tolower(static_cast<unsigned char>(inSentence[0])));
    return {Kind::unreadable, path, reason, inSentence};
}

AudioFileError AudioFileError::damagedAfter(const std::filesystem::path& path, double seconds,
                                            const UserError& failure) {
    std::string details = failure.details().empty() ? failure.what() : failure.details();
    return {Kind::damagedAfter, path, std::move(details), durationString(seconds)};
}

namespace {
// printf's %g, as the message shows rates: 44.1, 48, 96.
std::string formatG(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}
} // namespace

EditError EditError::sampleRateMismatch(double copiedRate, double trackRate) {
    return EditError(Code::sampleRateMismatch, "The copied audio is " + formatG(copiedRate / 1000) +
                                                   " kHz but this track is " +
                                                   formatG(trackRate / 1000) + " kHz.");
}

EditError EditError::wouldRemoveEverything() {
    return EditError(Code::wouldRemoveEverything,
                     "A track can't be left empty. Remove it from the list instead.");
}

} // namespace sonvale
