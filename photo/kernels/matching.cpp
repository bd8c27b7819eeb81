// Block matching: distances at all displacements, with the blocks of a row of references in the
// lanes. Built with contraction.
#include "photo/kernels/KernelTable.h"
#include "photo/kernels/LaneVector.h"

namespace kt7::photo {
namespace {

constexpr int vectors = tileCells / lanes;

void cellRow(const float* rows, std::int32_t reach, std::int32_t step, float* above, float* sums) {
    // Where the tile's own cells start.
    const float* const own = rows + mostReach / cellSide;
    for (std::int32_t dy = -reach; dy <= reach; dy += step)
        for (std::int32_t dx = -reach; dx <= reach; dx += step) {
            Lanes energy[vectors] = {};
            for (std::int32_t phase = 0; phase < cellSide; ++phase) {
                const std::int32_t shifted = phase + dx + mostReach;
                const float* a = own + phase * cellRowSamples;
                const float* b = rows + std::ptrdiff_t{dy} * matchRowSamples +
                                 shifted % cellSide * cellRowSamples + shifted / cellSide;
#pragma GCC unroll 4
                for (std::int32_t y = 0; y < cellSide; ++y)
#pragma GCC unroll 8
                    for (int v = 0; v < vectors; ++v) {
                        const std::ptrdiff_t at = y * matchRowSamples + v * lanes;
                        const Lanes difference = load(a + at) - load(b + at);
                        energy[v] += difference * difference;
                    }
            }
#pragma GCC unroll 8
            for (int v = 0; v < vectors; ++v) {
                store(load(above + v * lanes) + energy[v], sums + v * lanes);
                store(energy[v], above + v * lanes);
            }
            above += tileCells;
            sums += tileCells;
        }
}

void blockDistances(float* sums, std::int32_t count, float* bounds) {
    // The least of every so many distances, and the largest of these: at least as many distances lie
    // within it as there are parts. Parts are spread over the window, as neighbours are alike.
    constexpr std::int32_t parts = groupBlocks + 1;
    float least[parts * tileCells];
    for (std::int32_t i = 0; i < parts * tileCells; ++i)
        least[i] = 3e38f;
    std::int32_t part = 0;
    for (std::int32_t d = 0; d < count; ++d) {
        float* row = sums + std::ptrdiff_t{d} * tileCells;
        float* of = least + part * tileCells;
        for (int v = 0; v < vectors; ++v) {
            const Lanes distance = load(row + v * lanes) + load(row + v * lanes + 1);
            store(distance, row + v * lanes);
            store(lesser(load(of + v * lanes), distance), of + v * lanes);
        }
        part = part + 1 == parts ? 0 : part + 1;
    }
    for (int v = 0; v < vectors; ++v) {
        Lanes bound = load(least + v * lanes);
        for (std::int32_t i = 1; i < parts; ++i)
            bound = greater(bound, load(least + i * tileCells + v * lanes));
        store(bound, bounds + v * lanes);
    }
}

void withinBounds(const float* distances, std::int32_t count, const float* bounds,
                  std::int32_t blocks, std::uint64_t* lists, std::int32_t* lengths) {
    for (std::int32_t i = 0; i < blocks; ++i)
        lengths[i] = 0;
    const auto wanted =
        static_cast<std::uint32_t>((std::uint64_t{1} << blocks) - 1); // of a tile's cells
    for (std::int32_t d = 0; d < count; ++d) {
        const float* row = distances + std::ptrdiff_t{d} * tileCells;
        std::uint32_t within = 0;
        for (int v = 0; v < vectors; ++v)
            within |= whereAtMost(load(row + v * lanes), load(bounds + v * lanes)) << (v * lanes);
        within &= wanted;
        while (within != 0) {
            const int block = __builtin_ctz(within);
            within &= within - 1;
            std::uint32_t bits = 0;
            __builtin_memcpy(&bits, row + block, sizeof bits);
            lists[std::ptrdiff_t{block} * count + lengths[block]++] =
                (std::uint64_t{bits} << 32) | static_cast<std::uint32_t>(d);
        }
    }
}

} // namespace

const MatchKernels KT7_NAME(matchKernels){&cellRow, &blockDistances, &withinBounds};

} // namespace kt7::photo
