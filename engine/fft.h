// A 2048-point complex transform over FFTW, for building wave tables at construction.
// Forward is unscaled; inverse divides by the length, so forward then inverse is the
// identity. Not for the audio thread: the first call of each direction plans.
#pragma once

#include <complex>
#include <mutex>
#include <vector>

namespace engine {

constexpr int kFftLength = 2048;
using FftComplex = std::complex<double>;

// In place over kFftLength values: X[k] = sum x[n] e^(-2 pi i k n / N). Thread-safe.
void FftForward(FftComplex* data);
// In place: x[n] = (1/N) sum X[k] e^(+2 pi i k n / N). Thread-safe.
void FftInverse(FftComplex* data);

// Magnitudes |X[k]| of the first n/2 + 1 bins of a real signal of any length n > 0,
// unscaled. For displays, on the GUI thread: allocates and makes a plan per call.
std::vector<double> RealMagnitudes(const std::vector<double>& signal);

// FFTW's planner is process-global and not thread-safe; whoever else makes an FFTW plan
// in this process holds this mutex while doing it.
std::mutex& FftwPlannerMutex();

}  // namespace engine
