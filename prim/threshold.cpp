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

PrimStatus primCompare32fC1(const float* src1, std::int32_t src1Step, const float* src2,
                            std::int32_t src2Step, std::uint8_t* dst, std::int32_t dstStep,
                            PrimSize size, std::int32_t relation) {
    if (const PrimStatus status = checkPlanes(size, src1, src2, dst))
        return status;
    if (relation < primLess || relation > primGreater)
        return primBadArg;
    for (std::int32_t y = 0; y < size.height; ++y)
        thresholdKernels->compare32f(rowAt(src1, src1Step, y), rowAt(src2, src2Step, y),
                                     rowAt(dst, dstStep, y), size.width, relation);
    return primOk;
}

} // namespace kt7
