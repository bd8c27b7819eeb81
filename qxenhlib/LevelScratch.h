// Line buffers of a wavelet pass, and the two steps along a level that work in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "qxenhlib/SubbandPlane.h"
#include "qxenhlib/waveletFilters.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Cells that a line needs on each side for the filters, in samples of a band.
inline constexpr std::int32_t lineRim = 2;

/// Lines of floats, all of one length, used by one thread at a time. A pass over a level keeps what
/// it needs of each row in them, so no plane is ever transposed or written in between.
class LevelScratch {
  public:
    /// Arranges the storage as `lines` lines of at least `length` floats, contents undefined, one
    /// directly behind the other. Storage only grows, so arranging what has been arranged before
    /// never allocates. Raises noBufferStorage.
    void ensureScratch(std::int32_t length, std::int32_t lines);

    float* line(std::int32_t i) { return storage_->data + std::ptrdiff_t{i} * stride_; }

  private:
    std::unique_ptr<GIMG<float>> storage_;
    std::int32_t stride_ = 0;
};

/// The row-filtered lines that the column filters of one band row read: ten rows of the plane, each
/// as `branches` low or high results of the row filters. Moves down the plane; each row is filtered
/// once.
class RowWindow {
  public:
    static constexpr std::int32_t rows = waveletTaps;

    /// Works in rows * branches lines of `scratch` from line `first` on, and in the two lines
    /// `splitLine` and splitLine + 1 while it filters. weights: `branches` (2 or 4) filters one
    /// after the other. bandWidth: results in a line.
    void start(LevelScratch& scratch, std::int32_t first, std::int32_t splitLine,
               const float* weights, std::int32_t branches, std::int32_t bandWidth);

    /// Takes in the rows up to the last one that band row n reads, 2n + 5. rowFrom(y) gives sample
    /// x = -4 of row y with 2 * bandWidth + 8 samples behind it; y runs from -4 to height + 3. Band
    /// rows must come in ascending order.
    template <class RowFrom>
    void moveTo(std::int32_t n, RowFrom&& rowFrom) {
        if (next_ < 2 * n - 4)
            next_ = 2 * n - 4;
        for (; next_ <= 2 * n + 5; ++next_)
            filterRow(next_, rowFrom(next_));
    }

    /// Runs `sums` (1 or 2) column filters over a branch for band row n.
    void columns(std::int32_t n, std::int32_t branch, const float* weights, float* const* dst,
                 std::int32_t sums) const;

  private:
    float* lineOf(std::int32_t y, std::int32_t branch) const {
        return scratch_->line(first_ + (y + rows) % rows * branches_ + branch);
    }
    void filterRow(std::int32_t y, const float* row);

    LevelScratch* scratch_ = nullptr;
    const float* weights_ = nullptr;
    std::int32_t first_ = 0, splitLine_ = 0, branches_ = 0, bandWidth_ = 0;
    std::int32_t next_ = 0;
};

/// Lines that synthesiseRows works in.
inline constexpr std::int32_t synthesisLines = 6;

/// Synthesises rows 2m and 2m + 1 of the plane whose four bands, kinds 1 to 4 of one tree, are
/// given, and leaves them as even and odd samples in lines 4 and 5 of `scratch`, ready for rowOut
/// to join: called as rowOut(y, even, odd). The bands count as periodic; their borders are not
/// read. columnWeights, rowWeights: the two outputs of the tree along y and along x.
template <class RowOut>
void synthesiseRows(LevelScratch& scratch, const SubbandPlane* const bands[4],
                    const float* columnWeights, const float* rowWeights, std::int32_t m,
                    RowOut&& rowOut);

/// The two halves of synthesiseRows: lines 0, 1 take the low results of rows 2m, 2m + 1 along y and
/// lines 2, 3 the high ones, with their rims; then one row along x.
void synthesiseColumns(LevelScratch& scratch, const SubbandPlane* const bands[4],
                       const float* columnWeights, std::int32_t m);
void synthesiseRow(LevelScratch& scratch, const float* rowWeights, std::int32_t odd,
                   std::int32_t bandWidth);

template <class RowOut>
void synthesiseRows(LevelScratch& scratch, const SubbandPlane* const bands[4],
                    const float* columnWeights, const float* rowWeights, std::int32_t m,
                    RowOut&& rowOut) {
    synthesiseColumns(scratch, bands, columnWeights, m);
    for (std::int32_t odd = 0; odd < 2; ++odd) {
        synthesiseRow(scratch, rowWeights, odd, bands[0]->width());
        rowOut(2 * m + odd, scratch.line(4), scratch.line(5));
    }
}

} // namespace kt7
