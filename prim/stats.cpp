#include "prim/stats.h"

#include <algorithm>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {
PrimStatus primSum8uC1(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                       std::uint64_t* sum) {
    if (const PrimStatus status = checkPlanes(size, src, sum))
        return status;
    *sum = 0;
    return forRows(src, srcStep, size, [&](const std::uint8_t* row) {
        *sum += thresholdKernels->sum8u(row, size.width);
    });
}

PrimStatus primMean8uC3(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                        double* means) {
    if (const PrimStatus status = checkPlanes(size, src, means))
        return status;
    std::uint64_t sums[3] = {};
    forRows(src, srcStep, size,
            [&](const std::uint8_t* row) { thresholdKernels->sum8uC3(row, size.width, sums); });
    // The reciprocal is rounded once for all channels: the mean of a flat plane can miss its value
    // by the last bit.
    const double perPixel = 1.0 / (static_cast<double>(size.width) * size.height);
    for (int c = 0; c < 3; ++c)
        means[c] = static_cast<double>(sums[c]) * perPixel;
    return primOk;
}

PrimStatus primMin16sC1(const std::int16_t* src, std::int32_t srcStep, PrimSize size,
                        std::int16_t* smallest) {
    if (const PrimStatus status = checkPlanes(size, src, smallest))
        return status;
    std::int16_t least = 32767;
    forRows(src, srcStep, size, [&](const std::int16_t* row) {
        least = std::min(least, thresholdKernels->min16s(row, size.width));
    });
    *smallest = least;
    return primOk;
}

PrimStatus primMax16sC1(const std::int16_t* src, std::int32_t srcStep, PrimSize size,
                        std::int16_t* largest) {
    if (const PrimStatus status = checkPlanes(size, src, largest))
        return status;
    std::int16_t most = -32768;
    forRows(src, srcStep, size, [&](const std::int16_t* row) {
        most = std::max(most, thresholdKernels->max16s(row, size.width));
    });
    *largest = most;
    return primOk;
}

} // namespace kt7
