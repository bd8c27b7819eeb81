// The four layers that match and filter block groups, as rows of a table.
#pragma once

#include <cstdint>

#include "qxutils/BlockProcPmPnT.h"

namespace kt7 {

/// How thoroughly a layer looks for similar blocks.
struct LayerSearch {
    std::int32_t trees;    ///< of the matching forest
    std::int32_t checks;   ///< candidates that one search may look at
    std::int32_t gridStep; ///< pixels between reference blocks
};

/// A layer: which level of the pyramids it filters, and how.
struct Layer {
    std::int32_t level; ///< Laplacian level; pyramidDepth is the low-pass residual
    bool allPlanes;     ///< or luma alone
    /// Blocks are matched on the noisy luma level over the denoised residual below it, which is
    /// folded into the level afterwards; or on the level itself.
    bool guided;
    LayerSearch fast, full;
    std::int32_t tilesPerStep; ///< tiles that one step of progress stands for
    float stepShare;           ///< of the layer's budget, in steps that stand for one tile each
};

inline constexpr std::int32_t pyramidDepth = 3;

/// Coarse levels are small, and both modes search them with the same care. Progress of the luma
/// layers counts pairs of tiles, hence the 2; a single last tile counts as a pair too. Of the
/// finest one 0.94 of the budget goes over its pairs, and folding and smoothing have the rest.
inline constexpr Layer dnBaseLayer{3, true, false, {2, 32, 3}, {2, 32, 3}, 1, 1.0f};
inline constexpr Layer dnLayer2{2, true, true, {2, 32, 3}, {2, 32, 3}, 1, 1.0f};
inline constexpr Layer dnLayer1G{1, false, true, {2, 24, 3}, {4, 32, 2}, 2, 2.0f};
inline constexpr Layer dnLayer0G{0, false, true, {1, 16, 3}, {2, 24, 2}, 2, 1.88f};

/// In the order in which they run, coarse to fine.
inline constexpr const Layer* layers[] = {&dnBaseLayer, &dnLayer2, &dnLayer1G, &dnLayer0G};

/// Tiles small enough for a tile's forest to stay in the cache. What matching sees differs from
/// tile to tile, so a seam of four samples hides it; the outermost two have few blocks over them.
inline constexpr TileShape layerTiles{128, 8, 2};

} // namespace kt7
