#include "prim/threshold.h"

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {

PrimStatus primThresholdLT32fC1I(float* srcDst, std::int32_t step, PrimSize size, float t) {
    if (const PrimStatus status = checkPlanes(size, srcDst))
        return status;
    return forRows(srcDst, step, size,
                   [=](float* row) { thresholdKernels->below32f(row, size.width, t); });
}

PrimStatus primThresholdGT32fC1I(float* srcDst, std::int32_t step, PrimSize size, float t) {
    if (const PrimStatus status = checkPlanes(size, srcDst))
        return status;
    return forRows(srcDst, step, size,
                   [=](float* row) { thresholdKernels->above32f(row, size.width, t); });
}

PrimStatus primThresholdGT16uC3I(std::uint16_t* srcDst, std::int32_t step, PrimSize size,
                                 const std::uint16_t* t) {
    if (const PrimStatus status = checkPlanes(size, srcDst, t))
        return status;
    return forRows(srcDst, step, size,
                   [=](std::uint16_t* row) { thresholdKernels->above16uC3(row, size.width, t); });
}

} // namespace kt7
