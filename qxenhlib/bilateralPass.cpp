#include "qxenhlib/bilateralPass.h"

#include <algorithm>

#include "prim/arith.h"
#include "prim/copy.h"
#include "prim/stats.h"
#include "prim/threshold.h"
#include "qxenhlib/BilateralFilter.h"
#include "qxutils/TileRunner.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

constexpr float sampleLimit = 0.64f;

// 1/245: the value axis then has at most 250 cells, and a cell number fits into 8 bits.
constexpr float leastBin = 0.0040816325f;

// Truncates; what is no number becomes 0, which switches the smoothing off.
std::int32_t cellSize(float range) {
    constexpr float most = 1 << 30;
    return static_cast<std::int32_t>(range > 0.0f ? std::min(range, most) : 0.0f);
}

// More workers each need grids of their own; fine grids would take more memory than the image.
constexpr std::int64_t gridBudget = std::int64_t{256} << 20;

// Near its edge a tile lacks what lies beyond, up to a grid cell (24 pixels at most) away: 16 are
// thrown away, and the eight behind them fade into the neighbour's.
constexpr TileShape smoothingTiles{400, 40, 16};

struct Worker {
    Worker(const BlockProcPmPnT& tiles, std::int32_t cell, float bin) {
        filter.setup(tiles.blockWidth, tiles.blockHeight, 0.0f, 1.0f, cell, bin);
    }

    BilateralFilter filter;
};

// Maps the tile from [low, high] to [0, 1], smooths it and maps it back.
void smoothTile(BilateralFilter& filter, GIMG<float>& tile, float low, float high, float scale) {
    const PrimSize rowSize{tile.width, 1};
    for (std::int32_t y = 0; y < tile.height; ++y) {
        float* row = tile.at(0, y);
        primThresholdLT32fC1I(row, tile.stepBytes, rowSize, low);
        primThresholdGT32fC1I(row, tile.stepBytes, rowSize, high);
        primAddC32fC1I(-low, row, tile.stepBytes, rowSize);
        primMulC32fC1I(scale, row, tile.stepBytes, rowSize);
    }
    filter.filter(tile, tile);
    for (std::int32_t y = 0; y < tile.height; ++y) {
        primMulC32fC1I(1.0f / scale, tile.at(0, y), tile.stepBytes, rowSize);
        primAddC32fC1I(low, tile.at(0, y), tile.stepBytes, rowSize);
    }
}

} // namespace

std::int32_t bilateralPass(GIMG<std::int16_t>& plane, float strength, float range) {
    std::int16_t smallest = 0, largest = 0;
    primMin16sC1(plane.data, plane.stepBytes, plane.roi(), &smallest);
    primMax16sC1(plane.data, plane.stepBytes, plane.roi(), &largest);
    const float low = std::max(-sampleLimit, static_cast<float>(smallest) / 32767.0f);
    const float high = std::min(sampleLimit, static_cast<float>(largest) / 32767.0f);
    if (!(high > low))
        return 1;
    const float scale = 1.0f / (high - low);
    const float span = strength * scale;
    const float bin = span > leastBin ? span : leastBin;

    GIMG<std::int16_t> output(plane.width, plane.height);
    BlockProcPmPnT tiles;
    GIMG<std::int16_t>*const input = &plane, *const target = &output;
    if (!tiles.setup({&input, 1}, {&target, 1}, smoothingTiles))
        raise(QxBase::QXRC::layerNotReady);
    const std::int32_t cell = cellSize(range);
    const std::int64_t bytes = std::max<std::int64_t>(
        1, BilateralFilter::gridBytes(tiles.blockWidth, tiles.blockHeight, 1.0f, cell, bin));
    const auto workers = static_cast<std::int32_t>(std::clamp<std::int64_t>(
        std::min<std::int64_t>(gridBudget / bytes, std::int64_t{tiles.blocksX} * tiles.blocksY), 1,
        maxThreads()));
    runTiles(
        tiles, workers, [&](std::int32_t) { return Worker(tiles, cell, bin); },
        [&](Worker& worker, TileSlot& slot) {
            GIMG<float>& tile = *slot.planes[0];
            tiles.getBlock(slot.x, slot.y, 0, tile);
            smoothTile(worker.filter, tile, low, high, scale);
        });
    primCopy16sC1(output.data, output.stepBytes, plane.data, plane.stepBytes, plane.roi());
    return 1;
}

} // namespace kt7
