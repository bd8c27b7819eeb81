#include "qxenhlib/sharpenStage.h"

#include <algorithm>

#include "prim/arith.h"
#include "prim/copy.h"
#include "prim/threshold.h"
#include "qxenhlib/LRDeconv.h"
#include "qxutils/BlockProcPmPnT.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

// Deconvolution multiplies, and so can't leave 0; lifted by this much, black tiles come back as
// black and dark noise isn't amplified.
constexpr float pedestal = 0.01f;

void sharpenTiles(BlockProcPmPnT& tiles, float sigma, std::int32_t iterations) {
    LRDeconv deconvolution;
    deconvolution.init(sigma, iterations, -1.0f);
    GIMG<float> blurred(tiles.blockWidth, tiles.blockHeight);
    GIMG<float> sharp(tiles.blockWidth, tiles.blockHeight);
    for (std::int32_t x = 0, y = 0; tiles.getABlockLoc(&x, &y);) {
        tiles.getBlock(x, y, 0, blurred);
        primAddC32fC1I(pedestal, blurred.data, blurred.stepBytes, blurred.roi());
        primThresholdLT32fC1I(blurred.data, blurred.stepBytes, blurred.roi(), pedestal);
        deconvolution.apply(blurred, sharp);
        primAddC32fC1I(-pedestal, sharp.data, sharp.stepBytes, sharp.roi());
        tiles.saveOutBlock(x, y, 0, sharp);
    }
}

} // namespace

void sharpenLuma(GIMG<std::int16_t>& luma, float sharpen) {
    constexpr std::int32_t block = 240, overlap = 32, feather = 12;
    GIMG<std::int16_t> sharpened(luma.width, luma.height);
    const GIMG<std::int16_t>* const inputs[] = {&luma};
    GIMG<std::int16_t>* const outputs[] = {&sharpened};
    BlockProcPmPnT tiles;
    tiles.setup(1, inputs, 1, outputs, block, block, overlap, feather);

    const float sigma = sharpen + 0.3f;
    const auto iterations = static_cast<std::int32_t>(std::clamp(sigma * 10.0f, 3.0f, 20.0f));
    parallelWorkers(std::min(maxThreads(), tiles.blocksX * tiles.blocksY),
                    [&](std::int32_t) { sharpenTiles(tiles, sigma, iterations); });
    parallelRows(luma.height, [&](std::int32_t y) {
        primCopy16sC1(sharpened.at(0, y), sharpened.stepBytes, luma.at(0, y), luma.stepBytes,
                      {luma.width, 1});
    });
}

} // namespace kt7
