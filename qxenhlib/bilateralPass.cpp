#include "qxenhlib/bilateralPass.h"

#include <algorithm>

#include "prim/arith.h"
#include "prim/copy.h"
#include "prim/stats.h"
#include "prim/threshold.h"
#include "qxenhlib/BilateralFilter.h"
#include "qxutils/BlockProcPmPnT.h"
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
    const GIMG<std::int16_t>* const inputs[] = {&plane};
    GIMG<std::int16_t>* const outputs[] = {&output};
    if (tiles.setup(1, inputs, 1, outputs, 400, 400, 40, 16) != 1)
        raise(QxBase::QXRC::layerNotReady);
    BilateralFilter filter;
    filter.setup(tiles.blockWidth, tiles.blockHeight, 0.0f, 1.0f, cellSize(range), bin);
    GIMG<float> tile(tiles.blockWidth, tiles.blockHeight);
    const PrimSize rowSize{tile.width, 1};
    std::int32_t x = 0, y = 0;
    while (tiles.getABlockLoc(&x, &y)) {
        tiles.getBlock(x, y, 0, tile);
        parallelRows(tile.height, [&](std::int32_t row) {
            float* samples = tile.at(0, row);
            primThresholdLT32fC1I(samples, tile.stepBytes, rowSize, low);
            primThresholdGT32fC1I(samples, tile.stepBytes, rowSize, high);
            primAddC32fC1I(-low, samples, tile.stepBytes, rowSize);
            primMulC32fC1I(scale, samples, tile.stepBytes, rowSize);
        });
        filter.filter(tile, tile);
        parallelRows(tile.height, [&](std::int32_t row) {
            primMulC32fC1I(1.0f / scale, tile.at(0, row), tile.stepBytes, rowSize);
            primAddC32fC1I(low, tile.at(0, row), tile.stepBytes, rowSize);
        });
        tiles.saveOutBlock(x, y, 0, tile);
    }
    primCopy16sC1(output.data, output.stepBytes, plane.data, plane.stepBytes, plane.roi());
    return 1;
}

} // namespace kt7
