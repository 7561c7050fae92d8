#include "effects/EQBand.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

std::string_view title(EQBandType type) {
    switch (type) {
    case EQBandType::lowCut: return "Low Cut";
    case EQBandType::lowShelf: return "Low Shelf";
    case EQBandType::bell: return "Bell";
    case EQBandType::notch: return "Notch";
    case EQBandType::highShelf: return "High Shelf";
    case EQBandType::highCut: return "High Cut";
    }
    return "";
}

bool usesGain(EQBandType type) {
    return type == EQBandType::lowShelf || type == EQBandType::bell ||
           type == EQBandType::highShelf;
}

bool usesQ(EQBandType type) { return type != EQBandType::lowCut && type != EQBandType::highCut; }

EQBandType eqBandType(double storedValue) {
    double rounded = std::isnan(storedValue) ? 2 : std::round(storedValue);
    return EQBandType(int(std::clamp(rounded, 0.0, 5.0)));
}

Biquad EQBand::biquad(double sampleRate) const {
    double f = std::min(0.45 * sampleRate, std::max(frequency, 10.0));
    double w0 = 2 * std::numbers::pi * f / sampleRate;
    double s = std::sin(w0), c = std::cos(w0);
    double alpha;
    if (type == EQBandType::lowCut || type == EQBandType::highCut)
        alpha = s / std::numbers::sqrt2;
    else if (q <= 0.05)
        alpha = s / 0.1;
    else
        alpha = s / (2 * std::min(q, 20.0));
    double A = std::pow(10.0, gain / 40);
    double k = 2 * std::sqrt(A) * alpha;

    double b0, b1, b2, a0, a1, a2;
    switch (type) {
    case EQBandType::lowCut:
        b0 = (1 + c) / 2, b1 = -(1 + c), b2 = (1 + c) / 2;
        a0 = 1 + alpha, a1 = -2 * c, a2 = 1 - alpha;
        break;
    case EQBandType::lowShelf:
        b0 = A * ((A + 1) - (A - 1) * c + k);
        b1 = 2 * A * ((A - 1) - (A + 1) * c);
        b2 = A * ((A + 1) - (A - 1) * c - k);
        a0 = (A + 1) + (A - 1) * c + k;
        a1 = -2 * ((A - 1) + (A + 1) * c);
        a2 = (A + 1) + (A - 1) * c - k;
        break;
    case EQBandType::bell:
        b0 = 1 + alpha * A, b1 = -2 * c, b2 = 1 - alpha * A;
        a0 = 1 + alpha / A, a1 = -2 * c, a2 = 1 - alpha / A;
        break;
    case EQBandType::notch:
        b0 = 1, b1 = -2 * c, b2 = 1;
        a0 = 1 + alpha, a1 = -2 * c, a2 = 1 - alpha;
        break;
    case EQBandType::highShelf:
        b0 = A * ((A + 1) + (A - 1) * c + k);
        b1 = -2 * A * ((A - 1) + (A + 1) * c);
        b2 = A * ((A + 1) + (A - 1) * c - k);
        a0 = (A + 1) - (A - 1) * c + k;
        a1 = 2 * ((A - 1) - (A + 1) * c);
        a2 = (A + 1) - (A - 1) * c - k;
        break;
    case EQBandType::highCut:
    default:
        b0 = (1 - c) / 2, b1 = 1 - c, b2 = (1 - c) / 2;
        a0 = 1 + alpha, a1 = -2 * c, a2 = 1 - alpha;
        break;
    }
    return {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
}

} // namespace sonvale
