// Row kernels: the tables of entry points, one struct per kernel file, and the chosen ones.
//
// Each file in this folder is compiled once per CPU target and defines one table, named by
// KT7_NAME; select.cpp points the chosen tables at the best target when the library is loaded. Only
// prim looks in here: everyone else calls its functions. A row that such a function merely passes
// on has its type and is described there; the others take plain pointers and lengths that their
// callers have checked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "prim/colourRows.h"
#include "prim/gridRows.h"
#include "prim/groupFilter.h"
#include "prim/kernels/KernelTarget.h"
#include "prim/matching.h"
#include "prim/noiseRows.h"
#include "prim/pyramidRows.h"
#include "prim/screenRows.h"
#include "prim/tileRows.h"
#include "prim/waveletRows.h"

namespace kt7 {

/// Exact elementwise operations on rows of n floats. In-place forms change `row`.
struct ArithKernels {
    void (*add)(const float* src, float* row, std::int32_t n);
    void (*addC)(const float* src, float c, float* dst, std::int32_t n);
    void (*mulC)(const float* src, float c, float* dst, std::int32_t n);
    void (*abs)(float* row, std::int32_t n);
};

/// Exact conversions between RGB and YUV.
struct ColourKernels {
    decltype(&rgb8ToYuvRow) forward8;
    decltype(&rgb16ToYuvRow) forward16;
    decltype(&yuvToRgb8Row) backward8;
    decltype(&yuvToRgb16Row) backward16;
};

/// Exact conversions of rows of n elements; values that the target can't hold saturate.
struct ConvertKernels {
    void (*from16s)(const std::int16_t* src, float* dst, std::int32_t n);
    void (*widen8u)(const std::uint8_t* src, std::uint16_t* dst, std::int32_t n);
    void (*narrow16u)(const std::uint16_t* src, std::uint8_t* dst, std::int32_t n);
    void (*truncTo8u)(const float* src, std::uint8_t* dst, std::int32_t n);
    void (*roundTo8u)(const float* src, std::uint8_t* dst, std::int32_t n);
    void (*truncTo16s)(const float* src, std::int16_t* dst, std::int32_t n);
    void (*roundTo16s)(const float* src, std::int16_t* dst, std::int32_t n);
};

/// Fused row steps of the Lucy-Richardson deconvolution. All work on the weighted sum of `count`
/// rows of n floats, which dst must not overlap.
struct DeconvKernels {
    void (*weightedSum)(const float* const* rows, const float* weights, std::int32_t count,
                        float* dst, std::int32_t n);
    /// dst = observed / sum where |sum| > threshold, else 0.
    void (*ratio)(const float* const* rows, const float* weights, std::int32_t count,
                  const float* observed, float threshold, float* dst, std::int32_t n);
    /// estimate = estimate * sum where neither vanishes, else 0.
    void (*correct)(const float* const* rows, const float* weights, std::int32_t count,
                    float* estimate, std::int32_t n);
};

/// Exact rows of the bilateral grid.
struct GridKernels {
    decltype(&gridPositions) positions;
    decltype(&splatRow) splat;
    decltype(&blurQuotientRow) blurQuotient;
    decltype(&interpolateRow) interpolate;
};

/// The group filter.
struct GroupKernels {
    decltype(&filterGroups) filter;
    decltype(&normaliseRow) normalise;
};

/// Block matching.
struct MatchingKernels {
    decltype(&featureRow) features;
    decltype(&indexOfLeast) leastOf;
    decltype(&splitElement) split;
};

/// Exact neighbourhood filters: n outputs from the rows above, at and below. Inputs point at the
/// pixel of the first output and are read to either side of it; dst overlaps none of them.
struct NeighbourKernels {
    /// (a + b) of two rows over two columns, x and x + 1, times 0.25.
    void (*box2x2)(const float* row0, const float* row1, float* dst, std::int32_t n);
    void (*gauss3x3)(const float* up, const float* mid, const float* down, float* dst,
                     std::int32_t n);
    void (*sobelHoriz)(const float* up, const float* down, float* dst, std::int32_t n);
    void (*sobelVert)(const float* up, const float* mid, const float* down, float* dst,
                      std::int32_t n);
    /// Correlation with 9 taps, row by row.
    void (*taps3x3)(const float* up, const float* mid, const float* down, const float* taps,
                    float* dst, std::int32_t n);
    void (*median3x3)(const float* up, const float* mid, const float* down, float* dst,
                      std::int32_t n);
    void (*medianCross3)(const std::int16_t* up, const std::int16_t* mid, const std::int16_t* down,
                         std::int16_t* dst, std::int32_t n);
    /// rows: the five rows from two above to two below.
    void (*medianCross5)(const std::int16_t* const* rows, std::int16_t* dst, std::int32_t n);
    /// acc(x) += sum over i < count of taps[i * tapStep] * src(x + i); with `first` acc starts at
    /// 0.
    void (*accumulate32f)(const float* src, const float* taps, std::int32_t tapStep,
                          std::int32_t count, bool first, float* acc, std::int32_t n);
};

/// Exact sums of the noise measurement.
struct NoiseKernels {
    decltype(&sumFlatRow) sumFlat;
};

/// Where an output pixel of a resize lies along one axis: between source pixels `index` and
/// `index` + 1, whose weights add up to 16384. With a zero `far` weight the second is not used.
struct ResizeTap {
    std::int32_t index;
    std::int16_t near, far;
};

/// Exact rows of the previews. n counts pixels.
struct PreviewKernels {
    decltype(&toScreen8Row) toScreen8;
    decltype(&toScreen16Row) toScreen16;
    decltype(&fromScreenRow) fromScreen;
    decltype(&intoScreenRow) intoScreen;
    /// Linear interpolation along a row to the 4 samples of screen pixels: 64 times the sample,
    /// rounded. Both source pixels of a tap are read.
    void (*resampleScreen8)(const std::uint8_t* rgb, const ResizeTap* taps, std::int16_t* bgra,
                            std::int32_t n);
    void (*resampleScreen16)(const std::uint16_t* rgb, const ResizeTap* taps, std::int16_t* bgra,
                             std::int32_t n);
    /// Linear interpolation between two rows of n resampled values.
    void (*blendRows)(const std::int16_t* nearRow, const std::int16_t* farRow, ResizeTap tap,
                      std::uint8_t* dst, std::int32_t n);
    void (*toYCbCr)(const std::uint8_t* rgb, std::uint8_t* y, std::uint8_t* cb, std::uint8_t* cr,
                    std::int32_t n);
    void (*fromYCbCr)(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                      std::uint8_t* rgb, std::int32_t n);
    decltype(&splitGDbDrRow) toGDbDr;
    decltype(&greyToRgbRow) fromGrey;
};

/// Exact row steps of the pyramid.
struct PyramidKernels {
    decltype(&reducePyramidRow) reduceRow;
    decltype(&expandPyramidRow) expandRow;
};

/// Exact integer arithmetic with a scale: the result is divided by 2^scale with ties to even (or
/// multiplied, for a scale below 0) and saturates.
struct ScaledKernels {
    void (*add16s)(const std::int16_t* src, std::int16_t* row, std::int32_t n, std::int32_t scale);
    void (*sub16s)(const std::int16_t* src, std::int16_t* row, std::int32_t n, std::int32_t scale);
    void (*sub8u)(const std::uint8_t* src, std::uint8_t* row, std::int32_t n, std::int32_t scale);
    void (*subC8u)(const std::uint8_t* src, std::uint8_t c, std::uint8_t* dst, std::int32_t n,
                   std::int32_t scale);
    void (*mulC8u)(std::uint8_t c, std::uint8_t* row, std::int32_t n, std::int32_t scale);
    /// n counts pixels of 3 samples.
    void (*mulC8uC3)(const std::uint8_t* c, std::uint8_t* row, std::int32_t n, std::int32_t scale);
    void (*addC16u)(std::uint16_t c, std::uint16_t* row, std::int32_t n, std::int32_t scale);
    void (*subC16u)(const std::uint16_t* src, std::uint16_t c, std::uint16_t* dst, std::int32_t n,
                    std::int32_t scale);
};

/// Exact thresholds on rows, and what reduces a row to a number.
struct ThresholdKernels {
    void (*below32f)(float* row, std::int32_t n, float t);
    void (*above32f)(float* row, std::int32_t n, float t);
    /// n counts pixels of 3 samples; t has 3.
    void (*above16uC3)(std::uint16_t* row, std::int32_t n, const std::uint16_t* t);
    std::int16_t (*min16s)(const std::int16_t* row, std::int32_t n);
    std::int16_t (*max16s)(const std::int16_t* row, std::int32_t n);
    std::uint64_t (*sum8u)(const std::uint8_t* row, std::int32_t n);
    /// Adds the sums of the 3 channels of n pixels to sums.
    void (*sum8uC3)(const std::uint8_t* row, std::int32_t n, std::uint64_t* sums);
};

/// Exact transfers between planes and tiles.
struct TileKernels {
    decltype(&loadTileRow) load;
    decltype(&holdTileRow) hold;
    decltype(&fadeTileRow) fade;
};

/// Rows of the wavelet transform and of its shrinkage.
struct WaveletKernels {
    decltype(&weightedSums) sums;
    decltype(&splitPairs) split;
    decltype(&joinPairs) join;
    decltype(&gainRows) gains;
    decltype(&shrinkByGuide) byGuide;
    decltype(&shrinkByOwn) byOwn;
    decltype(&shrinkByBoth) byBoth;
};

/// All tables: X(type, name).
#define KT7_KERNEL_TABLES(X)                                                                       \
    X(ArithKernels, arithKernels)                                                                  \
    X(ColourKernels, colourKernels)                                                                \
    X(ConvertKernels, convertKernels)                                                              \
    X(DeconvKernels, deconvKernels)                                                                \
    X(GridKernels, gridKernels)                                                                    \
    X(GroupKernels, groupKernels)                                                                  \
    X(MatchingKernels, matchingKernels)                                                            \
    X(NeighbourKernels, neighbourKernels)                                                          \
    X(NoiseKernels, noiseKernels)                                                                  \
    X(PreviewKernels, previewKernels)                                                              \
    X(PyramidKernels, pyramidKernels)                                                              \
    X(ScaledKernels, scaledKernels)                                                                \
    X(ThresholdKernels, thresholdKernels)                                                          \
    X(TileKernels, tileKernels)                                                                    \
    X(WaveletKernels, waveletKernels)

KT7_KERNEL_TABLES(KT7_DECLARE_KERNELS)

} // namespace kt7
