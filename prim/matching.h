// Inner loops of block matching: the features of blocks, and the choices of the search forest.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kt7 {

/// 16 floats for each of n candidates in a row: the cosine transform of every second mean, the
/// first element times dcScale. Reads 4 rows of means, every second one, up to n + 13 samples each;
/// those from n + 6 on have no influence. CPU targets may differ by rounding.
void featureRow(const float* means, std::ptrdiff_t meansStride, float dcScale, float* features,
                std::int32_t n);

/// Index of a least one of n keys; keys are read up to the next multiple of 16 and must be infinite
/// there.
std::int32_t indexOfLeast(const float* keys, std::int32_t n);

/// Where to split a list of n features of 16 elements, numbered by `list`: the element whose
/// variance comes after `rank` larger ones. mean: its mean.
std::int32_t splitElement(const float* features, const std::int32_t* list, std::int32_t n,
                          std::int32_t rank, float* mean);

} // namespace kt7
