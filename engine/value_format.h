// Texts shared by the blocks' DescribeValue. Floats print with three significant digits
// and no blank before the unit. GUI thread; allocate.
#pragma once

#include <string>

std::string FormatBipolar(float v);      // 2v - 1
std::string FormatSemitones(float v);    // 24v - 12
std::string FormatDecibels(float v);     // v is a linear amplitude; "-inf" below 0.001
std::string FormatPan(float v);          // "center", "N% left", "N% right"
std::string FormatHertz(float v);        // 2^(60v/12) * 0.4296875 * 0.5 "Hz"
std::string FormatEnvelopeTime(float v, float sampleRate);  // the envelopes' length curve, "ms"
std::string FormatPercent(float v);      // 100v "%"

// Length in samples of the envelope curve: 64 * (rate * 6 / 64)^(v^0.54), truncated.
// 64 samples at 0, six seconds at 1. Shared by the envelopes and the glide time.
int EnvelopeLengthSamples(float v, float sampleRate);

// Prints `value` with `digits` significant digits, as a stream with that precision does.
std::string FormatSignificant(double value, int digits);
