#include "qxutils/BlockProcPmPnT.h"

#include <algorithm>

#include "prim/convert.h"
#include "prim/set.h"
#include "prim/tileRows.h"

namespace kt7 {
namespace {

std::int32_t even(std::int32_t v) {
    return v + (v & 1);
}

} // namespace

BlockLayout chooseBlockCount(std::int32_t size, std::int32_t block, std::int32_t overlap) {
    const float roomy = static_cast<float>(block) * 1.25f;
    if (size < static_cast<std::int32_t>(roomy))
        return {1, size, size};
    if (size < static_cast<std::int32_t>(2.0f * roomy)) {
        const std::int32_t half = size / 2;
        return {2, even(overlap + half), even(half)};
    }
    const auto count = static_cast<std::int32_t>(
        static_cast<double>(size) / static_cast<double>(block - overlap) + 0.5);
    const std::int32_t whole = size / count;
    const auto rest = static_cast<std::int32_t>(
        (std::int64_t{size} + overlap - std::int64_t{count} * whole) / count);
    const std::int32_t step = rest > 0 ? whole + rest : whole;
    return {count, even(overlap + step), step};
}

std::int32_t BlockProcPmPnT::setup(std::int32_t newInputCount,
                                   const GIMG<std::int16_t>* const* newInputs,
                                   std::int32_t newOutputCount,
                                   GIMG<std::int16_t>* const* newOutputs, std::int32_t blockW,
                                   std::int32_t blockH, std::int32_t newOverlap,
                                   std::int32_t newFeather) {
    if (newInputCount < 0 || newInputCount > mostPlanes)
        return 0;
    if (newOutputCount < 1 || newOutputCount > mostPlanes)
        return 0;
    const std::int32_t bandLines = std::max(0, newOverlap - 2 * newFeather);
    fade_.resize(static_cast<std::size_t>(bandLines));
    for (std::int32_t i = 0; i < bandLines; ++i)
        fade_[static_cast<std::size_t>(i)] =
            std::clamp(static_cast<float>(i) / static_cast<float>(bandLines), 0.0f, 1.0f);
    fadeReverse_.assign(fade_.rbegin(), fade_.rend());

    overlap = newOverlap;
    feather = newFeather;
    inputCount = newInputCount;
    outputCount = newOutputCount;
    std::copy_n(newInputs, newInputCount, inputs);
    std::copy_n(newOutputs, newOutputCount, outputs);
    for (std::int32_t i = 0; i < outputCount; ++i)
        primSet16sC1(unwritten, outputs[i]->data, outputs[i]->stepBytes, outputs[i]->roi());
    const BlockLayout across = chooseBlockCount(outputs[0]->width, blockW, overlap);
    const BlockLayout down = chooseBlockCount(outputs[0]->height, blockH, overlap);
    blocksX = across.count;
    blockWidth = across.blockSize;
    stepX = across.step;
    blocksY = down.count;
    blockHeight = down.blockSize;
    stepY = down.step;
    cursorX = cursorY = 0;
    return 1;
}

bool BlockProcPmPnT::getABlockLoc(std::int32_t* x, std::int32_t* y) {
    const std::scoped_lock lock(cursorMutex_);
    const std::int32_t width = outputs[0]->width;
    const std::int32_t height = outputs[0]->height;
    if (cursorY >= height)
        return false;
    *x = cursorX;
    *y = cursorY;
    if (cursorX + blockWidth < width) {
        cursorX = std::max(0, std::min(cursorX + stepX, width - blockWidth));
    } else if (cursorY + blockHeight < height) {
        cursorX = 0;
        cursorY = std::max(0, std::min(cursorY + stepY, height - blockHeight));
    } else {
        cursorX = width;
        cursorY = height;
    }
    return true;
}

void BlockProcPmPnT::getBlock(std::int32_t x, std::int32_t y, std::int32_t input,
                              GIMG<float>& tile) const {
    const GIMG<std::int16_t>& plane = *inputs[input];
    for (std::int32_t row = 0; row < tile.height; ++row)
        loadTileRow(plane.at(x, y + row), inScale, tile.at(0, row), tile.width);
}

void BlockProcPmPnT::saveOutBlock(std::int32_t x, std::int32_t y, std::int32_t output,
                                  GIMG<float>& tile) {
    for (std::int32_t row = 0; row < tile.height; ++row)
        holdTileRow(outScale, 32767.0f, tile.at(0, row), tile.width);

    const std::scoped_lock lock(mergeMutex_);
    GIMG<std::int16_t> outputView = viewOf(*outputs[output], x, y, blockWidth, blockHeight);
    mergeCore(outputView, tile);
    if (feather < overlap - feather)
        mergeSeams(outputView, tile);
}

void BlockProcPmPnT::mergeCore(GIMG<std::int16_t>& outputView, GIMG<float>& tile) const {
    const RoiScope viewRoi(outputView, overlap - feather);
    const RoiScope tileRoi(tile, overlap - feather);
    primConvert32f16sC1(tile.data, tile.stepBytes, outputView.data, outputView.stepBytes,
                        outputView.roi(), primNearest);
}

// Bands are crossed in the order top, bottom, left, right, each over the tile's full length, so
// that a sample in a corner goes through two fades.
void BlockProcPmPnT::mergeSeams(GIMG<std::int16_t>& outputView, const GIMG<float>& tile) const {
    const auto lines = static_cast<std::int32_t>(fade_.size());
    const auto fadeRow = [&](std::int32_t row, const float& weight) {
        fadeTileRow(tile.at(0, row), &weight, 0, unwritten, outputView.at(0, row), blockWidth);
    };
    for (std::int32_t i = 0; i < lines; ++i)
        fadeRow(feather + i, fade_[static_cast<std::size_t>(i)]);
    for (std::int32_t i = 0; i < lines; ++i)
        fadeRow(blockHeight - 1 - feather - i, fade_[static_cast<std::size_t>(i)]);
    const std::int32_t right = blockWidth - feather - lines;
    for (std::int32_t row = 0; row < blockHeight; ++row) {
        fadeTileRow(tile.at(feather, row), fade_.data(), 1, unwritten, outputView.at(feather, row),
                    lines);
        fadeTileRow(tile.at(right, row), fadeReverse_.data(), 1, unwritten,
                    outputView.at(right, row), lines);
    }
}

} // namespace kt7
