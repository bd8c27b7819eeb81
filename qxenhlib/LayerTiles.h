// The tile pipeline that the four layers share: match, filter, merge.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "qxenhlib/Denoise3DCT.h"
#include "qxutils/BlockProcPmPnT.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Filters one pyramid level of one or more planes, tile by tile. Blocks are matched on one image
/// and the match lists serve all planes.
///
/// Every thread of the team takes tiles of its own; finished tiles are merged in the order in which
/// they were handed out, so that seams don't depend on timing, and progress is reported by the
/// calling thread alone.
class LayerTiles {
  public:
    /// What luma blocks are matched on: the level itself, or the guide, which is the noisy level
    /// over the denoised residual below it. The guide is made tile by tile and never stands whole.
    enum class MatchOn { level, guide };

    /// levels: the level of each plane to filter, plane 0 first. Raises layerNotReady when the
    /// tiles can't be set up.
    LayerTiles(const Denoise3DCT& denoiser, std::int32_t layer,
               std::span<GIMG<std::int16_t>* const> levels, MatchOn matchOn);
    ~LayerTiles();
    LayerTiles(const LayerTiles&) = delete;
    LayerTiles& operator=(const LayerTiles&) = delete;

    /// Tiles that progress is divided by.
    std::int32_t plannedTiles() const { return blocks_.blocksX * blocks_.blocksY; }

    /// Filters all tiles and advances progress by `step` for every `tilesPerStep` of them, and once
    /// more for a rest. Returns false when the host cancelled; the levels are then untouched.
    bool run(std::int32_t step, std::int32_t tilesPerStep);

    /// Copies the filtered tiles into the levels and lets go of them.
    void store();

  private:
    struct Worker;
    struct Slot;
    class Conveyor;

    void filterTile(Worker& worker, Slot& slot) const;

    const Denoise3DCT& denoiser_;
    std::int32_t layer_;
    MatchOn matchOn_;
    std::vector<GIMG<std::int16_t>*> levels_;
    std::vector<std::unique_ptr<GIMG<std::int16_t>>> outputs_;
    BlockProcPmPnT blocks_;
};

} // namespace kt7
