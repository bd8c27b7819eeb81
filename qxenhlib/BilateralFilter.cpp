#include "qxenhlib/BilateralFilter.h"

#include <algorithm>
#include <bit>
#include <exception>
#include <utility>

#include "prim/filter.h"
#include "prim/gridRows.h"
#include "prim/set.h"

namespace kt7 {
namespace {

constexpr std::uint32_t guardWord = 0x6D6D6D6D;

// Keeps the quotient of empty cells defined; below what any pixel could notice.
constexpr float emptyCount = 1.0e-11f;

std::unique_ptr<float[]> makeGrid(std::ptrdiff_t cells) {
    auto grid = std::make_unique_for_overwrite<float[]>(static_cast<std::size_t>(cells) + 1);
    grid[static_cast<std::size_t>(cells)] = std::bit_cast<float>(guardWord);
    return grid;
}

bool overrun(const std::unique_ptr<float[]>& grid, std::ptrdiff_t cells) {
    return grid && std::bit_cast<std::uint32_t>(grid[static_cast<std::size_t>(cells)]) != guardWord;
}

// Cells that `length` pixels take, with two before and after them for blur and interpolation.
std::int32_t cellsAlong(std::int32_t length, std::int32_t sample) {
    return static_cast<std::int32_t>((std::int64_t{length} + sample - 1) / sample) + 4;
}

std::int32_t cellsAcrossRange(float span, float sample) {
    // Far more than 8 bits can number, so that only a range gone wrong is held here.
    constexpr double mostBins = 1 << 16;
    const double quotient = static_cast<double>(span) / static_cast<double>(sample);
    const auto whole =
        static_cast<std::int32_t>(quotient > 0.0 ? std::min(quotient, mostBins) : 0.0);
    return whole + (span > static_cast<float>(whole) * sample ? 1 : 0) + 4;
}

} // namespace

BilateralFilter::~BilateralFilter() noexcept(false) { // NOLINT(bugprone-exception-escape)
    // What wrote over a guard may have hurt the results, so the call must fail, and the end of the
    // filter's life is the last time to look. A second exception while one is under way would end
    // the process.
    if (std::uncaught_exceptions() == 0)
        checkGuards();
}

void BilateralFilter::checkGuards() const {
    const std::ptrdiff_t cells = sliceCells() * gridY;
    if (overrun(countGrid, cells) || overrun(valueGrid, cells) || overrun(scratchGrid, cells))
        raise(gridOverrun);
}

std::int64_t BilateralFilter::gridBytes(std::int32_t tileWidth, std::int32_t tileHeight,
                                        float range, std::int32_t spatialSample,
                                        float rangeSample) {
    if (spatialSample < 2)
        return 0;
    return std::int64_t{3 * sizeof(float)} * cellsAlong(tileWidth, spatialSample) *
           cellsAlong(tileHeight, spatialSample) * cellsAcrossRange(range, rangeSample);
}

std::int32_t BilateralFilter::setup(std::int32_t tileWidth, std::int32_t tileHeight,
                                    float newRangeMin, float newRangeMax,
                                    std::int32_t newSpatialSample, float newRangeSample) {
    if (newSpatialSample < 2)
        return 5;
    const std::int32_t newX = cellsAlong(tileWidth, newSpatialSample);
    const std::int32_t newY = cellsAlong(tileHeight, newSpatialSample);
    const std::int32_t newZ = cellsAcrossRange(newRangeMax - newRangeMin, newRangeSample);
    const bool fits = scratchGrid && newX == gridX && newY == gridY && newZ == gridZ &&
                      tileWidth == width && tileHeight == height;
    if (!fits) {
        checkGuards();
        countGrid.reset();
        valueGrid.reset();
        scratchGrid.reset();
        width = height = 0;
        gridX = newX;
        gridY = newY;
        gridZ = newZ;
        const std::ptrdiff_t cells = sliceCells() * gridY;
        binImage = std::make_unique<GIMG<std::uint8_t>>(tileWidth, tileHeight);
        workB = std::make_unique<GIMG<float>>(tileWidth, tileHeight);
        const auto pixels = static_cast<std::size_t>(tileWidth);
        splatColumns_ = std::make_unique_for_overwrite<std::int32_t[]>(pixels);
        interpColumns_ = std::make_unique_for_overwrite<std::int32_t[]>(pixels);
        columnFractions_ = std::make_unique_for_overwrite<float[]>(pixels);
        countGrid = makeGrid(cells);
        valueGrid = makeGrid(cells);
        scratchGrid = makeGrid(cells);
    }
    width = tileWidth;
    height = tileHeight;
    rangeMin = newRangeMin;
    rangeMax = newRangeMax;
    spatialSample = newSpatialSample;
    rangeSample = newRangeSample;
    placeColumns();
    return 0;
}

// A pixel reads from half a cell before the one that it falls into: cell centres then lie in the
// middle of their pixels.
void BilateralFilter::placeColumns() {
    const float perCell = static_cast<float>(spatialSample);
    for (std::int32_t x = 0; x < width; ++x) {
        const auto i = static_cast<std::size_t>(x);
        splatColumns_[i] = gridZ * (padXY + 1 + x / spatialSample);
        const float p = static_cast<float>(x) / perCell + (static_cast<float>(padXY) + 0.5f);
        const auto whole = static_cast<std::int32_t>(p);
        interpColumns_[i] = gridZ * whole;
        columnFractions_[i] = p - static_cast<float>(whole);
    }
}

std::int32_t BilateralFilter::filter(GIMG<float>& values, const GIMG<float>& edges) {
    const auto isTile = [&](const GIMG<float>& image) {
        return image.width == width && image.height == height;
    };
    if (!scratchGrid || !isTile(values) || !isTile(edges))
        return 2;
    buildGrid(values, edges);
    interpGrid(values, edges);
    return 0;
}

// Slices pass through the three grids as follows: pixels are summed into valueGrid and countGrid;
// within slices, values are blurred into scratchGrid and counts into the slice of valueGrid that
// this frees; the blur across slices divides into countGrid, which then changes places with
// valueGrid.
void BilateralFilter::buildGrid(const GIMG<float>& values, const GIMG<float>& edges) {
    for (std::int32_t y = 0; y < gridY; ++y) {
        // The slices next to the outermost repeat their inner neighbours; nobody reads them.
        if (y == 1 || y == gridY - 2)
            continue;
        float* valueSlice = valueGrid.get() + sliceCells() * y;
        float* countSlice = countGrid.get() + sliceCells() * y;
        primSet32f(0.0f, valueSlice, gridX * gridZ);
        primSet32f(emptyCount, countSlice, gridX * gridZ);
        splatSlice(y, values, edges);
        blurSlice(valueSlice, scratchGrid.get() + sliceCells() * y);
        blurSlice(countSlice, valueSlice);
    }
    for (std::int32_t y = 1; y < gridY - 1; ++y)
        quotientSlice(y);
    std::swap(valueGrid, countGrid);
}

void BilateralFilter::splatSlice(std::int32_t y, const GIMG<float>& values,
                                 const GIMG<float>& edges) {
    const std::int64_t top = std::int64_t{y - padXY - 1} * spatialSample;
    if (top < 0 || top >= height)
        return;
    const auto bottom =
        static_cast<std::int32_t>(std::min<std::int64_t>(top + spatialSample, height));
    const float offset = static_cast<float>(padZ + 1);
    for (auto row = static_cast<std::int32_t>(top); row < bottom; ++row) {
        std::uint8_t* cells = binImage->at(0, row);
        gridPositions(edges.at(0, row), rangeMin, rangeMax, rangeScale(), offset,
                      std::min(gridZ - 2, 255), cells, nullptr, width);
        splatRow(values.at(0, row), splatColumns_.get(), cells, valueGrid.get() + sliceCells() * y,
                 countGrid.get() + sliceCells() * y, width);
    }
}

// The cells next to the outermost take what lies inside them; that overwrites the highest value
// cell.
void BilateralFilter::replicateSliceEdges(float* slice) const {
    const auto rowOf = [&](std::int32_t x) { return slice + std::ptrdiff_t{x} * gridZ; };
    std::copy_n(rowOf(2) + 1, gridZ - 2, rowOf(1) + 1);
    std::copy_n(rowOf(gridX - 3) + 1, gridZ - 2, rowOf(gridX - 2) + 1);
    for (std::int32_t x = 1; x < gridX - 1; ++x) {
        float* row = rowOf(x);
        row[1] = row[2];
        row[gridZ - 2] = row[gridZ - 3];
    }
}

void BilateralFilter::blurSlice(float* src, float* dst) const {
    replicateSliceEdges(src);
    const std::ptrdiff_t inner = gridZ + 1;
    const auto step = static_cast<std::int32_t>(gridZ * sizeof(float));
    primFilterGauss32fC1(src + inner, step, dst + inner, step, {gridZ - 2, gridX - 2}, 33);
}

void BilateralFilter::quotientSlice(std::int32_t y) {
    std::ptrdiff_t from[3];
    for (std::int32_t i = 0; i < 3; ++i) {
        const std::int32_t slice = y + i - 1;
        from[i] = sliceCells() * (slice == 1 ? 2 : slice == gridY - 2 ? gridY - 3 : slice);
    }
    for (std::int32_t x = 1; x < gridX - 1; ++x) {
        const std::ptrdiff_t cell = std::ptrdiff_t{x} * gridZ + 1;
        const float* const values[3] = {scratchGrid.get() + from[0] + cell,
                                        scratchGrid.get() + from[1] + cell,
                                        scratchGrid.get() + from[2] + cell};
        const float* const counts[3] = {valueGrid.get() + from[0] + cell,
                                        valueGrid.get() + from[1] + cell,
                                        valueGrid.get() + from[2] + cell};
        blurQuotientRow(values, counts, countGrid.get() + sliceCells() * y + cell, gridZ - 2);
    }
}

void BilateralFilter::interpGrid(GIMG<float>& values, const GIMG<float>& edges) {
    const float offset = static_cast<float>(padZ) + 0.5f;
    const float perCell = static_cast<float>(spatialSample);
    for (std::int32_t row = 0; row < height; ++row) {
        gridPositions(edges.at(0, row), rangeMin, rangeMax, rangeScale(), offset,
                      std::min(gridZ - 3, 255), binImage->at(0, row), workB->at(0, row), width);
        const float p = static_cast<float>(row) / perCell + (static_cast<float>(padXY) + 0.5f);
        const auto whole = static_cast<std::int32_t>(p);
        const float* nearSlice = valueGrid.get() + sliceCells() * whole;
        interpolateRow(nearSlice, nearSlice + sliceCells(), gridZ, interpColumns_.get(),
                       columnFractions_.get(), binImage->at(0, row), workB->at(0, row),
                       p - static_cast<float>(whole), values.at(0, row), width);
    }
}

} // namespace kt7
