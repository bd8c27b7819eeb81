// Edge-preserving smoothing of a float tile through a coarse grid over position and value.
#pragma once

#include <cstdint>
#include <memory>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Bilateral grid (Chen, Paris and Durand 2007). Pixels are summed into cells of spatialSample
/// pixels in x and y and rangeSample in value, the grid is blurred with 1 2 1 along its axes, and
/// every pixel reads its result back by trilinear interpolation: the cost depends on the grid, not
/// on the reach of the smoothing.
///
/// A grid holds cell (x, y, z) at (y * gridX + x) * gridZ + z. Pixels begin at cell 2 on every
/// axis. Behind the last cell of each grid stands a guard word.
class BilateralFilter {
  public:
    std::int32_t gridX = 0; ///< grid size in cells; 0 until setup
    std::int32_t gridY = 0;
    std::int32_t gridZ = 0;
    std::unique_ptr<float[]> countGrid; ///< pixels per cell, blurred within slices
    std::unique_ptr<float[]> valueGrid; ///< filtered value of each cell
    std::int32_t padXY = 1;
    std::int32_t padZ = 1;
    std::int32_t width = 0; ///< tile size
    std::int32_t height = 0;
    float rangeMin = 0.0f; ///< value range of the z axis
    float rangeMax = 0.0f;
    std::int32_t spatialSample = 0;               ///< pixels per cell along x and y
    float rangeSample = 0.0f;                     ///< value span per cell along z
    std::unique_ptr<GIMG<std::uint8_t>> binImage; ///< z cell of every pixel
    std::unique_ptr<GIMG<float>> workB;           ///< fraction of every pixel along z
    std::unique_ptr<float[]> scratchGrid;         ///< sums of values, blurred within slices

    BilateralFilter() = default;
    BilateralFilter(const BilateralFilter&) = delete;
    BilateralFilter& operator=(const BilateralFilter&) = delete;

    /// Raises gridOverrun when a guard word has changed.
    ~BilateralFilter() noexcept(false); // NOLINT(bugprone-exception-escape)

    /// Bytes that the three grids of such a set-up take together.
    static std::int64_t gridBytes(std::int32_t tileWidth, std::int32_t tileHeight, float range,
                                  std::int32_t spatialSample, float rangeSample);

    /// Lays the grid out and allocates it, keeping what it has when tile and grid size stay the
    /// same. Returns 5 with nothing changed when spatialSample is below 2, else 0. Raises
    /// gridOverrun, noBufferStorage, or std::bad_alloc when there is no room for a grid.
    std::int32_t setup(std::int32_t tileWidth, std::int32_t tileHeight, float newRangeMin,
                       float newRangeMax, std::int32_t newSpatialSample, float newRangeSample);

    /// Smooths `values` in place; `edges` decides where each pixel stands on the value axis and may
    /// be the same image. Returns 0, or 2 with nothing changed when a size is not that of the tile.
    std::int32_t filter(GIMG<float>& values, const GIMG<float>& edges);

    /// The two halves of filter, for images of the tile's size.
    void buildGrid(const GIMG<float>& values, const GIMG<float>& edges);
    void interpGrid(GIMG<float>& values, const GIMG<float>& edges);

  private:
    std::ptrdiff_t sliceCells() const { return std::ptrdiff_t{gridX} * gridZ; }
    float rangeScale() const { return (rangeMax - rangeMin) / rangeSample; }
    void checkGuards() const;
    void placeColumns();
    void splatSlice(std::int32_t y, const GIMG<float>& values, const GIMG<float>& edges);
    void replicateSliceEdges(float* slice) const;
    void blurSlice(float* src, float* dst) const;
    void quotientSlice(std::int32_t y);

    std::unique_ptr<std::int32_t[]> splatColumns_;  // start of the column that a pixel falls into
    std::unique_ptr<std::int32_t[]> interpColumns_; // start of the first column that it reads
    std::unique_ptr<float[]> columnFractions_;
};

} // namespace kt7
