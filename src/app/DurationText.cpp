#include "app/DurationText.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace sonvale {

QString durationText(double seconds) {
    seconds = std::max(0.0, seconds);
    const int64_t tenths = int64_t(std::floor(seconds * 10));
    const int64_t total = tenths / 10;
    const int h = int(total / 3600), m = int(total / 60 % 60), s = int(total % 60);
    if (h > 0) return QString::asprintf("%d:%02d:%02d.%d", h, m, s, int(tenths % 10));
    return QString::asprintf("%d:%02d.%d", m, s, int(tenths % 10));
}

} // namespace sonvale
