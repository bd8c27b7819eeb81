// One level of the chroma denoiser: analysis, gains and the way back to tree (1, 1) in one sweep.
#pragma once

#include <cstdint>

#include "qxenhlib/CDTDWT2d.h"
#include "qxenhlib/LevelScratch.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Gains of one level. A coefficient of magnitude M has gain (M - threshold) * slope, held to
/// 0..cap; with both sources the larger of the two, taken before it is held.
struct LevelGains {
    bool byLuma = false;   ///< the luma magnitude takes part
    bool byChroma = false; ///< the plane's own magnitude takes part
    float cap = 1.0f;
    float threshold[3] = {}; ///< by plane: luma, Cb, Cr
    float slope[3] = {};
};

/// Lines and row windows of one thread, kept from tile to tile.
struct LevelWorker {
    LevelScratch scratch;
    RowWindow windows[3][4];
};

/// Takes the planes of one level apart by rows, never holding a detail band of luma or of a tree
/// that nothing is rebuilt from: what is left behind are the low-pass bands that the next level
/// reads and tree (1, 1) of the chroma planes, gains applied. Only the row filters of the first
/// level serve both trees of the other direction; below it each tree has its own input.
class ChromaLevelPass {
  public:
    /// planes: the three tiles, luma first, read at level 0; transforms: holders of the bands, of
    /// one size and level count. lumaGoesOn: a coarser level reads luma.
    ChromaLevelPass(const GIMG<float>* const planes[3], CDTDWT2d* const transforms[3],
                    std::int32_t level, const LevelGains& gains, bool lumaGoesOn);

    /// Rows of the level's bands.
    std::int32_t bandRows() const { return bandHeight_; }

    /// Makes a worker ready for this pass.
    void start(LevelWorker& worker) const;

    /// Does band rows first to last - 1. Different workers may do different rows at the same time;
    /// one worker goes in ascending order.
    void run(LevelWorker& worker, std::int32_t first, std::int32_t last) const;

  private:
    struct TreeWork {
        bool low, detail;
    };

    const float* fetchRow(LevelWorker& worker, std::int32_t plane, std::int32_t tree,
                          std::int32_t y) const;
    void filterColumns(LevelWorker& worker, std::int32_t branch, std::int32_t n) const;
    void shrinkRow(LevelWorker& worker, SubbandKind kind, std::int32_t slot, std::int32_t n) const;

    const GIMG<float>* planes_[3];
    CDTDWT2d* transforms_[3];
    std::int32_t level_;
    LevelGains gains_;
    TreeWork work_[3][4] = {};
    std::int32_t bandWidth_, bandHeight_;
};

} // namespace kt7
