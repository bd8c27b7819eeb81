// One tile of the Wiener stage.
#pragma once

#include <cstdint>
#include <vector>

#include "photo/Planes.h"
#include "photo/kernels/KernelTable.h"
#include "photo/wienerStage.h"

namespace kt7::photo {

/// References of a tile, across and down.
inline constexpr std::int32_t tileColumns = tileCells - 1, tileRows = 16;
/// Where blocks of a tile's groups may start, across and down, and the samples that they cover.
inline constexpr std::int32_t placeColumns = (tileColumns - 1) * cellSide + 1 + 2 * mostReach;
inline constexpr std::int32_t placeRows = (tileRows - 1) * cellSide + 1 + 2 * mostReach;
inline constexpr std::int32_t sampleColumns = placeColumns + blockSide - 1;
inline constexpr std::int32_t sampleRows = placeRows + blockSide - 1;

/// References of one tile: the first one's place in the picture, and how many there are.
struct TileFrame {
    std::int32_t x, y, columns, rows;

    // Samples of the picture that the tile's blocks may cover; some may lie outside of it.
    std::int32_t left() const { return x - mostReach; }
    std::int32_t above() const { return y - mostReach; }
};

/// What a tile adds to the picture: weighted samples and their weights, from left() and above() on.
struct TileSums {
    explicit TileSums(std::int32_t planes);

    float* weighted(std::int32_t plane, std::int32_t y) { return &samples_[index(2 * plane, y)]; }
    float* weights(std::int32_t plane, std::int32_t y) {
        return &samples_[index(2 * plane + 1, y)];
    }

    TileFrame frame{};

  private:
    static std::size_t index(std::int32_t plane, std::int32_t y) {
        return (static_cast<std::size_t>(plane) * sampleRows + static_cast<std::size_t>(y)) *
               sampleColumns;
    }
    std::vector<float> samples_;
};

/// What one thread needs to work on tiles, some two megabytes.
class TileFilter {
  public:
    TileFilter();

    void run(const Planes& noisy, const Planes& pilot, const StageNoise& noise, TileSums& sums);

  private:
    void loadMatchPlane(const Planes& pilot, const TileFrame& frame);
    /// shift: how far the frame lies right of the tile's and below it.
    void match(const TileFrame& frame, std::int32_t shift, SearchWindow window);
    void loadSpectra(const Planes& planes, std::int32_t plane, const TileFrame& frame,
                     std::vector<float>& spectra);
    void filterPlane(const StageNoise& noise, std::int32_t plane, const TileFrame& frame);
    void addUp(TileSums& sums, std::int32_t plane);

    std::vector<float> matchPlane_; // see matchRowSamples
    std::vector<float> cellsAbove_, distances_;
    std::vector<std::uint64_t> lists_; // see MatchKernels::withinBounds
    std::vector<std::int32_t> places_; // of the blocks of each group
    std::vector<float> brightness_;    // of each reference, in O0
    std::vector<float> noisySpectra_, pilotSpectra_, sums_, weights_, weightsAcross_;
    float basis_[blockSamples], windowedBasis_[blockSamples], window_[blockSide];
};

} // namespace kt7::photo
