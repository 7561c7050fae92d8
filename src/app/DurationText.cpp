#include "app/DurationText.h"

#include "audio/AudioLoader.h"

namespace sonvale {

QString durationText(double seconds) { return QString::fromStdString(durationString(seconds)); }

} // namespace sonvale
