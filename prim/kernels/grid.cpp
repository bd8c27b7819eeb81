#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

void positions(const float* samples, float low, float high, float scale, float offset,
               std::int32_t mostCell, std::uint8_t* cells, float* fractions, std::int32_t n) {
    const float most = static_cast<float>(mostCell);
    const auto position = [=](std::int32_t x) {
        const float cut = samples[x] > high ? high : samples[x];
        return ((cut < low ? low : cut) - low) * scale + offset;
    };
    // In this order a NaN ends in cell 0.
    const auto cell = [=](float z) {
        const float raised = z > 0.0f ? z : 0.0f;
        return static_cast<std::int32_t>(raised < most ? raised : most);
    };
    if (fractions == nullptr) {
        for (std::int32_t x = 0; x < n; ++x)
            cells[x] = static_cast<std::uint8_t>(cell(position(x)));
        return;
    }
    for (std::int32_t x = 0; x < n; ++x) {
        const float z = position(x);
        const std::int32_t whole = cell(z);
        cells[x] = static_cast<std::uint8_t>(whole);
        fractions[x] = z - static_cast<float>(whole);
    }
}

// Neighbouring pixels mostly fall into the same cell, and each sum would wait for the one before
// it: four stretches of the row are taken by turns.
void splat(const float* values, const std::int32_t* columns, const std::uint8_t* cells,
           float* valueSlice, float* countSlice, std::int32_t n) {
    constexpr std::int32_t streams = 4;
    const std::int32_t stretch = n / streams;
    const auto drop = [=](std::int32_t x) {
        const std::int32_t index = columns[x] + cells[x];
        valueSlice[index] += values[x];
        countSlice[index] += 1.0f;
    };
    for (std::int32_t x = 0; x < stretch; ++x) {
        drop(x);
        drop(x + stretch);
        drop(x + 2 * stretch);
        drop(x + 3 * stretch);
    }
    for (std::int32_t x = streams * stretch; x < n; ++x)
        drop(x);
}

void blurQuotient(const float* const values[3], const float* const counts[3], float* __restrict dst,
                  std::int32_t n) {
    const float *v0 = values[0], *v1 = values[1], *v2 = values[2];
    const float *c0 = counts[0], *c1 = counts[1], *c2 = counts[2];
    for (std::int32_t z = 0; z < n; ++z)
        dst[z] = ((2.0f * v1[z] + v0[z]) + v2[z]) / ((2.0f * c1[z] + c0[z]) + c2[z]);
}

typedef float Quad __attribute__((vector_size(16)));

Quad load(const float* src) {
    Quad v;
    __builtin_memcpy(&v, src, sizeof v);
    return v;
}

// Two neighbours along z in each of two columns: v00 v01 v10 v11.
Quad corners(const float* column, std::int32_t columnStride) {
    typedef double Pairs __attribute__((vector_size(16)));
    Pairs pairs;
    double left, right;
    __builtin_memcpy(&left, column, sizeof left);
    __builtin_memcpy(&right, column + columnStride, sizeof right);
    pairs[0] = left;
    pairs[1] = right;
    return reinterpret_cast<Quad>(pairs);
}

// Interpolates four pixels along z and x; at[i] points at pixel i's first corner.
Quad bilinear(const float* const at[4], std::int32_t columnStride, Quad zf, Quad xf) {
    const Quad p0 = corners(at[0], columnStride), p1 = corners(at[1], columnStride);
    const Quad p2 = corners(at[2], columnStride), p3 = corners(at[3], columnStride);
    const Quad a = __builtin_shufflevector(p0, p1, 0, 4, 2, 6); // near z: both columns
    const Quad b = __builtin_shufflevector(p0, p1, 1, 5, 3, 7); // far z
    const Quad c = __builtin_shufflevector(p2, p3, 0, 4, 2, 6);
    const Quad d = __builtin_shufflevector(p2, p3, 1, 5, 3, 7);
    const Quad v00 = __builtin_shufflevector(a, c, 0, 1, 4, 5);
    const Quad v10 = __builtin_shufflevector(a, c, 2, 3, 6, 7);
    const Quad v01 = __builtin_shufflevector(b, d, 0, 1, 4, 5);
    const Quad v11 = __builtin_shufflevector(b, d, 2, 3, 6, 7);
    const Quad zn = 1.0f - zf;
    return (v11 * zf + v10 * zn) * xf + (v01 * zf + v00 * zn) * (1.0f - xf);
}

void interpolate(const float* nearSlice, const float* farSlice, std::int32_t columnStride,
                 const std::int32_t* columns, const float* columnFractions,
                 const std::uint8_t* cells, const float* fractions, float rowFraction, float* dst,
                 std::int32_t n) {
    const float rowRest = 1.0f - rowFraction;
    std::int32_t x = 0;
    for (; x + 4 <= n; x += 4) {
        const float *nearAt[4], *farAt[4];
        for (std::int32_t i = 0; i < 4; ++i) {
            const std::int32_t index = columns[x + i] + cells[x + i];
            nearAt[i] = nearSlice + index;
            farAt[i] = farSlice + index;
        }
        const Quad zf = load(fractions + x), xf = load(columnFractions + x);
        const Quad result = bilinear(nearAt, columnStride, zf, xf) * rowRest +
                            bilinear(farAt, columnStride, zf, xf) * rowFraction;
        __builtin_memcpy(dst + x, &result, sizeof result);
    }
    for (; x < n; ++x) {
        const float zf = fractions[x], zn = 1.0f - zf;
        const float xf = columnFractions[x], xn = 1.0f - xf;
        const auto mixed = [=](const float* at) {
            const float* next = at + columnStride;
            return (next[1] * zf + next[0] * zn) * xf + (at[1] * zf + at[0] * zn) * xn;
        };
        const std::int32_t index = columns[x] + cells[x];
        dst[x] = mixed(nearSlice + index) * rowRest + mixed(farSlice + index) * rowFraction;
    }
}

} // namespace

const GridKernels KT7_NAME(gridKernels){&positions, &splat, &blurQuotient, &interpolate};

} // namespace kt7
