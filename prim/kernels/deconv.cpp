#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

/// Calls finish(x, weighted sum of the rows at x) for each x of a known number of rows, all of
/// whose pointers and weights then stay in registers.
template <int rowCount, class Finish>
void forSumsOf(const float* const* rows, const float* weights, std::int32_t n, Finish finish) {
    const float* row[rowCount];
    float weight[rowCount];
    for (int j = 0; j < rowCount; ++j) {
        row[j] = rows[j];
        weight[j] = weights[j];
    }
#pragma GCC ivdep
    for (std::int32_t x = 0; x < n; ++x) {
        float sum = weight[0] * row[0][x];
        for (int j = 1; j < rowCount; ++j)
            sum += weight[j] * row[j][x];
        finish(x, sum);
    }
}

/// The same for any number of rows.
template <class Finish>
void forSumsOfAny(const float* const* rows, const float* weights, std::int32_t count,
                  std::int32_t n, Finish finish) {
    constexpr std::int32_t strip = 64;
    for (std::int32_t start = 0; start < n; start += strip) {
        const std::int32_t length = n - start < strip ? n - start : strip;
        float sums[strip] = {};
        for (std::int32_t j = 0; j < count; ++j)
            for (std::int32_t x = 0; x < length; ++x)
                sums[x] += weights[j] * rows[j][start + x];
        for (std::int32_t x = 0; x < length; ++x)
            finish(start + x, sums[x]);
    }
}

template <class Finish>
void forSums(const float* const* rows, const float* weights, std::int32_t count, std::int32_t n,
             Finish finish) {
    switch (count) {
    case 1:
        return forSumsOf<1>(rows, weights, n, finish);
    case 3:
        return forSumsOf<3>(rows, weights, n, finish);
    case 5:
        return forSumsOf<5>(rows, weights, n, finish);
    case 7:
        return forSumsOf<7>(rows, weights, n, finish);
    case 9:
        return forSumsOf<9>(rows, weights, n, finish);
    default:
        return forSumsOfAny(rows, weights, count, n, finish);
    }
}

void weightedSum(const float* const* rows, const float* weights, std::int32_t count, float* dst,
                 std::int32_t n) {
    forSums(rows, weights, count, n, [=](std::int32_t x, float sum) { dst[x] = sum; });
}

void ratio(const float* const* rows, const float* weights, std::int32_t count,
           const float* observed, float threshold, float* dst, std::int32_t n) {
    forSums(rows, weights, count, n, [=](std::int32_t x, float blurred) {
        const float quotient = observed[x] / blurred;
        dst[x] = __builtin_fabsf(blurred) > threshold ? quotient : 0.0f;
    });
}

void correct(const float* const* rows, const float* weights, std::int32_t count, float* estimate,
             std::int32_t n) {
    constexpr float least = 1.1754943e-15f;
    forSums(rows, weights, count, n, [=](std::int32_t x, float correction) {
        const float before = estimate[x];
        const bool both = (__builtin_fabsf(before) > least) & (__builtin_fabsf(correction) > least);
        estimate[x] = both ? before * correction : 0.0f;
    });
}

} // namespace

const DeconvKernels KT7_NAME(deconvKernels){&weightedSum, &ratio, &correct};

} // namespace kt7
