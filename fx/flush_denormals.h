// Denormal floats cost a hundred times a normal one on x86. Recirculating effects decay
// through that range for a long time after the music stops, so the master stage runs with
// flush-to-zero and denormals-are-zero set, and restores the caller's mode after.
#pragma once

#if defined(__SSE__) || defined(__x86_64__)
#include <xmmintrin.h>

class ScopedFlushDenormals {
public:
    static constexpr unsigned kFlushBits = 0x8040;  // FTZ | DAZ
    ScopedFlushDenormals() : saved(_mm_getcsr()) { _mm_setcsr(saved | kFlushBits); }
    ~ScopedFlushDenormals() { _mm_setcsr(saved); }
    ScopedFlushDenormals(const ScopedFlushDenormals&) = delete;
    ScopedFlushDenormals& operator=(const ScopedFlushDenormals&) = delete;

private:
    unsigned saved;
};
#else
// Elsewhere the effects rely on their own guards: the reverb never stores a denormal.
class ScopedFlushDenormals {};
#endif
