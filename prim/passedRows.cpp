// The functions that pass rows on to the chosen kernels as they are.
#include "prim/kernels/KernelTable.h"

namespace kt7 {

void rgb8ToYuvRow(const std::uint8_t* rgb, const std::int16_t* const tables[3], std::int16_t* y,
                  std::int16_t* u, std::int16_t* v, std::int32_t n) {
    colourKernels->forward8(rgb, tables, y, u, v, n);
}

void rgb16ToYuvRow(const std::uint16_t* rgb, const std::int16_t* const tables[3], std::int16_t* y,
                   std::int16_t* u, std::int16_t* v, std::int32_t n) {
    colourKernels->forward16(rgb, tables, y, u, v, n);
}

void yuvToRgb8Row(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v,
                  const std::int16_t* const tables[3], std::uint8_t* rgb, std::int32_t n) {
    colourKernels->backward8(y, u, v, tables, rgb, n);
}

void yuvToRgb16Row(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v,
                   const std::int16_t* const tables[3], std::uint16_t* rgb, std::int32_t n) {
    colourKernels->backward16(y, u, v, tables, rgb, n);
}

void gridPositions(const float* samples, float low, float high, float scale, float offset,
                   std::int32_t mostCell, std::uint8_t* cells, float* fractions, std::int32_t n) {
    gridKernels->positions(samples, low, high, scale, offset, mostCell, cells, fractions, n);
}

void splatRow(const float* values, const std::int32_t* columns, const std::uint8_t* cells,
              float* valueSlice, float* countSlice, std::int32_t n) {
    gridKernels->splat(values, columns, cells, valueSlice, countSlice, n);
}

void blurQuotientRow(const float* const values[3], const float* const counts[3], float* dst,
                     std::int32_t n) {
    gridKernels->blurQuotient(values, counts, dst, n);
}

void interpolateRow(const float* nearSlice, const float* farSlice, std::int32_t columnStride,
                    const std::int32_t* columns, const float* columnFractions,
                    const std::uint8_t* cells, const float* fractions, float rowFraction,
                    float* dst, std::int32_t n) {
    gridKernels->interpolate(nearSlice, farSlice, columnStride, columns, columnFractions, cells,
                             fractions, rowFraction, dst, n);
}

void filterGroups(const GroupFilterJob& job) {
    groupKernels->filter(job);
}

void normaliseRow(const float* weights, std::ptrdiff_t weightsStride, const float* sums,
                  float floor, float* scratch, float* image, std::int32_t n) {
    groupKernels->normalise(weights, weightsStride, sums, floor, scratch, image, n);
}

void featureRow(const float* means, std::ptrdiff_t meansStride, float dcScale, float* features,
                std::int32_t n) {
    matchingKernels->features(means, meansStride, dcScale, features, n);
}

std::int32_t indexOfLeast(const float* keys, std::int32_t n) {
    return matchingKernels->leastOf(keys, n);
}

std::int32_t splitElement(const float* features, const std::int32_t* list, std::int32_t n,
                          std::int32_t rank, float* mean) {
    return matchingKernels->split(features, list, n, rank, mean);
}

void sumFlatRow(const std::uint8_t* gradients, std::int32_t limit, const float* guide, float low,
                float high, const float* response, std::int32_t n, FlatSums* sums) {
    noiseKernels->sumFlat(gradients, limit, guide, low, high, response, n, sums);
}

void reducePyramidRow(const std::int16_t* const rows[5], std::int32_t width, std::int32_t outWidth,
                      std::int32_t* scratch, std::int16_t* dst) {
    pyramidKernels->reduceRow(rows, width, outWidth, scratch, dst);
}

void expandPyramidRow(const std::int16_t* above, const std::int16_t* here,
                      const std::int16_t* below, std::int32_t srcWidth, std::int32_t odd,
                      std::int32_t* scratch, std::int16_t* dst, std::int32_t width) {
    pyramidKernels->expandRow(above, here, below, srcWidth, odd, scratch, dst, width);
}

void toScreen8Row(const std::uint8_t* rgb, std::uint8_t* bgra, std::int32_t n, bool streamed) {
    previewKernels->toScreen8(rgb, bgra, n, streamed);
}

void toScreen16Row(const std::uint16_t* rgb, std::uint8_t* bgra, std::int32_t n, bool streamed) {
    previewKernels->toScreen16(rgb, bgra, n, streamed);
}

void fromScreenRow(const std::uint8_t* bgra, std::uint8_t* rgb, std::int32_t n) {
    previewKernels->fromScreen(bgra, rgb, n);
}

void intoScreenRow(const std::uint8_t* rgb, std::uint8_t* bgra, std::int32_t n) {
    previewKernels->intoScreen(rgb, bgra, n);
}

void splitGDbDrRow(const std::uint8_t* rgb, std::uint8_t* g, std::uint8_t* db, std::uint8_t* dr,
                   std::int32_t n) {
    previewKernels->toGDbDr(rgb, g, db, dr, n);
}

void greyToRgbRow(const std::uint8_t* grey, std::uint8_t* rgb, std::int32_t n) {
    previewKernels->fromGrey(grey, rgb, n);
}

void loadTileRow(const std::int16_t* src, float scale, float* dst, std::int32_t n) {
    tileKernels->load(src, scale, dst, n);
}

void holdTileRow(float scale, float limit, float* row, std::int32_t n) {
    tileKernels->hold(scale, limit, row, n);
}

void fadeTileRow(const float* src, const float* weight, std::int32_t weightStride,
                 std::int16_t unwritten, std::int16_t* dst, std::int32_t n) {
    tileKernels->fade(src, weight, weightStride, unwritten, dst, n);
}

void weightedSums(const float* const* src, const float* weights, float* const* dst,
                  std::int32_t sums, std::int32_t n) {
    waveletKernels->sums(src, weights, dst, sums, n);
}

void splitPairs(const float* row, float* even, float* odd, std::int32_t n) {
    waveletKernels->split(row, even, odd, n);
}

void joinPairs(const float* even, const float* odd, float* row, std::int32_t n) {
    waveletKernels->join(even, odd, row, n);
}

void gainRows(const float* const* trees, float threshold, float slope, float* gain0, float* gain1,
              std::int32_t n) {
    waveletKernels->gains(trees, threshold, slope, gain0, gain1, n);
}

void shrinkByGuide(const float* const* trees, const float* gain0, const float* gain1, float cap,
                   float* dst, std::int32_t n) {
    waveletKernels->byGuide(trees, gain0, gain1, cap, dst, n);
}

void shrinkByOwn(const float* const* trees, float threshold, float slope, float cap, float* dst,
                 std::int32_t n) {
    waveletKernels->byOwn(trees, threshold, slope, cap, dst, n);
}

void shrinkByBoth(const float* const* trees, float threshold, float slope, const float* gain0,
                  const float* gain1, float cap, float* dst, std::int32_t n) {
    waveletKernels->byBoth(trees, threshold, slope, gain0, gain1, cap, dst, n);
}

} // namespace kt7
