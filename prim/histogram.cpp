#include "prim/histogram.h"

#include <algorithm>

#include "prim/checks.h"

namespace kt7 {
namespace {

// Samples of each value. Two tables by turns, as a run of equal samples would wait for its own
// counter.
void countValues(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                 std::uint32_t (&counts)[256]) {
    std::uint32_t odd[256] = {};
    forRows(src, srcStep, size, [&](const std::uint8_t* row) {
        std::int32_t x = 0;
        for (; x + 2 <= size.width; x += 2) {
            ++counts[row[x]];
            ++odd[row[x + 1]];
        }
        if (x < size.width)
            ++counts[row[x]];
    });
    for (int v = 0; v < 256; ++v)
        counts[v] += odd[v];
}

} // namespace

PrimStatus primHistogramEven8uC1(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                                 std::int32_t* hist, std::int32_t* levels, std::int32_t nLevels,
                                 std::int32_t lower, std::int32_t upper) {
    if (const PrimStatus status = checkPlanes(size, src, hist, levels))
        return status;
    if (nLevels < 2)
        return primBadLevels;
    const std::int64_t span = std::int64_t{upper} - lower;
    const std::int64_t each = span / (nLevels - 1);
    const std::int64_t rest = span % (nLevels - 1);
    std::int64_t level = lower;
    for (std::int32_t i = 0; i < nLevels; ++i) {
        levels[i] = static_cast<std::int32_t>(level);
        level += i < rest ? each + 1 : each;
    }
    std::uint32_t counts[256] = {};
    countValues(src, srcStep, size, counts);
    for (std::int32_t i = 0; i + 1 < nLevels; ++i) {
        const std::int32_t end = std::min(levels[i + 1], 256);
        std::uint32_t sum = 0;
        for (std::int32_t v = std::max(levels[i], 0); v < end; ++v)
            sum += counts[v];
        hist[i] = static_cast<std::int32_t>(sum);
    }
    return primOk;
}

} // namespace kt7
