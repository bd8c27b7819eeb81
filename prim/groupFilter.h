// The group filter over the match lists of a tile. CPU targets may differ by rounding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kt7 {

/// One pass over a tile. Strides are in samples.
struct GroupFilterJob {
    const float* source; ///< blocks are read here
    std::ptrdiff_t sourceStride;
    float* sums; ///< weighted blocks are added here
    std::ptrdiff_t sumsStride;
    float* weights; ///< at a candidate's corner: += weight of each group that it belongs to
    std::ptrdiff_t weightsStride;
    const std::int32_t* matchIdx; ///< 8 candidate numbers per group
    std::int32_t groups;
    std::int32_t candX;      ///< candidates in a row
    const float* thresholds; ///< 64, row-major, in sample units
    float boost, gainCap;
    float* cube; ///< 512 floats of scratch, aligned at 64 bytes
};

/// Transforms, thresholds, transforms back and adds up every group of the job.
void filterGroups(const GroupFilterJob& job);

/// image = (floor * image + sums) / (floor + weight), where a pixel's weight is the sum over the
/// candidates that cover it: 8 rows of `weights`, of n + 7 samples each, which begin with the
/// candidate whose last pixel is the first of the row. scratch: n + 7 floats.
void normaliseRow(const float* weights, std::ptrdiff_t weightsStride, const float* sums,
                  float floor, float* scratch, float* image, std::int32_t n);

} // namespace kt7
