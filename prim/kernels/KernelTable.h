// Row kernels: the tables of entry points, one struct per kernel file, and the chosen ones.
//
// Each file in this folder is compiled once per CPU target and defines one table, named by
// KT7_NAME; select.cpp points the chosen tables at the best target when the library is loaded.
// Kernels take plain pointers and lengths that their callers have checked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "prim/kernels/KernelTarget.h"

namespace kt7 {

/// Declares the per-target instances of a table and the pointer to the chosen one.
#if defined(__x86_64__)
#define KT7_DECLARE_KERNELS(Type, name)                                                            \
    extern const Type name##_generic;                                                              \
    extern const Type name##_avx2;                                                                 \
    extern const Type name##_avx512;                                                               \
    extern const Type* name
#else
#define KT7_DECLARE_KERNELS(Type, name)                                                            \
    extern const Type name##_generic;                                                              \
    extern const Type* name
#endif

/// Exact elementwise operations on rows of n floats. In-place forms change `row`.
struct ArithKernels {
    void (*add)(const float* src, float* row, std::int32_t n);
    void (*sub)(const float* src, float* row, std::int32_t n);
    void (*mul)(const float* src, float* row, std::int32_t n);
    /// row / src; a zero of either sign divides as +0. Returns 1 if there was one, else 0.
    std::int32_t (*div)(const float* src, float* row, std::int32_t n);
    /// dst = src2 - src1.
    void (*subFrom)(const float* src1, const float* src2, float* dst, std::int32_t n);
    void (*addC)(const float* src, float c, float* dst, std::int32_t n);
    void (*subC)(const float* src, float c, float* dst, std::int32_t n);
    void (*mulC)(const float* src, float c, float* dst, std::int32_t n);
    void (*abs)(float* row, std::int32_t n);
    void (*magnitude)(const float* re, const float* im, float* dst, std::int32_t n);
};
KT7_DECLARE_KERNELS(ArithKernels, arithKernels);

/// Exact conversion of rows of n pixels between interleaved RGB and YUV planes, through one table
/// for each of R, G, B. 8-bit samples go through tables of 256 entries, 16-bit ones (held at 32767)
/// and the way back through tables of 32768.
struct ColourKernels {
    void (*forward8)(const std::uint8_t* rgb, const std::int16_t* const tables[3], std::int16_t* y,
                     std::int16_t* u, std::int16_t* v, std::int32_t n);
    void (*forward16)(const std::uint16_t* rgb, const std::int16_t* const tables[3],
                      std::int16_t* y, std::int16_t* u, std::int16_t* v, std::int32_t n);
    /// 8-bit samples are the table's entries divided by 128.
    void (*backward8)(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v,
                      const std::int16_t* const tables[3], std::uint8_t* rgb, std::int32_t n);
    void (*backward16)(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v,
                       const std::int16_t* const tables[3], std::uint16_t* rgb, std::int32_t n);
};
KT7_DECLARE_KERNELS(ColourKernels, colourKernels);

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
KT7_DECLARE_KERNELS(DeconvKernels, deconvKernels);

/// What sumFlat adds up.
struct FlatSums {
    float response;
    float root;
    std::int32_t count;
};

/// Exact sums of the noise measurement.
struct NoiseKernels {
    /// Over the pixels whose gradient is at most `limit` and whose guide lies in low..high (low not
    /// negative): sums of |response| and of the root of the guide, and their number.
    void (*sumFlat)(const std::uint8_t* gradients, std::int32_t limit, const float* guide,
                    float low, float high, const float* response, std::int32_t n, FlatSums* sums);
};
KT7_DECLARE_KERNELS(NoiseKernels, noiseKernels);

/// Where an output pixel of a resize lies along one axis: between source pixels `index` and
/// `index` + 1, whose weights add up to 16384. With a zero `far` weight the second is not used.
struct ResizeTap {
    std::int32_t index;
    std::int16_t near, far;
};

/// Exact rows of the previews. n counts pixels. Screen pixels are B, G, R, A; 16-bit samples are
/// divided by 128 and held at 255 on the way there.
struct PreviewKernels {
    /// With A = 255. `streamed` writes past the cache, for images that it can't hold anyway.
    void (*toScreen8)(const std::uint8_t* rgb, std::uint8_t* bgra, std::int32_t n, bool streamed);
    void (*toScreen16)(const std::uint16_t* rgb, std::uint8_t* bgra, std::int32_t n, bool streamed);
    void (*fromScreen)(const std::uint8_t* bgra, std::uint8_t* rgb, std::int32_t n);
    /// A stays.
    void (*intoScreen)(const std::uint8_t* rgb, std::uint8_t* bgra, std::int32_t n);
    /// Linear interpolation along a row: 64 times the sample, rounded. Both source pixels of a tap
    /// are read.
    void (*resample8)(const std::uint8_t* src, const ResizeTap* taps, std::int16_t* dst,
                      std::int32_t n);
    /// The same to the 4 samples of screen pixels.
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
    /// G, (B - G) / 2 + 128 and (R - G) / 2 + 128, the divisions truncating.
    void (*toGDbDr)(const std::uint8_t* rgb, std::uint8_t* g, std::uint8_t* db, std::uint8_t* dr,
                    std::int32_t n);
    void (*fromGrey)(const std::uint8_t* grey, std::uint8_t* rgb, std::int32_t n);
};
KT7_DECLARE_KERNELS(PreviewKernels, previewKernels);

/// Exact row steps of the 16-bit Laplacian pyramid.
struct PyramidKernels {
    /// One row of the half-size low-pass image from five rows of `width` samples. scratch: at least
    /// 3 * (outWidth + 2) elements; outWidth at most width / 2.
    void (*reduceRow)(const std::int16_t* const rows[5], std::int32_t width, std::int32_t outWidth,
                      std::int32_t* scratch, std::int16_t* dst);
    /// One row of the double-size image: an odd one from the rows `here` and `below` it, an even
    /// one from all three. Rows have srcWidth samples; scratch: at least 3 * (width / 2 + 4)
    /// elements.
    void (*expandRow)(const std::int16_t* above, const std::int16_t* here,
                      const std::int16_t* below, std::int32_t srcWidth, std::int32_t odd,
                      std::int32_t* scratch, std::int16_t* dst, std::int32_t width);
    void (*addSaturated)(const std::int16_t* src, std::int16_t* srcDst, std::int32_t n);
    void (*subSaturated)(const std::int16_t* src, std::int16_t* srcDst, std::int32_t n);
};
KT7_DECLARE_KERNELS(PyramidKernels, pyramidKernels);

/// Exact transfers between 16-bit planes and float tiles.
struct TileKernels {
    /// dst = src * scale.
    void (*load)(const std::int16_t* src, float scale, float* dst, std::int32_t n);
    /// row = row * scale, held within +-limit.
    void (*scaleAndHold)(float scale, float limit, float* row, std::int32_t n);
    /// dst = src to the nearest integer, ties to even; src within 16 bits.
    void (*storeRounded)(const float* src, std::int16_t* dst, std::int32_t n);
    /// dst = src, or a mix of src (weight w) and dst (1 - w) where dst is not `unwritten`;
    /// truncated. The weight of element x is weight[x * weightStride].
    void (*blend)(const float* src, const float* weight, std::int32_t weightStride,
                  std::int16_t unwritten, std::int16_t* dst, std::int32_t n);
};
KT7_DECLARE_KERNELS(TileKernels, tileKernels);

/// Conversions of rows of n elements; values that the target can't hold saturate.
struct ConvertKernels {
    void (*from16s)(const std::int16_t* src, float* dst, std::int32_t n);
    void (*from8u)(const std::uint8_t* src, float* dst, std::int32_t n);
    void (*widen8u)(const std::uint8_t* src, std::uint16_t* dst, std::int32_t n);
    void (*narrow16u)(const std::uint16_t* src, std::uint8_t* dst, std::int32_t n);
    void (*truncTo8u)(const float* src, std::uint8_t* dst, std::int32_t n);
    void (*roundTo8u)(const float* src, std::uint8_t* dst, std::int32_t n);
    void (*truncTo16s)(const float* src, std::int16_t* dst, std::int32_t n);
    void (*roundTo16s)(const float* src, std::int16_t* dst, std::int32_t n);
};
KT7_DECLARE_KERNELS(ConvertKernels, convertKernels);

/// Integer arithmetic with a scale: the exact result is divided by 2^scale with ties to even (or
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
KT7_DECLARE_KERNELS(ScaledKernels, scaledKernels);

/// Thresholds, comparison and masks on rows, and what reduces a row to a number.
struct ThresholdKernels {
    void (*below32f)(float* row, std::int32_t n, float t);
    void (*above32f)(float* row, std::int32_t n, float t);
    /// n counts pixels of 3 samples; t has 3.
    void (*above16uC3)(std::uint16_t* row, std::int32_t n, const std::uint16_t* t);
    /// dst = 255 where src1 op src2: 0 <, 1 <=, 2 ==, 3 >=, 4 >.
    void (*compare32f)(const float* src1, const float* src2, std::uint8_t* dst, std::int32_t n,
                       std::int32_t op);
    /// dst = src where the mask is not 0.
    void (*copyMasked)(const float* src, const std::uint8_t* mask, float* dst, std::int32_t n);
    std::int16_t (*min16s)(const std::int16_t* row, std::int32_t n);
    std::int16_t (*max16s)(const std::int16_t* row, std::int32_t n);
    std::uint64_t (*sum8u)(const std::uint8_t* row, std::int32_t n);
    /// Adds the sums of the 3 channels of n pixels to sums.
    void (*sum8uC3)(const std::uint8_t* row, std::int32_t n, std::uint64_t* sums);
};
KT7_DECLARE_KERNELS(ThresholdKernels, thresholdKernels);

/// Rows of the bilateral grid. A grid slice is an image of columns of cells, z running fastest;
/// `columns` holds, per pixel, where its column starts in the slice.
struct GridKernels {
    /// Position (sample - low) * scale + offset of each sample, which is held to [low, high] first:
    /// its whole part goes to `cells`, held within 0..mostCell (at most 255), and what is left to
    /// `fractions` unless that is null.
    void (*positions)(const float* samples, float low, float high, float scale, float offset,
                      std::int32_t mostCell, std::uint8_t* cells, float* fractions, std::int32_t n);
    /// Adds each value, and 1, to its cell.
    void (*splat)(const float* values, const std::int32_t* columns, const std::uint8_t* cells,
                  float* valueSlice, float* countSlice, std::int32_t n);
    /// Blurs values and counts with 1 2 1 across three slices and divides.
    void (*blurQuotient)(const float* const values[3], const float* const counts[3], float* dst,
                         std::int32_t n);
    /// Trilinear interpolation between two slices.
    void (*interpolate)(const float* nearSlice, const float* farSlice, std::int32_t columnStride,
                        const std::int32_t* columns, const float* columnFractions,
                        const std::uint8_t* cells, const float* fractions, float rowFraction,
                        float* dst, std::int32_t n);
};
KT7_DECLARE_KERNELS(GridKernels, gridKernels);

/// Neighbourhood filters: n outputs from the rows above, at and below. Inputs point at the pixel of
/// the first output and are read to either side of it; dst overlaps none of them.
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
    void (*accumulate16s)(const std::int16_t* src, const std::int32_t* taps, std::int32_t tapStep,
                          std::int32_t count, bool first, std::int32_t* acc, std::int32_t n);
};
KT7_DECLARE_KERNELS(NeighbourKernels, neighbourKernels);

