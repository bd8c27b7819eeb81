// Block transforms and the group filter built on them. Every transform runs on rows of eight
// floats; the multiply-adds of the cosine products decide its speed, so this file is built with
// contraction.
#include "prim/kernels/KernelTable.h"
#include "prim/kernels/RowVector.h"

namespace kt7 {
namespace {

constexpr int blockSize = side * side;

// Square root of 2 times the cosines of pi/16, 3pi/16, 5pi/16, 7pi/16, pi/8 and 3pi/8.
constexpr float c1 = 1.3870399f, c3 = 1.1758755f, c5 = 0.78569496f, c7 = 0.27589938f;
constexpr float c2 = 1.306563f, c6 = 0.5411961f;

/// Eight-point DCT-II along the index of x, lane by lane, larger by the square root of 8 than the
/// orthonormal one: three axes of it need no scaling until the very end.
KT7_INLINE void forward8(Row (&x)[side]) {
    const Row a = x[0] + x[7], b = x[3] + x[4], c = x[1] + x[6], d = x[2] + x[5];
    const Row e = x[0] - x[7], f = x[6] - x[1], g = x[2] - x[5], h = x[4] - x[3];
    const Row s = a + b, t = a - b, u = c + d, v = c - d;
    x[0] = s + u;
    x[4] = s - u;
    x[2] = c2 * t + c6 * v;
    x[6] = c6 * t - c2 * v;
    x[1] = c1 * e - c3 * f + c5 * g - c7 * h;
    x[3] = c3 * e + c7 * f - c1 * g + c5 * h;
    x[5] = c5 * e + c1 * f + c7 * g - c3 * h;
    x[7] = c7 * e + c5 * f + c3 * g + c1 * h;
}

/// Transposed flow of forward8, larger than the inverse of the orthonormal DCT by the same factor.
/// Only the first `given` of x, 4 or 8, are looked at; the rest counts as zero.
template <int given = side>
KT7_INLINE void inverse8(Row (&x)[side]) {
    Row p = c2 * x[2], q = c6 * x[2], s = x[0], d = x[0];
    Row o0 = c1 * x[1] + c3 * x[3], o1 = c5 * x[3] - c7 * x[1];
    Row o2 = c3 * x[1] - c7 * x[3], o3 = c5 * x[1] - c1 * x[3];
    if constexpr (given == side) {
        p = p + c6 * x[6];
        q = q - c2 * x[6];
        s = s + x[4];
        d = d - x[4];
        o0 = o0 + c5 * x[5] + c7 * x[7];
        o1 = o1 - c3 * x[5] + c1 * x[7];
        o2 = o2 - c1 * x[5] - c5 * x[7];
        o3 = o3 + c7 * x[5] + c3 * x[7];
    }
    const Row a = s + p, b = s - p, c = d + q, e = d - q;
    x[0] = a + o0;
    x[7] = a - o0;
    x[4] = b + o1;
    x[3] = b - o1;
    x[1] = c + o2;
    x[6] = c - o2;
    x[2] = e + o3;
    x[5] = e - o3;
}

KT7_INLINE float sumOf(const Row& row) {
    return ((row[0] + row[1]) + (row[2] + row[3])) + ((row[4] + row[5]) + (row[6] + row[7]));
}

/// What thresholding a group has found out.
struct Survivors {
    std::int32_t kept;
    float sumAll, sumKept; // in the cube's enlarged units; only with sums asked for
    float mean;            // element 0 after thresholding
    // Whether something but the first four rows, or lanes, of the slices survived.
    bool highRows, highLanes;
};

/// Transform along the group, threshold, and transform back, one row of the eight slices at a time:
/// coefficients never leave the registers. Of most groups little survives but low frequencies, so
/// what is zero is not transformed back.
template <bool withSums>
KT7_INLINE void shrinkGroup(float* cube, const float* thresholds, Survivors& found) {
    Mask kept = {};
    Row sumAll = {}, sumKept = {};
    found.highRows = false;
    for (int at = 0; at < blockSize; at += side) {
        Row x[side], t;
        load8(cube + at, blockSize, x);
        load(thresholds + at, t);
        forward8(x);
        Mask dropped = {};
#pragma GCC unroll 8
        for (Row& c : x) {
            if constexpr (withSums)
                sumAll += c;
            dropWeak(c, t, dropped); // one as large as its threshold survives
            if constexpr (withSums)
                sumKept += c;
        }
        if (at == 0)
            found.mean = x[0][0];
        const Mask keptHere = dropped + side;
        if (anyOf(keptHere)) {
            kept += keptHere;
            found.highRows |= at >= blockSize / 2;
            inverse8(x);
        }
        store8(x, cube + at, blockSize);
    }
    found.kept = 0;
    for (int i = 0; i < side; ++i)
        found.kept += kept[i];
    found.highLanes = (kept[4] | kept[5] | kept[6] | kept[7]) != 0;
    if constexpr (withSums) {
        found.sumAll = sumOf(sumAll);
        found.sumKept = sumOf(sumKept);
    }
}

// Three enlarged axes there and three back make 512; there alone, its square root.
constexpr float cubeEnlargement = 22.627417f;

/// Takes the eight slices out of the frequencies and adds them to the sums, times `factor`.
template <int rows, int lanes>
void addSlices(const GroupFilterJob& job, const std::ptrdiff_t (&sumsAt)[side], float factor) {
    for (int j = 0; j < side; ++j) {
        Row x[side];
        load8<rows>(job.cube + j * blockSize, side, x);
        inverse8<rows>(x);
        transpose8(x);
        inverse8<lanes>(x);
        float* to = job.sums + sumsAt[j];
#pragma GCC unroll 8
        for (int i = 0; i < side; ++i) {
            Row sum;
            load(to + i * job.sumsStride, sum);
            sum += x[i] * factor;
            store(sum, to + i * job.sumsStride);
        }
    }
}

template <bool withBoost>
void filterWith(const GroupFilterJob& job) {
    alignas(64) float thresholds[blockSize];
    for (int v = 0; v < side; ++v) // slices stand transposed in the cube
        for (int u = 0; u < side; ++u)
            thresholds[u * side + v] = job.thresholds[v * side + u] * cubeEnlargement;
    float* const cube = job.cube;
    const double perRow = 1.0 / job.candX;

    for (std::int32_t q = 0; q < job.groups; ++q) {
        const std::int32_t* matches = job.matchIdx + std::ptrdiff_t{q} * side;
        std::ptrdiff_t sourceAt[side], sumsAt[side], weightAt[side];
        for (int j = 0; j < side; ++j) {
            // Exact: half a candidate of room is far more than the quotient's rounding.
            const auto y = static_cast<std::int32_t>((matches[j] + 0.5) * perRow);
            const std::int32_t x = matches[j] - y * job.candX;
            sourceAt[j] = y * job.sourceStride + x;
            sumsAt[j] = y * job.sumsStride + x;
            weightAt[j] = y * job.weightsStride + x;
        }

        for (int j = 0; j < side; ++j) {
            Row x[side];
            load8(job.source + sourceAt[j], job.sourceStride, x);
            forward8(x);
            transpose8(x);
            forward8(x);
            store8(x, cube + j * blockSize, side);
        }

        Survivors found;
        shrinkGroup<withBoost>(cube, thresholds, found);
        const float weight = 1.0f / static_cast<float>(found.kept + 1);
        float factor = weight * (1.0f / (side * blockSize));
        if constexpr (withBoost) {
            const float all = found.sumAll * (1.0f / cubeEnlargement);
            const float kept = found.sumKept * (1.0f / cubeEnlargement);
            float gain = (all / (kept + 0.001f) - 1.0f) * job.boost + 1.0f;
            gain = gain < job.gainCap ? gain : job.gainCap;
            if (gain > 1.05f) {
                factor *= gain;
                // The mean keeps its size: what the gain adds to it is taken off each slice's.
                for (int j = 0; j < side; ++j)
                    cube[j * blockSize] += found.mean * (1.0f / gain - 1.0f);
            }
        }

        for (const std::ptrdiff_t at : weightAt)
            job.weights[at] += weight;
        if (found.kept == 0)
            continue;
        const auto add = found.highLanes
                             ? found.highRows ? &addSlices<side, side> : &addSlices<side / 2, side>
                         : found.highRows ? &addSlices<side, side / 2>
                                          : &addSlices<side / 2, side / 2>;
        add(job, sumsAt, factor);
    }
}

void filter(const GroupFilterJob& job) {
    if (job.boost > 0.05f)
        filterWith<true>(job);
    else
        filterWith<false>(job);
}

void normalise(const float* weights, std::ptrdiff_t weightsStride, const float* sums, float floor,
               float* scratch, float* image, std::int32_t n) {
    for (std::int32_t x = 0; x < n + side - 1; ++x) {
        float sum = weights[x];
        for (int i = 1; i < side; ++i)
            sum += weights[x + i * weightsStride];
        scratch[x] = sum;
    }
    for (std::int32_t x = 0; x < n; ++x) {
        float weight = floor;
        for (int i = 0; i < side; ++i)
            weight += scratch[x + i];
        image[x] = (image[x] * floor + sums[x]) / weight;
    }
}

} // namespace

const GroupKernels KT7_NAME(groupKernels){&filter, &normalise};

} // namespace kt7
