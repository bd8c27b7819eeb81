// Cuts planes into overlapping float tiles and puts finished tiles back without visible seams.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Number, size and distance of the tiles along one side.
struct BlockLayout {
    std::int32_t count;
    std::int32_t blockSize;
    std::int32_t step;
};

/// What a stage asks of its tiles.
struct TileShape {
    std::int32_t side;    ///< about, in samples
    std::int32_t overlap; ///< samples that neighbouring tiles share
    std::int32_t feather; ///< rim of a tile that is thrown away
};

/// Spreads tiles of about `block` samples evenly over a side. Sides below 1.25 blocks get one tile;
/// with more than one the tile size is even.
BlockLayout chooseBlockCount(std::int32_t size, std::int32_t block, std::int32_t overlap);

/// Tile processor over up to 6 input and 6 output planes of equal size, none of them owned.
///
/// Order of use: setup; then, in as many threads as wanted, getABlockLoc, getBlock, filter,
/// saveOutBlock, until getABlockLoc gives false. All tiles have the size blockWidth x blockHeight;
/// tile values are samples / 32768. Tile loops go by getABlockLoc, not by blocksX * blocksY: on
/// very long sides the last, shifted tiles can be more than that.
class BlockProcPmPnT {
  public:
    /// Marks a sample that no tile has written. Results are held to +-32767, so it can't be one.
    static constexpr std::int16_t unwritten = -32768;
    static constexpr std::int32_t mostPlanes = 6;

    std::int32_t inputCount = 0;
    const GIMG<std::int16_t>* inputs[mostPlanes] = {};
    std::int32_t outputCount = 0;
    GIMG<std::int16_t>* outputs[mostPlanes] = {};
    std::int32_t blockWidth = 0;
    std::int32_t blockHeight = 0;
    std::int32_t stepX = 0;
    std::int32_t stepY = 0;
    std::int32_t blocksX = 0;
    std::int32_t blocksY = 0;
    std::int32_t overlap = 8; ///< samples that neighbouring tiles share
    std::int32_t feather = 0; ///< rim of a tile that is thrown away
    std::int32_t cursorX = 0;
    std::int32_t cursorY = 0;
    float inScale = 1.0f / 32768.0f;
    float outScale = 32768.0f;

    /// Fills the outputs with `unwritten` and lays the tiles out over the region of outputs[0].
    /// Returns 1, or 0 with nothing changed when there are more than 6 planes on a side or no
    /// output.
    std::int32_t setup(std::int32_t newInputCount, const GIMG<std::int16_t>* const* newInputs,
                       std::int32_t newOutputCount, GIMG<std::int16_t>* const* newOutputs,
                       std::int32_t blockW, std::int32_t blockH, std::int32_t newOverlap,
                       std::int32_t newFeather);

    /// The same for tiles of a shape; false for 0.
    bool setup(std::span<GIMG<std::int16_t>* const> newInputs,
               std::span<GIMG<std::int16_t>* const> newOutputs, const TileShape& shape) {
        return setup(static_cast<std::int32_t>(newInputs.size()), newInputs.data(),
                     static_cast<std::int32_t>(newOutputs.size()), newOutputs.data(), shape.side,
                     shape.side, shape.overlap, shape.feather) != 0;
    }

    /// Gives out the next tile position, in row order; false when all are gone. Thread-safe.
    bool getABlockLoc(std::int32_t* x, std::int32_t* y);

    /// Reads the tile at (x, y) of an input. The tile's own size counts.
    void getBlock(std::int32_t x, std::int32_t y, std::int32_t input, GIMG<float>& tile) const;

    /// Merges a finished tile into an output and leaves the scaled samples in it. Its outer
    /// `feather` samples are dropped; the next overlap - 2 * feather fade over what neighbours have
    /// written. Thread-safe.
    void saveOutBlock(std::int32_t x, std::int32_t y, std::int32_t output, GIMG<float>& tile);

  private:
    void mergeCore(GIMG<std::int16_t>& outputView, GIMG<float>& tile) const;
    void mergeSeams(GIMG<std::int16_t>& outputView, const GIMG<float>& tile) const;

    std::vector<float> fade_;        // weights of a band's lines, growing inward
    std::vector<float> fadeReverse_; // the same, growing outward
    std::mutex cursorMutex_;
    std::mutex mergeMutex_;
};

} // namespace kt7
