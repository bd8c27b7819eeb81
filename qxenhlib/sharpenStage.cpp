#include "qxenhlib/sharpenStage.h"

#include <algorithm>

#include "prim/arith.h"
#include "prim/copy.h"
#include "prim/threshold.h"
#include "qxenhlib/LRDeconv.h"
#include "qxutils/TileRunner.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/QXRC.h"

namespace kt7 {
namespace {

// Deconvolution multiplies, and so can't leave 0; lifted by this much, black tiles come back as
// black and dark noise isn't amplified.
constexpr float pedestal = 0.01f;

// The kernel reaches four pixels and each iteration carries what is wrong at a tile's edge further
// in; twelve are thrown away, the eight behind them fade.
constexpr TileShape sharpenTiles{240, 32, 12};

struct Worker {
    Worker(const BlockProcPmPnT& tiles, float sigma, std::int32_t iterations)
        : blurred(tiles.blockWidth, tiles.blockHeight) {
        deconvolution.init(sigma, iterations, -1.0f);
    }

    LRDeconv deconvolution;
    GIMG<float> blurred;
};

} // namespace

void sharpenLuma(GIMG<std::int16_t>& luma, float sharpen) {
    GIMG<std::int16_t> sharpened(luma.width, luma.height);
    GIMG<std::int16_t>*const input = &luma, *const output = &sharpened;
    BlockProcPmPnT tiles;
    if (!tiles.setup({&input, 1}, {&output, 1}, sharpenTiles))
        raise(QxBase::QXRC::layerNotReady);

    // Every photo is a little softer than its pixels.
    const float sigma = sharpen + 0.3f;
    const auto iterations = static_cast<std::int32_t>(std::clamp(sigma * 10.0f, 3.0f, 20.0f));
    runTiles(
        tiles, std::min(maxThreads(), tiles.blocksX * tiles.blocksY),
        [&](std::int32_t) { return Worker(tiles, sigma, iterations); },
        [&](Worker& worker, TileSlot& slot) {
            GIMG<float>&blurred = worker.blurred, &sharp = *slot.planes[0];
            tiles.getBlock(slot.x, slot.y, 0, blurred);
            primAddC32fC1I(pedestal, blurred.data, blurred.stepBytes, blurred.roi());
            primThresholdLT32fC1I(blurred.data, blurred.stepBytes, blurred.roi(), pedestal);
            worker.deconvolution.apply(blurred, sharp);
            primAddC32fC1I(-pedestal, sharp.data, sharp.stepBytes, sharp.roi());
        });
    parallelRows(luma.height, [&](std::int32_t y) {
        primCopy16sC1(sharpened.at(0, y), sharpened.stepBytes, luma.at(0, y), luma.stepBytes,
                      {luma.width, 1});
    });
}

} // namespace kt7
