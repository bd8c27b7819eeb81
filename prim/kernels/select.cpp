#include "prim/kernels/select.h"

#include "prim/kernels/KernelTable.h"

namespace kt7 {

// The portable tables stand from the first moment, so code that runs before the load hook is safe.
#define KT7_DEFINE_KERNELS(Type, name) constinit const Type* name = &name##_generic;
KT7_KERNEL_TABLES(KT7_DEFINE_KERNELS)

#if defined(__x86_64__)
#define KT7_SELECT(Type, name)                                                                     \
    name = target == CpuTarget::avx512 ? &name##_avx512                                            \
           : target == CpuTarget::avx2 ? &name##_avx2                                              \
                                       : &name##_generic;
#else
#define KT7_SELECT(Type, name) name = &name##_generic;
#endif

void selectKernels([[maybe_unused]] CpuTarget target) noexcept {
    KT7_KERNEL_TABLES(KT7_SELECT)
}

} // namespace kt7