/// Rows of the dual-tree wavelet transform and of its shrinkage, on rows of n elements. `trees` are
/// the detail rows of the four trees (0,0), (0,1), (1,0), (1,1) at one place and kind, before their
/// sums and differences are formed; a gain row holds (magnitude - threshold) * slope, not clamped.
struct WaveletKernels {
    /// dst[k][x] = sum over i of weights[10 * k + i] * src[i][x], for `sums` 1, 2 or 4. No dst row
    /// may overlap a src row.
    void (*weightedSums)(const float* const* src, const float* weights, float* const* dst,
                         std::int32_t sums, std::int32_t n);
    /// 2n samples into n even and n odd ones, and back.
    void (*splitPairs)(const float* row, float* even, float* odd, std::int32_t n);
    void (*joinPairs)(const float* even, const float* odd, float* row, std::int32_t n);
    /// Gains of the orientation of b = 0 and of the one of b = 1.
    void (*gainRows)(const float* const* trees, float threshold, float slope, float* gain0,
                     float* gain1, std::int32_t n);
    /// Tree (1, 1) after the gains, held to 0..cap, of a guide, of the plane itself, or the larger.
    void (*shrinkByGuide)(const float* const* trees, const float* gain0, const float* gain1,
                          float cap, float* dst, std::int32_t n);
    void (*shrinkByOwn)(const float* const* trees, float threshold, float slope, float cap,
                        float* dst, std::int32_t n);
    void (*shrinkByBoth)(const float* const* trees, float threshold, float slope,
                         const float* gain0, const float* gain1, float cap, float* dst,
                         std::int32_t n);
};
KT7_DECLARE_KERNELS(WaveletKernels, waveletKernels);

