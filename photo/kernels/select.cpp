#include "photo/kernels/select.h"

#include "photo/kernels/KernelTable.h"

namespace kt7::photo {

KT7_PHOTO_KERNEL_TABLES(KT7_DEFINE_KERNELS)

void selectKernels([[maybe_unused]] CpuTarget target) noexcept {
    KT7_PHOTO_KERNEL_TABLES(KT7_CHOOSE_KERNELS)
}

namespace {

[[gnu::constructor]] void onLoad() noexcept {
    selectKernels(bestCpuTarget());
}

} // namespace
} // namespace kt7::photo
