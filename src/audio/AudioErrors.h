#pragma once

#include "base/Errors.h"

namespace sonvale {

// Why audio could not be decoded or built.
class AudioLoaderError : public UserError {
public:
    enum class Code { empty, outOfMemory };
    explicit AudioLoaderError(Code code);
    static AudioLoaderError empty() { return AudioLoaderError(Code::empty); }
    static AudioLoaderError outOfMemory() { return AudioLoaderError(Code::outOfMemory); }
    Code code() const { return errorCode; }
    static const char* description(Code code);

private:
    Code errorCode;
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
