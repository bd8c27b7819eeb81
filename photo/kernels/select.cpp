#include "photo/kernels/select.h"

#include "photo/kernels/KernelTable.h"

namespace kt7::photo {

#if defined(__x86_64__)
#define KT7_SELECT(name)                                                                           \
    name = target == CpuTarget::avx512 ? &name##_avx512                                            \
           : target == CpuTarget::avx2 ? &name##_avx2                                              \
                                       : &name##_generic
#else
#define KT7_SELECT(name) name = &name##_generic
#endif

constinit const GroupKernels* groupKernels = &groupKernels_generic;
constinit const MatchKernels* matchKernels = &matchKernels_generic;

void selectKernels([[maybe_unused]] CpuTarget target) noexcept {
    KT7_SELECT(groupKernels);
    KT7_SELECT(matchKernels);
}

namespace {

[[gnu::constructor]] void onLoad() noexcept {
    selectKernels(bestCpuTarget());
}

} // namespace
} // namespace kt7::photo
