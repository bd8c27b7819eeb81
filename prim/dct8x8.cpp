#include "prim/dct8x8.h"

#include "prim/kernels/KernelTable.h"

namespace kt7 {

PrimStatus primDCT8x8Fwd32fC1I(float* block) {
    if (block == nullptr)
        return primNullPtr;
    groupKernels->dct8x8Forward(block);
    return primOk;
}

PrimStatus primDCT8x8Inv32fC1I(float* block) {
    if (block == nullptr)
        return primNullPtr;
    groupKernels->dct8x8Inverse(block);
    return primOk;
}

} // namespace kt7
