// The tile pipeline that the four layers share: match, filter, merge.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "include/kt7lib/kt7types.h"
#include "qxenhlib/PyramidLap16s.h"
#include "qxenhlib/layers.h"
#include "qxutils/TileRunner.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// What LayerTiles needs to know beside its planes.
struct LayerJob {
    LayerSearch search;
    const PyramidLap16s* guide; ///< luma's pyramid, to match on its guide; null: match on level 0
    const float* thresholds;    ///< 64, see ImBMFilter::init
    float boost;                ///< see ImBMFilter::init
    std::vector<float> scales;  ///< of the thresholds, by plane
};

/// Filters one pyramid level of one or more planes, tile by tile. Blocks are matched on one image
/// and the match lists serve all planes. The guide is made tile by tile and never stands whole.
class LayerTiles {
  public:
    /// levels: the level of each plane to filter, luma first. Raises layerNotReady when the tiles
    /// can't be set up.
    LayerTiles(LayerJob job, std::span<GIMG<std::int16_t>* const> levels);

    /// Tiles that progress is divided by.
    std::int32_t plannedTiles() const { return blocks_.blocksX * blocks_.blocksY; }

    /// Filters all tiles and advances progress by `step` for every `tilesPerStep` of them, and once
    /// more for a rest. Returns false when the host cancelled; the levels are then untouched.
    bool run(QxProgress* progress, std::int32_t step, std::int32_t tilesPerStep);

    /// Copies the filtered tiles into the levels and lets go of them.
    void store();

  private:
    struct Worker;

    void filterTile(Worker& worker, const TileSlot& slot) const;

    LayerJob job_;
    std::vector<GIMG<std::int16_t>*> levels_;
    std::vector<std::unique_ptr<GIMG<std::int16_t>>> outputs_;
    BlockProcPmPnT blocks_;
};

} // namespace kt7
