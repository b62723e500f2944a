// Helpers for the loops that run several voices side by side, one voice per lane of an AVX
// register. Those loops do each voice's arithmetic exactly as the one-voice loops do, so
// the lanes change the speed and never the samples.
#pragma once

#if defined(__x86_64__)
#include <immintrin.h>

#define VROK_AVX2 __attribute__((target("avx2")))
// Plain loops the compiler vectorises, built for AVX2 and for the baseline; the loader
// picks one for the processor.
#define VROK_AVX2_CLONES __attribute__((target_clones("avx2", "default")))

// Whether the processor runs AVX2; asked once, before any audio runs.
bool CpuHasAvx2();

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
#define VROK_AVX2_CLONES
inline bool CpuHasAvx2() { return false; }
#endif
