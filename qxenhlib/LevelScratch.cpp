#include "qxenhlib/LevelScratch.h"

#include "prim/waveletRows.h"

namespace kt7 {

void LevelScratch::ensureScratch(std::int32_t length, std::int32_t lines) {
    // An odd number of cache lines apart, so that the rows which a filter reads side by side do not
    // fall into the same sets of the cache.
    stride_ = ((length + 15) / 16 | 1) * 16;
    const std::int32_t floats = stride_ * lines;
    if (storage_ && storage_->width >= floats)
        return;
    storage_.reset();
    storage_ = std::make_unique<GIMG<float>>(floats, 1);
}

void RowWindow::start(LevelScratch& scratch, std::int32_t first, std::int32_t splitLine,
                      const float* weights, std::int32_t branches, std::int32_t bandWidth) {
    scratch_ = &scratch;
    first_ = first;
    splitLine_ = splitLine;
    weights_ = weights;
    branches_ = branches;
    bandWidth_ = bandWidth;
    next_ = -rows;
}

void RowWindow::filterRow(std::int32_t y, const float* row) {
    float* const even = scratch_->line(splitLine_);
    float* const odd = scratch_->line(splitLine_ + 1);
    splitPairs(row, even, odd, bandWidth_ + 2 * lineRim);
    // Result n reads sample 2n + 5 - i, which is an even one for odd i.
    const float* src[waveletTaps];
    for (std::int32_t i = 0; i < waveletTaps; ++i)
        src[i] = (i % 2 != 0 ? even : odd) + lineRim + (i % 2 != 0 ? 5 - i : 4 - i) / 2;
    float* dst[4];
    for (std::int32_t branch = 0; branch < branches_; ++branch)
        dst[branch] = lineOf(y, branch);
    weightedSums(src, weights_, dst, branches_, bandWidth_);
}

void RowWindow::columns(std::int32_t n, std::int32_t branch, const float* weights,
                        float* const* dst, std::int32_t sums) const {
    const float* src[waveletTaps];
    for (std::int32_t i = 0; i < waveletTaps; ++i)
        src[i] = lineOf(2 * n + 5 - i, branch);
    weightedSums(src, weights, dst, sums, bandWidth_);
}

void synthesiseColumns(LevelScratch& scratch, const SubbandPlane* const bands[4],
                       const float* columnWeights, std::int32_t m) {
    const std::int32_t width = bands[0]->width(), height = bands[0]->height();
    for (std::int32_t half = 0; half < 2; ++half) {
        const float* src[waveletTaps];
        for (std::int32_t d = 0; d < 5; ++d) {
            const std::int32_t n = (m - 2 + d + 2 * height) % height;
            src[d] = bands[2 * half]->at(0, n);
            src[5 + d] = bands[2 * half + 1]->at(0, n);
        }
        float* const dst[2] = {scratch.line(2 * half) + lineRim,
                               scratch.line(2 * half + 1) + lineRim};
        weightedSums(src, columnWeights, dst, 2, width);
        for (float* const line : dst) {
            for (std::int32_t x = -1; x >= -lineRim; --x)
                line[x] = line[x + width];
            for (std::int32_t x = width; x < width + lineRim; ++x)
                line[x] = line[x - width];
        }
    }
}

void synthesiseRow(LevelScratch& scratch, const float* rowWeights, std::int32_t odd,
                   std::int32_t bandWidth) {
    const float* src[waveletTaps];
    for (std::int32_t d = 0; d < 5; ++d) {
        src[d] = scratch.line(odd) + d;
        src[5 + d] = scratch.line(2 + odd) + d;
    }
    float* const dst[2] = {scratch.line(4), scratch.line(5)};
    weightedSums(src, rowWeights, dst, 2, bandWidth);
}

} // namespace kt7
