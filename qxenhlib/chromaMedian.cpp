#include "qxenhlib/chromaMedian.h"

#include "prim/copy.h"
#include "prim/median.h"
#include "qxutils/parallel.h"

namespace kt7 {

void chromaMedian(GIMG<std::int16_t>& plane, std::int32_t mode) {
    if (mode < 1)
        return;
    const std::int32_t rim = mode == 1 ? 1 : 2;
    GIMG<std::int16_t> scratch(plane.width, plane.height);
    const RoiScope planeRoi(plane, rim);
    const RoiScope scratchRoi(scratch, rim);
    parallelRanges(plane.height, [&](std::int32_t begin, std::int32_t end) {
        primFilterMedianCross16sC1(plane.at(0, begin), plane.stepBytes, scratch.at(0, begin),
                                   scratch.stepBytes, {plane.width, end - begin}, 33);
    });
    parallelRanges(plane.height, [&](std::int32_t begin, std::int32_t end) {
        primCopy16sC1(scratch.at(0, begin), scratch.stepBytes, plane.at(0, begin), plane.stepBytes,
                      {plane.width, end - begin});
    });
}

} // namespace kt7
