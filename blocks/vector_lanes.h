// Helpers for the loops that run several voices side by side, one voice per lane of an AVX
// register. Those loops do each voice's arithmetic exactly as the one-voice loops do, so
// the lanes change the speed and never the samples.
#pragma once

#if defined(__x86_64__)
#include <immintrin.h>

#define VROK_AVX2 __attribute__((target("avx2")))

// Whether the processor runs AVX2; asked once, before any audio runs.
bool CpuHasAvx2();

// A plain loop the compiler vectorises, compiled a second time for AVX2 and run that way
// where the processor has it. `Loop` must be always_inline so that it is compiled inside
// each caller. (Not target_clones: its resolvers run while libraries load, before a
// sanitizer's runtime is up, and crash it.)
template <auto Loop, class... Args>
VROK_AVX2 auto RunLoopAvx2(Args... args) {
    return Loop(args...);
}
template <auto Loop, class... Args>
auto RunLoop(Args... args) {
    return CpuHasAvx2() ? RunLoopAvx2<Loop>(args...) : Loop(args...);
}

// Rows to lanes and back: r[k] element j becomes r[j] element k.
VROK_AVX2 inline void Transpose8(__m256 (&r)[8]) {
    __m256 t[8], u[8];
    for (int k = 0; k < 8; k += 2) {
        t[k] = _mm256_unpacklo_ps(r[k], r[k + 1]);
        t[k + 1] = _mm256_unpackhi_ps(r[k], r[k + 1]);
    }
    for (int k = 0; k < 8; k += 4) {
        u[k] = _mm256_shuffle_ps(t[k], t[k + 2], _MM_SHUFFLE(1, 0, 1, 0));
        u[k + 1] = _mm256_shuffle_ps(t[k], t[k + 2], _MM_SHUFFLE(3, 2, 3, 2));
        u[k + 2] = _mm256_shuffle_ps(t[k + 1], t[k + 3], _MM_SHUFFLE(1, 0, 1, 0));
        u[k + 3] = _mm256_shuffle_ps(t[k + 1], t[k + 3], _MM_SHUFFLE(3, 2, 3, 2));
    }
    for (int k = 0; k < 4; ++k) {
        r[k] = _mm256_permute2f128_ps(u[k], u[k + 4], 0x20);
        r[k + 4] = _mm256_permute2f128_ps(u[k], u[k + 4], 0x31);
    }
}
#else
inline bool CpuHasAvx2() { return false; }
template <auto Loop, class... Args>
auto RunLoop(Args... args) {
    return Loop(args...);
}
#endif
