#include "qxutils/DCT.h"

#include "prim/kernels/KernelTable.h"

namespace kt7 {

void nDCT8x8x8(float* cube) {
    groupKernels->cubeForward(cube);
}

void nIDCT8x8x8(float* cube) {
    groupKernels->cubeInverse(cube);
}

void dct4x4(float* block) {
    matchingKernels->dct4x4(block);
}

} // namespace kt7
