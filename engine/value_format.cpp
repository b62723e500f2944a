// The value-format helpers.
#include "engine/value_format.h"

#include <climits>
#include <cmath>
#include <sstream>

std::string FormatSignificant(double value, int digits) {
    std::ostringstream out;
    out.precision(digits);
    out << value;
    return out.str();
}

namespace {
std::string Three(double value) { return FormatSignificant(value, 3); }
}  // namespace

std::string FormatBipolar(float v) { return Three(2.0f * v - 1.0f); }

std::string FormatSemitones(float v) { return Three(24.0f * v - 12.0f); }

std::string FormatDecibels(float v) {
    if (double(v) < 0.001) return "-inf";
    return Three(20.0 * std::log10(double(v))) + "dB";
}

std::string FormatPan(float v) {
    if (std::fabs(v - 0.5f) < 0.01f) return "center";
    if (v < 0.5f) return Three((0.5f - v) * 200.0f) + "% left";
    return Three((v - 0.5f) * 200.0f) + "% right";
}

std::string FormatHertz(float v) { return Three(std::pow(2.0, 60.0 * v / 12.0) * 0.4296875 * 0.5) + "Hz"; }

int EnvelopeLengthSamples(float v, float sampleRate) {
    // All in float, the exponent a float literal: lengths must match the envelopes' own
    // to the sample.
    float e = std::pow(v, 0.54f);
    float b = sampleRate * 6.0f * (1.0f / 64.0f);
    float samples = 64.0f * std::pow(b, e);
    // A negative v (a modulated sum) has no defined length; it gets what the processor's
    // conversion gives for NaN rather than undefined behaviour.
    if (!(samples >= -2147483648.0f && samples < 2147483648.0f)) return INT_MIN;
    return int(samples);
}

std::string FormatEnvelopeTime(float v, float sampleRate) {
    int ms = int(EnvelopeLengthSamples(v, sampleRate) * 1000.0 / sampleRate);
    return std::to_string(ms) + "ms";
}

std::string FormatPercent(float v) { return Three(100.0f * v) + "%"; }