/// One pass of the group filter over a tile. Strides are in samples.
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

/// 8x8 blocks: orthonormal cosine transforms, and the group filter.
struct GroupKernels {
    void (*dct8x8Forward)(float* block);
    void (*dct8x8Inverse)(float* block);
    void (*cubeForward)(float* cube);
    void (*cubeInverse)(float* cube);
    void (*filterGroups)(const GroupFilterJob& job);
    /// image = (floor * image + sums) / (floor + weight), where a pixel's weight is the sum over
    /// the candidates that cover it: 8 rows of `weights`, of n + 7 samples each, which begin with
    /// the candidate whose last pixel is the first of the row. scratch: n + 7 floats.
    void (*normaliseRow)(const float* weights, std::ptrdiff_t weightsStride, const float* sums,
                         float floor, float* scratch, float* image, std::int32_t n);
};
KT7_DECLARE_KERNELS(GroupKernels, groupKernels);

/// Block matching: the features of blocks, and the inner loops of the forest.
struct MatchingKernels {
    void (*dct4x4)(float* block); ///< orthonormal, 16 contiguous floats in place
    /// 16 floats for each of n candidates in a row. Reads 4 rows of means, every second one, up to
    /// n + 13 samples each; those from n + 6 on have no influence.
    void (*featureRow)(const float* means, std::ptrdiff_t meansStride, float dcScale,
                       float* features, std::int32_t n);
    /// Index of a least one of n keys; keys are read up to the next multiple of 16 and must be
    /// infinite there.
    std::int32_t (*indexOfLeast)(const float* keys, std::int32_t n);
    /// Where to split a list of n features of 16 elements, numbered by `list`: the element whose
    /// variance comes after `rank` larger ones. mean: its mean.
    std::int32_t (*splitElement)(const float* features, const std::int32_t* list, std::int32_t n,
                                 std::int32_t rank, float* mean);
};
KT7_DECLARE_KERNELS(MatchingKernels, matchingKernels);

} // namespace kt7
