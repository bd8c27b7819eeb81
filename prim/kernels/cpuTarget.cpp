#include "prim/kernels/cpuTarget.h"

namespace kt7 {

CpuTarget bestCpuTarget() noexcept {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2"))
        return CpuTarget::avx512;
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
        __builtin_cpu_supports("bmi2"))
        return CpuTarget::avx2;
#endif
    return CpuTarget::generic;
}

} // namespace kt7
