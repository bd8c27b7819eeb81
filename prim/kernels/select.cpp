#include "prim/kernels/select.h"

#include "prim/kernels/KernelTable.h"

namespace kt7 {

KT7_KERNEL_TABLES(KT7_DEFINE_KERNELS)

void selectKernels([[maybe_unused]] CpuTarget target) noexcept {
    KT7_KERNEL_TABLES(KT7_CHOOSE_KERNELS)
}

} // namespace kt7
