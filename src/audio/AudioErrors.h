#pragma once

#include "base/Errors.h"

#include <filesystem>

namespace sonvale {

// Why audio could not be decoded or built. `details` says what the file holds instead
// ("The header says the file has 0 channels.").
class AudioLoaderError : public UserError {
public:
    enum class Code { empty, outOfMemory };
    explicit AudioLoaderError(Code code, std::string details = {});
    static AudioLoaderError empty(std::string details = {}) {
        return AudioLoaderError(Code::empty, std::move(details));
    }
    static AudioLoaderError outOfMemory() { return AudioLoaderError(Code::outOfMemory); }
    Code code() const { return errorCode; }
    static const char* description(Code code);

private:
    Code errorCode;
};

// Why a file could not be opened or decoded as audio, in plain words, with the decoding
// library's or the system's own line as details(). what() is "Couldn't open “name”: "
// and the plain words.
class AudioFileError : public FileError {
public:
    enum class Kind {
        missing,          // nothing at the path
        folder,           // a folder, not a file
        notAFile,         // a pipe or a device
        emptyFile,        // 0 bytes
        notAudio,         // no decoder recognises it
        damagedHeader,    // recognised, but its header is cut short or broken
        noSampleRate,     // the header gives a rate of 0 Hz
        unsupportedCodec, // the audio is in a codec there is no decoder for
        undecodable,      // nothing in it decodes
        damagedAfter,     // decoding broke off after some audio
        unreadable,       // the system refused or failed to read it
    };
    // `argument`: the codec's name (unsupportedCodec), the time decoding broke off in
    // seconds (damagedAfter, as text from durationString) or the system's reason
    // (unreadable).
    AudioFileError(Kind kind, const std::filesystem::path& path, std::string details,
                   const std::string& argument = {});
    // From errno after opening or reading failed: missing, folder or unreadable.
    static AudioFileError fromErrno(const std::filesystem::path& path, int errnum);
    // unreadable, for the system's `reason` ("Permission denied").
    static AudioFileError unreadable(const std::filesystem::path& path, const std::string& reason);
    // A read that failed after `seconds` of audio decoded: damagedAfter, keeping the
    // details of `failure` (its whole text when it has none).
    static AudioFileError damagedAfter(const std::filesystem::path& path, double seconds,
                                       const UserError& failure);
    Kind kind() const { return errorKind; }
    static std::string description(Kind kind, const std::string& argument = {});

private:
    Kind errorKind;
};

// Why an edit of a track's audio was refused.
class EditError : public UserError {
public:
    enum class Code { sampleRateMismatch, wouldRemoveEverything };
    static EditError sampleRateMismatch(double copiedRate, double trackRate);
    static EditError wouldRemoveEverything();
    Code code() const { return errorCode; }

private:
    EditError(Code code, const std::string& message)
        : UserError(message)
        , errorCode(code) {}
    Code errorCode;
};

} // namespace sonvale
