// Kernels of the Wiener stage: the tables of entry points and the chosen ones; see prim/kernels for
// how such files are compiled. Callers have checked what they pass.
#pragma once

#include <cstddef>
#include <cstdint>

#include "prim/kernels/KernelTarget.h"

namespace kt7::photo {

constexpr std::int32_t blockSide = 8;
constexpr std::int32_t blockSamples = blockSide * blockSide;
constexpr std::int32_t groupBlocks = 32;

/// Reference blocks lie on a grid of this step, and cells are the squares between its lines: a block
/// is two by two of them.
constexpr std::int32_t cellSide = 4;
/// Cells across a tile; its reference blocks are one fewer.
constexpr std::int32_t tileCells = 32;
/// How far matches are looked for at most, in pixels, to every side.
constexpr std::int32_t mostReach = 16;
/// A row of the match plane: for each of the four places within a cell the samples of all cells, from
/// mostReach pixels left of the tile on, with room for whole vectors.
constexpr std::int32_t cellRowSamples = 48;
constexpr std::int32_t matchRowSamples = cellSide * cellRowSamples;

/// Displacements of a search: from -reach to reach in steps, line by line.
struct SearchWindow {
    std::int32_t reach, step;
    constexpr std::int32_t side() const { return 2 * reach / step + 1; }
    constexpr std::int32_t size() const { return side() * side(); }
};

/// Fused steps of block matching: squared distances of the blocks of a row of references to those
/// at all displacements.
struct MatchKernels {
    /// Adds up, for each displacement, the squared differences of a row of cells. rows: the match
    /// plane at the cells' first row. sums[displacement][tileCells] gets them together with those of
    /// the row above, which `above` held and which these replace.
    void (*cellRow)(const float* rows, std::int32_t reach, std::int32_t step, float* above,
                    float* sums);
    /// From sums of cells to distances of blocks, in place, and to a bound for each block that at
    /// least groupBlocks of its distances do not pass. count: displacements. One more float is read
    /// behind the last.
    void (*blockDistances)(float* sums, std::int32_t count, float* bounds);
    /// Lists the displacements within the bounds of the first `blocks` blocks: the distance's bits
    /// above the displacement's number. The list of block i starts at lists[i * count].
    void (*withinBounds)(const float* distances, std::int32_t count, const float* bounds,
                         std::int32_t blocks, std::uint64_t* lists, std::int32_t* lengths);
};

/// What the filter of one group works on. Planes of row spectra hold, for each place of a tile, the
/// eight coefficients of the row of eight samples that starts there.
struct GroupArguments {
    const float* noisy;         // row spectra of the noisy plane and
    const float* pilot;         // of the pilot
    float* sums;                // row spectra that results are added to, weighted and windowed down
    float* weights;             // sum of the weights of the blocks that start at a place
    std::int32_t width;         // places in a row
    const std::int32_t* places; // of the group's blocks, the reference first, from best to worst
    std::int32_t blocks;        // groupBlocks or half as many
    const float* noise;         // [8][8] power that the filter takes for noise, above 0
    const float* window;        // [8] down a block
};

/// Fused transforms and filter of the Wiener stage.
struct GroupKernels {
    /// Row spectra of `count` places: from[i] to from[i + 7] are the samples of place i.
    void (*rowSpectra)(const float* from, const float* basis, float* spectra, std::int32_t count);
    /// Adds what `count` row spectra stand for to count + 7 samples. basis[k] is that of the inverse
    /// transform times the window across a block.
    void (*addRows)(const float* spectra, const float* basis, float* to, std::int32_t count);
    /// Filters a group and adds its blocks to the sums.
    void (*filterGroup)(const GroupArguments& arguments);
};

/// All tables: X(type, name).
#define KT7_PHOTO_KERNEL_TABLES(X)                                                                 \
    X(MatchKernels, matchKernels)                                                                  \
    X(GroupKernels, groupKernels)
KT7_PHOTO_KERNEL_TABLES(KT7_DECLARE_KERNELS)

} // namespace kt7::photo
