// Rows of the dual-tree wavelet transform and of its shrinkage, on rows of n elements.
//
// `trees` are the detail rows of the four trees (0,0), (0,1), (1,0), (1,1) at one place and kind,
// before their sums and differences are formed; a gain row holds (magnitude - threshold) * slope,
// not clamped. CPU targets may differ by rounding.
#pragma once

#include <cstdint>

namespace kt7 {

/// dst[k][x] = sum over i of weights[10 * k + i] * src[i][x], for `sums` 1, 2 or 4. No dst row may
/// overlap a src row.
void weightedSums(const float* const* src, const float* weights, float* const* dst,
                  std::int32_t sums, std::int32_t n);

/// 2n samples into n even and n odd ones, and back.
void splitPairs(const float* row, float* even, float* odd, std::int32_t n);
void joinPairs(const float* even, const float* odd, float* row, std::int32_t n);

/// Gains of the orientation of b = 0 and of the one of b = 1.
void gainRows(const float* const* trees, float threshold, float slope, float* gain0, float* gain1,
              std::int32_t n);

/// Tree (1, 1) after the gains, held to 0..cap, of a guide, of the plane itself, or the larger.
void shrinkByGuide(const float* const* trees, const float* gain0, const float* gain1, float cap,
                   float* dst, std::int32_t n);
void shrinkByOwn(const float* const* trees, float threshold, float slope, float cap, float* dst,
                 std::int32_t n);
void shrinkByBoth(const float* const* trees, float threshold, float slope, const float* gain0,
                  const float* gain1, float cap, float* dst, std::int32_t n);

} // namespace kt7
