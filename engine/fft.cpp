// The 2048-point transform: one FFTW plan per direction, made once and shared.
#include "engine/fft.h"

#include <fftw3.h>

#include <cmath>

namespace engine {

namespace {

struct Plans {
    fftw_plan forward = nullptr;
    fftw_plan inverse = nullptr;
};

// Plans live for the whole process: destroying them at exit would race with any other
// static destructor still transforming, and the OS reclaims them anyway.
const Plans& SharedPlans() {
    static const Plans plans = [] {
        std::lock_guard<std::mutex> lock(FftwPlannerMutex());
        // The planner needs arrays to look at. FFTW_ESTIMATE leaves them untouched, and
        // FFTW_UNALIGNED lets the plans run on callers' arrays of any alignment.
        fftw_complex* scratch = fftw_alloc_complex(kFftLength);
        const unsigned flags = FFTW_ESTIMATE | FFTW_UNALIGNED;
        Plans made;
        made.forward = fftw_plan_dft_1d(kFftLength, scratch, scratch, FFTW_FORWARD, flags);
        made.inverse = fftw_plan_dft_1d(kFftLength, scratch, scratch, FFTW_BACKWARD, flags);
        fftw_free(scratch);
        return made;
    }();
    return plans;
}

fftw_complex* AsFftw(FftComplex* data) { return reinterpret_cast<fftw_complex*>(data); }

}  // namespace

std::mutex& FftwPlannerMutex() {
    static std::mutex mutex;
    return mutex;
}

void FftForward(FftComplex* data) {
    // Executing an existing plan on new arrays is thread-safe in FFTW; only planning is not.
    fftw_execute_dft(SharedPlans().forward, AsFftw(data), AsFftw(data));
}

void FftInverse(FftComplex* data) {
    fftw_execute_dft(SharedPlans().inverse, AsFftw(data), AsFftw(data));
    // FFTW's backward transform is unnormalised.
    constexpr double kScale = 1.0 / kFftLength;
    for (int k = 0; k < kFftLength; ++k) data[k] *= kScale;
}

std::vector<double> RealMagnitudes(const std::vector<double>& signal) {
    const int n = int(signal.size());
    if (n <= 0) return {};
    std::vector<double> input(signal);
    std::vector<fftw_complex> spectrum(size_t(n / 2 + 1));
    fftw_plan plan;
    {
        // Plans are cheap with FFTW_ESTIMATE; made per call, under the planner's lock.
        std::lock_guard<std::mutex> lock(FftwPlannerMutex());
        plan = fftw_plan_dft_r2c_1d(n, input.data(), spectrum.data(), FFTW_ESTIMATE);
    }
    fftw_execute(plan);
    {
        std::lock_guard<std::mutex> lock(FftwPlannerMutex());
        fftw_destroy_plan(plan);
    }
    std::vector<double> magnitudes(spectrum.size());
    for (size_t k = 0; k < spectrum.size(); ++k) magnitudes[k] = std::hypot(spectrum[k][0], spectrum[k][1]);
    return magnitudes;
}

}  // namespace engine
