#include "prim/kernels/select.h"

#include "prim/kernels/KernelTable.h"

namespace kt7 {

#if defined(__x86_64__)
#define KT7_SELECT(name)                                                                           \
    name = target == CpuTarget::avx512 ? &name##_avx512                                            \
           : target == CpuTarget::avx2 ? &name##_avx2                                              \
                                       : &name##_generic
#else
#define KT7_SELECT(name) name = &name##_generic
#endif

// The portable tables stand from the first moment, so code that runs before the load hook is safe.
constinit const ArithKernels* arithKernels = &arithKernels_generic;
constinit const ConvertKernels* convertKernels = &convertKernels_generic;
constinit const GridKernels* gridKernels = &gridKernels_generic;
constinit const GroupKernels* groupKernels = &groupKernels_generic;
constinit const MatchingKernels* matchingKernels = &matchingKernels_generic;
constinit const NeighbourKernels* neighbourKernels = &neighbourKernels_generic;
constinit const ColourKernels* colourKernels = &colourKernels_generic;
constinit const DeconvKernels* deconvKernels = &deconvKernels_generic;
constinit const NoiseKernels* noiseKernels = &noiseKernels_generic;
constinit const PreviewKernels* previewKernels = &previewKernels_generic;
constinit const PyramidKernels* pyramidKernels = &pyramidKernels_generic;
constinit const ScaledKernels* scaledKernels = &scaledKernels_generic;
constinit const ThresholdKernels* thresholdKernels = &thresholdKernels_generic;
constinit const TileKernels* tileKernels = &tileKernels_generic;
constinit const WaveletKernels* waveletKernels = &waveletKernels_generic;

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

void selectKernels([[maybe_unused]] CpuTarget target) noexcept {
    KT7_SELECT(arithKernels);
    KT7_SELECT(convertKernels);
    KT7_SELECT(gridKernels);
    KT7_SELECT(groupKernels);
    KT7_SELECT(matchingKernels);
    KT7_SELECT(neighbourKernels);
    KT7_SELECT(colourKernels);
    KT7_SELECT(deconvKernels);
    KT7_SELECT(noiseKernels);
    KT7_SELECT(previewKernels);
    KT7_SELECT(pyramidKernels);
    KT7_SELECT(scaledKernels);
    KT7_SELECT(thresholdKernels);
    KT7_SELECT(tileKernels);
    KT7_SELECT(waveletKernels);
}

} // namespace kt7
