// Groups of similar blocks: transform, Wiener filter and way back. Built with contraction.
//
// Transforms across a block were done for all places at once (rowSpectra), so a group is left with
// the transform down its blocks and the Haar transform from block to block. Blocks q and q + 16 lie
// side by side in a row of 16 floats, so that vectors of any width stay within a row.
#include "photo/kernels/KernelTable.h"
#include "photo/kernels/LaneVector.h"

namespace kt7::photo {
namespace {

// A group is eight pairs or twice as many.
constexpr int mostPairs = groupBlocks / 2;
constexpr int pairRow = 2 * blockSide;
constexpr int pairSamples = blockSide * pairRow;
constexpr int pieces = pairRow / lanes; // vectors in a row of a pair

using Group = float[mostPairs * pairSamples];

// Eight-point DCT: root of 1/8, and cos(k pi / 16) / 2.
constexpr float r8 = 0.35355339f, c1 = 0.49039264f, c2 = 0.46193977f, c3 = 0.41573481f,
                c5 = 0.27778512f, c6 = 0.19134172f, c7 = 0.09754516f;

KT7_INLINE void forward8(Lanes (&x)[blockSide]) {
    const Lanes s0 = x[0] + x[7], s1 = x[1] + x[6], s2 = x[2] + x[5], s3 = x[3] + x[4];
    const Lanes d0 = x[0] - x[7], d1 = x[1] - x[6], d2 = x[2] - x[5], d3 = x[3] - x[4];
    const Lanes e0 = s0 + s3, e1 = s1 + s2, f0 = s0 - s3, f1 = s1 - s2;
    x[0] = (e0 + e1) * r8;
    x[4] = (e0 - e1) * r8;
    x[2] = f0 * c2 + f1 * c6;
    x[6] = f0 * c6 - f1 * c2;
    x[1] = d0 * c1 + d1 * c3 + d2 * c5 + d3 * c7;
    x[3] = d0 * c3 - d1 * c7 - d2 * c1 - d3 * c5;
    x[5] = d0 * c5 - d1 * c1 + d2 * c7 + d3 * c3;
    x[7] = d0 * c7 - d1 * c5 + d2 * c3 - d3 * c1;
}

KT7_INLINE void inverse8(Lanes (&x)[blockSide]) {
    const Lanes e0 = (x[0] + x[4]) * r8, e1 = (x[0] - x[4]) * r8;
    const Lanes f0 = x[2] * c2 + x[6] * c6, f1 = x[2] * c6 - x[6] * c2;
    const Lanes s0 = e0 + f0, s3 = e0 - f0, s1 = e1 + f1, s2 = e1 - f1;
    const Lanes d0 = x[1] * c1 + x[3] * c3 + x[5] * c5 + x[7] * c7;
    const Lanes d1 = x[1] * c3 - x[3] * c7 - x[5] * c1 - x[7] * c5;
    const Lanes d2 = x[1] * c5 - x[3] * c1 + x[5] * c7 + x[7] * c3;
    const Lanes d3 = x[1] * c7 - x[3] * c5 + x[5] * c3 - x[7] * c1;
    x[0] = s0 + d0;
    x[7] = s0 - d0;
    x[1] = s1 + d1;
    x[6] = s1 - d1;
    x[2] = s2 + d2;
    x[5] = s2 - d2;
    x[3] = s3 + d3;
    x[4] = s3 - d3;
}

/// One vector of a row of a pair, from and to the rows of its two blocks.
#if defined(__AVX512F__)
using Half = float __attribute__((vector_size(32)));
typedef float LooseHalf __attribute__((vector_size(32), aligned(4), may_alias));

KT7_INLINE Lanes loadPair(const float* first, const float* second, int) {
    return __builtin_shufflevector(*reinterpret_cast<const LooseHalf*>(first),
                                   *reinterpret_cast<const LooseHalf*>(second), 0, 1, 2, 3, 4, 5, 6,
                                   7, 8, 9, 10, 11, 12, 13, 14, 15);
}
KT7_INLINE void addPair(const Lanes& v, float* first, float* second, int) {
    // One after the other: the blocks may overlap.
    *reinterpret_cast<LooseHalf*>(first) += __builtin_shufflevector(v, v, 0, 1, 2, 3, 4, 5, 6, 7);
    *reinterpret_cast<LooseHalf*>(second) +=
        __builtin_shufflevector(v, v, 8, 9, 10, 11, 12, 13, 14, 15);
}
#else
KT7_INLINE Lanes loadPair(const float* first, const float* second, int piece) {
    const int at = piece * lanes;
    return load(at < blockSide ? first + at : second + at - blockSide);
}
KT7_INLINE void addPair(const Lanes& v, float* first, float* second, int piece) {
    const int at = piece * lanes;
    float* to = at < blockSide ? first + at : second + at - blockSide;
    store(load(to) + v, to);
}
#endif

template <int pairs>
KT7_INLINE void loadGroup(const float* spectra, const GroupArguments& g, Group& group) {
    const std::ptrdiff_t down = std::ptrdiff_t{g.width} * blockSide;
    for (int q = 0; q < pairs; ++q) {
        const float* first = spectra + std::ptrdiff_t{g.places[q]} * blockSide;
        const float* second = spectra + std::ptrdiff_t{g.places[q + pairs]} * blockSide;
        for (int piece = 0; piece < pieces; ++piece) {
            Lanes x[blockSide];
#pragma GCC unroll 8
            for (int y = 0; y < blockSide; ++y)
                x[y] = loadPair(first + y * down, second + y * down, piece);
            forward8(x);
#pragma GCC unroll 8
            for (int y = 0; y < blockSide; ++y)
                store(x[y], group + q * pairSamples + y * pairRow + piece * lanes);
        }
    }
}

template <int pairs>
KT7_INLINE void addGroup(Group& group, const GroupArguments& g, float weight) {
    const std::ptrdiff_t down = std::ptrdiff_t{g.width} * blockSide;
    float window[blockSide];
    for (int y = 0; y < blockSide; ++y)
        window[y] = weight * g.window[y];
    for (int q = 0; q < pairs; ++q) {
        float* first = g.sums + std::ptrdiff_t{g.places[q]} * blockSide;
        float* second = g.sums + std::ptrdiff_t{g.places[q + pairs]} * blockSide;
        for (int piece = 0; piece < pieces; ++piece) {
            Lanes x[blockSide];
#pragma GCC unroll 8
            for (int y = 0; y < blockSide; ++y)
                x[y] = load(group + q * pairSamples + y * pairRow + piece * lanes);
            inverse8(x);
#pragma GCC unroll 8
            for (int y = 0; y < blockSide; ++y)
                addPair(x[y] * window[y], first + y * down, second + y * down, piece);
        }
        g.weights[g.places[q]] += weight;
        g.weights[g.places[q + pairs]] += weight;
    }
}

/// The filter at one depth of the Haar transform, whose steps are sums and differences: energies grow
/// twofold with each. z becomes what the way back, of sums and differences too, takes.
template <int depth>
KT7_INLINE void wiener(Lanes& z, const Lanes& p, const Lanes& noise, Lanes& power) {
    constexpr float growth = 1 << depth;
    const Lanes energy = p * p;
    const Lanes weight = quotient(energy, energy + noise * growth);
    power += weight * weight * noise;
    z *= weight * (1.0f / growth);
}

KT7_INLINE void sumAndDifference(Lanes& a, Lanes& b) {
    const Lanes difference = a - b;
    a += b;
    b = difference;
}

/// One step down the Haar transform of both planes, filtered.
template <int depth>
KT7_INLINE void stepDown(Lanes& z0, Lanes& z1, Lanes& p0, Lanes& p1, const Lanes& noise,
                         Lanes& power) {
    sumAndDifference(z0, z1);
    sumAndDifference(p0, p1);
    wiener<depth>(z1, p1, noise, power);
}

/// Three or four steps down over pairs that lie pairSamples apart. Sums are left in place 0,
/// unfiltered.
template <int halves>
KT7_INLINE void shrinkDown(float* noisy, float* pilot, const Lanes& noise, Lanes& power) {
    Lanes zSums[2], pSums[2];
#pragma GCC unroll 2
    for (int half = 0; half < halves; ++half) {
        float* zHalf = noisy + half * 8 * pairSamples;
        const float* pHalf = pilot + half * 8 * pairSamples;
        Lanes z[8], p[8];
#pragma GCC unroll 8
        for (int i = 0; i < 8; ++i) {
            z[i] = load(zHalf + i * pairSamples);
            p[i] = load(pHalf + i * pairSamples);
        }
#pragma GCC unroll 4
        for (int i = 0; i < 8; i += 2)
            stepDown<1>(z[i], z[i + 1], p[i], p[i + 1], noise, power);
#pragma GCC unroll 2
        for (int i = 0; i < 8; i += 4)
            stepDown<2>(z[i], z[i + 2], p[i], p[i + 2], noise, power);
        stepDown<3>(z[0], z[4], p[0], p[4], noise, power);
#pragma GCC unroll 8
        for (int i = 1; i < 8; ++i)
            store(z[i], zHalf + i * pairSamples);
        zSums[half] = z[0];
        pSums[half] = p[0];
    }
    if constexpr (halves == 2) {
        stepDown<4>(zSums[0], zSums[1], pSums[0], pSums[1], noise, power);
        store(zSums[1], noisy + 8 * pairSamples);
    }
    store(zSums[0], noisy);
    store(pSums[0], pilot);
}

/// The last step, between the two halves of a pair's rows, and back. Gives the filter's power.
template <int halves>
KT7_INLINE float shrinkTop(float* noisy, const float* pilot, const float* noise) {
    constexpr float growth = 16.0f * halves;
    float power[blockSide] = {};
    for (int y = 0; y < blockSide; ++y) {
        float* z = noisy + y * pairRow;
        const float* p = pilot + y * pairRow;
        // The mean of the whole group stays.
        const float kept = y == 0 ? 1.0f : 0.0f;
        float kept8[blockSide] = {kept};
        for (int x = 0; x < blockSide; ++x) {
            const float n = noise[y * pairRow + x];
            const float pSum = p[x] + p[x + blockSide], pDifference = p[x] - p[x + blockSide];
            const float sumEnergy = pSum * pSum, differenceEnergy = pDifference * pDifference;
            float sumWeight = sumEnergy / (sumEnergy + n * growth);
            sumWeight += kept8[x] * (1.0f - sumWeight);
            const float differenceWeight = differenceEnergy / (differenceEnergy + n * growth);
            power[x] += (sumWeight * sumWeight + differenceWeight * differenceWeight) * n;
            const float sum = (z[x] + z[x + blockSide]) * (sumWeight / growth);
            const float difference = (z[x] - z[x + blockSide]) * (differenceWeight / growth);
            z[x] = sum + difference;
            z[x + blockSide] = sum - difference;
        }
    }
    float total = 0.0f;
    for (int x = 0; x < blockSide; ++x)
        total += power[x];
    return total;
}

/// The steps back up.
template <int halves>
KT7_INLINE void shrinkUp(float* noisy) {
    Lanes sums[2] = {load(noisy)};
    if constexpr (halves == 2) {
        sums[1] = load(noisy + 8 * pairSamples);
        sumAndDifference(sums[0], sums[1]);
    }
#pragma GCC unroll 2
    for (int half = 0; half < halves; ++half) {
        float* zHalf = noisy + half * 8 * pairSamples;
        Lanes z[8];
        z[0] = sums[half];
#pragma GCC unroll 8
        for (int i = 1; i < 8; ++i)
            z[i] = load(zHalf + i * pairSamples);
        sumAndDifference(z[0], z[4]);
#pragma GCC unroll 2
        for (int i = 0; i < 8; i += 4)
            sumAndDifference(z[i], z[i + 2]);
#pragma GCC unroll 4
        for (int i = 0; i < 8; i += 2)
            sumAndDifference(z[i], z[i + 1]);
#pragma GCC unroll 8
        for (int i = 0; i < 8; ++i)
            store(z[i], zHalf + i * pairSamples);
    }
}

template <int halves>
void filterGroupOf(const GroupArguments& g) {
    constexpr int pairs = 8 * halves;
    alignas(64) Group noisy, pilot;
    alignas(64) float noise[pairSamples];
    for (int y = 0; y < blockSide; ++y)
        for (int x = 0; x < pairRow; ++x)
            noise[y * pairRow + x] = g.noise[y * blockSide + x % blockSide];
    loadGroup<pairs>(g.noisy, g, noisy);
    loadGroup<pairs>(g.pilot, g, pilot);
    Lanes powers{};
    for (int at = 0; at < pairSamples; at += lanes)
        shrinkDown<halves>(noisy + at, pilot + at, load(noise + at), powers);
    float power = shrinkTop<halves>(noisy, pilot, noise);
    for (int i = 0; i < lanes; ++i)
        power += powers[i];
    for (int at = 0; at < pairSamples; at += lanes)
        shrinkUp<halves>(noisy + at);
    addGroup<pairs>(noisy, g, 1.0f / power);
}

void filterGroup(const GroupArguments& g) {
    if (g.blocks == groupBlocks)
        filterGroupOf<2>(g);
    else
        filterGroupOf<1>(g);
}

void rowSpectra(const float* from, const float* basis, float* spectra, std::int32_t count) {
    for (std::int32_t x = 0; x < count; ++x) {
        float sums[blockSide] = {};
#pragma GCC unroll 8
        for (int n = 0; n < blockSide; ++n)
            for (int k = 0; k < blockSide; ++k)
                sums[k] += from[x + n] * basis[n * blockSide + k];
        for (int k = 0; k < blockSide; ++k)
            spectra[std::ptrdiff_t{x} * blockSide + k] = sums[k];
    }
}

void addRows(const float* spectra, const float* basis, float* to, std::int32_t count) {
    float open[blockSide] = {}; // samples that later places still add to
    for (std::int32_t x = 0; x < count; ++x) {
#pragma GCC unroll 8
        for (int k = 0; k < blockSide; ++k)
            for (int n = 0; n < blockSide; ++n)
                open[n] += spectra[std::ptrdiff_t{x} * blockSide + k] * basis[k * blockSide + n];
        to[x] += open[0];
        for (int n = 0; n + 1 < blockSide; ++n)
            open[n] = open[n + 1];
        open[blockSide - 1] = 0.0f;
    }
    for (int n = 0; n + 1 < blockSide; ++n)
        to[count + n] += open[n];
}

} // namespace

const GroupKernels KT7_NAME(groupKernels){&rowSpectra, &addRows, &filterGroup};

} // namespace kt7::photo
