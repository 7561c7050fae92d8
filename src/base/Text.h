#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace sonvale {

// ASCII letters made lower case; other bytes (UTF-8 included) stay as they are.
inline std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

} // namespace sonvale
