#pragma once

#include <QString>

#include <string>

namespace sonvale {

// The editor's UTF-8 text as Qt shows it.
inline QString qs(const std::string& text) { return QString::fromStdString(text); }

} // namespace sonvale
