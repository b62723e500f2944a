// Sine and cosine over a 20-bit angle from two 1024-entry tables: the upper 10 bits pick
// a coarse step (2 pi / 1024), the lower 10 bits a fine one (2 pi / 2^20), and
// sin(a + b), cos(a + b) are put together from the two pairs. Both tables are filled in
// double precision at load time, so the result is good to single precision.
#include "blocks/pan_law.h"

#include <cmath>
#include <numbers>

namespace {

constexpr int kTableBits = 10;
constexpr int kTableSize = 1 << kTableBits;
constexpr int kAngleMask = (1 << (2 * kTableBits)) - 1;
// 2^20 / (2 pi): radians to steps of the 20-bit angle.
constexpr double kStepsPerRadian = 166886.05360752725;

struct SinCos {
    float s;
    float c;
};

struct SinCosTables {
    SinCos coarse[kTableSize];
    SinCos fine[kTableSize];

    SinCosTables() {
        const double turn = 2.0 * std::numbers::pi;
        for (int i = 0; i < kTableSize; ++i) {
            double a = turn * i / kTableSize;
            double b = turn * i / (double(kTableSize) * kTableSize);
            coarse[i] = {float(std::sin(a)), float(std::cos(a))};
            fine[i] = {float(std::sin(b)), float(std::cos(b))};
        }
    }
};

// Filled during static initialisation, before any engine exists, so the audio path
// never meets a first-use guard.
const SinCosTables kTables;

}  // namespace

PanGains PanGainsForAngle(float theta) {
    long steps = std::lround(double(theta) * kStepsPerRadian) & kAngleMask;
    const SinCos& a = kTables.coarse[steps >> kTableBits];
    const SinCos& b = kTables.fine[steps & (kTableSize - 1)];
    float s = a.s * b.c + a.c * b.s;
    float c = a.c * b.c - a.s * b.s;
    return {c * c, s * s};
}
