#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

void below32f(float* row, std::int32_t n, float t) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] = row[x] < t ? t : row[x];
}

void above32f(float* row, std::int32_t n, float t) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] = row[x] > t ? t : row[x];
}

// The samples are a host's, whose rows need not lie on even addresses.
void hold16u(std::uint16_t* sample, std::uint16_t t) {
    std::uint16_t v;
    __builtin_memcpy(&v, sample, sizeof v);
    v = v > t ? t : v;
    __builtin_memcpy(sample, &v, sizeof v);
}

void above16uC3(std::uint16_t* row, std::int32_t n, const std::uint16_t* t) {
    const std::uint16_t t0 = t[0], t1 = t[1], t2 = t[2];
    for (std::int32_t x = 0; x < n; ++x, row += 3) {
        hold16u(row, t0);
        hold16u(row + 1, t1);
        hold16u(row + 2, t2);
    }
}

std::int16_t min16s(const std::int16_t* row, std::int32_t n) {
    std::int16_t least = row[0];
    for (std::int32_t x = 1; x < n; ++x)
        least = row[x] < least ? row[x] : least;
    return least;
}

std::int16_t max16s(const std::int16_t* row, std::int32_t n) {
    std::int16_t most = row[0];
    for (std::int32_t x = 1; x < n; ++x)
        most = row[x] > most ? row[x] : most;
    return most;
}

// Samples whose sum 32 bits certainly hold.
constexpr std::int32_t sumChunk = 1 << 20;

std::uint64_t sum8u(const std::uint8_t* row, std::int32_t n) {
    std::uint64_t total = 0;
    for (std::int32_t x = 0; x < n;) {
        const std::int32_t end = n - x < sumChunk ? n : x + sumChunk;
        std::uint32_t sum = 0;
        for (; x < end; ++x)
            sum += row[x];
        total += sum;
    }
    return total;
}

void sum8uC3(const std::uint8_t* row, std::int32_t n, std::uint64_t* sums) {
    for (std::int32_t x = 0; x < n;) {
        const std::int32_t end = n - x < sumChunk ? n : x + sumChunk;
        std::uint32_t sum0 = 0, sum1 = 0, sum2 = 0;
        for (; x < end; ++x, row += 3) {
            sum0 += row[0];
            sum1 += row[1];
            sum2 += row[2];
        }
        sums[0] += sum0;
        sums[1] += sum1;
        sums[2] += sum2;
    }
}

} // namespace

const ThresholdKernels KT7_NAME(thresholdKernels){&below32f, &above32f, &above16uC3, &min16s,
                                                  &max16s,   &sum8u,    &sum8uC3};

} // namespace kt7
