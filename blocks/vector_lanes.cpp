// The processor check behind the side-by-side voice loops.
#include "blocks/vector_lanes.h"

#if defined(__x86_64__)
namespace {
const bool kHasAvx2 = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}();
}  // namespace

bool CpuHasAvx2() { return kHasAvx2; }
#endif
