// What fused rows do, done step by step by their plain forms.
#include "prim/plainForms.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "prim/arith.h"
#include "prim/convert.h"
#include "prim/copy.h"
#include "prim/filter.h"
#include "prim/gridRows.h"
#include "prim/groupFilter.h"
#include "prim/screenRows.h"
#include "prim/stats.h"
#include "prim/threshold.h"
#include "prim/waveletRows.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

using Row = std::vector<float>;

class FusedRows : public test::OnTarget {
  protected:
    std::mt19937 random{7};
    Row noise(std::int32_t n, float deviation = 1.0f) {
        std::normal_distribution<float> normal(0.0f, deviation);
        Row row(static_cast<std::size_t>(n));
        std::ranges::generate(row, [&] { return normal(random); });
        return row;
    }
    std::vector<std::uint8_t> bytes(std::int32_t n) {
        std::vector<std::uint8_t> row(static_cast<std::size_t>(n));
        std::ranges::generate(row, [&] { return static_cast<std::uint8_t>(random()); });
        return row;
    }
    static void expectNear(const Row& got, const Row& wanted, float tolerance, std::int32_t n) {
        for (std::size_t x = 0; x < wanted.size(); ++x)
            ASSERT_NEAR(got[x], wanted[x], tolerance * (1.0f + std::abs(wanted[x])))
                << x << " of " << n;
    }
};

KT7_ON_EVERY_TARGET(FusedRows);

TEST_P(FusedRows, PositionsSamplesInTheGrid) {
    constexpr float low = -0.4f, high = 0.9f, scale = 20.0f, offset = 2.0f;
    for (const std::int32_t n : {1, 7, 8, 33, 100}) {
        const Row samples = noise(n, 0.5f);
        std::vector<std::uint8_t> cells(samples.size()), wantedCells(cells);
        Row fractions(samples.size()), wanted = samples, whole(samples.size());
        gridPositions(samples.data(), low, high, scale, offset, 255, cells.data(), fractions.data(),
                      n);
        const PrimSize row{n, 1};
        primThresholdLT32fC1I(wanted.data(), 0, row, low);
        primThresholdGT32fC1I(wanted.data(), 0, row, high);
        primSubC32fC1I(low, wanted.data(), 0, row);
        primMulC32fC1(wanted.data(), 0, scale, wanted.data(), 0, row);
        primAddC32fC1I(offset, wanted.data(), 0, row);
        primConvert32f8uC1(wanted.data(), 0, wantedCells.data(), 0, row, primTruncate);
        primConvert8u32fC1(wantedCells.data(), 0, whole.data(), 0, row);
        primSub32fC1I(whole.data(), 0, wanted.data(), 0, row);
        EXPECT_EQ(cells, wantedCells) << n;
        EXPECT_EQ(fractions, wanted) << n;
    }
}

TEST_P(FusedRows, DividesBlurredValuesByBlurredCounts) {
    for (const std::int32_t n : {1, 8, 37}) {
        Row slices[6], quotient(static_cast<std::size_t>(n));
        for (Row& slice : slices) {
            slice = noise(n);
            primAddC32fC1I(9.0f, slice.data(), 0, {n, 1});
        }
        const float* const values[3] = {slices[0].data(), slices[1].data(), slices[2].data()};
        const float* const counts[3] = {slices[3].data(), slices[4].data(), slices[5].data()};
        blurQuotientRow(values, counts, quotient.data(), n);
        const auto blurred = [&](Row* of) {
            Row sum = of[1];
            primMulC32fI(2.0f, sum.data(), n);
            primAdd32fI(of[0].data(), sum.data(), n);
            primAdd32fI(of[2].data(), sum.data(), n);
            return sum;
        };
        Row wanted = blurred(slices);
        ASSERT_EQ(primDiv32fI(blurred(slices + 3).data(), wanted.data(), n), primOk);
        expectNear(quotient, wanted, 1e-6f, n);
    }
}

TEST_P(FusedRows, NormalisesByTheWeightsThatCoverAPixel) {
    constexpr std::ptrdiff_t stride = 80;
    constexpr float floor = 0.01f;
    for (const std::int32_t n : {1, 8, 37, 64}) {
        Row weights = noise(8 * stride), image = noise(n), scratch(static_cast<std::size_t>(n + 7));
        primAbs32fC1I(weights.data(), 0, {8 * stride, 1});
        const Row sums = noise(n);
        Row wanted = image, covering(image.size(), floor);
        for (std::ptrdiff_t i = 0; i < 64; ++i)
            primAdd32fI(weights.data() + i / 8 * stride + i % 8, covering.data(), n);
        primMulC32fI(floor, wanted.data(), n);
        primAdd32fI(sums.data(), wanted.data(), n);
        primDiv32fC1I(covering.data(), 0, wanted.data(), 0, {n, 1});
        normaliseRow(weights.data(), stride, sums.data(), floor, scratch.data(), image.data(), n);
        expectNear(image, wanted, 2e-6f, n);
    }
}

// A plane's columns are filtered as the rows of its transpose.
TEST_P(FusedRows, WeighsTenRowsAndKeepsBehindTheEnd) {
    for (const std::int32_t n : {1, 3, 7, 8, 15, 16, 17, 31, 33, 100})
        for (const std::int32_t sums : {1, 2, 4}) {
            const Row plane = noise(10 * n), weights = noise(10 * sums);
            Row turned(plane.size()), out(static_cast<std::size_t>((n + 1) * sums), -99.0f);
            const float* src[10];
            for (std::int32_t i = 0; i < 10; ++i)
                src[i] = plane.data() + i * n;
            float* dst[4];
            for (std::int32_t k = 0; k < sums; ++k)
                dst[k] = out.data() + k * (n + 1);
            weightedSums(src, weights.data(), dst, sums, n);
            primTranspose32fC1(plane.data(), 4 * n, turned.data(), 40, {n, 10});
            for (std::int32_t k = 0; k < sums; ++k) {
                Row wanted(static_cast<std::size_t>(n));
                float taps[10];
                std::reverse_copy(weights.data() + 10 * k, weights.data() + 10 * k + 10, taps);
                ASSERT_EQ(primFilter32fC1(turned.data(), 40, wanted.data(), 4, {1, n}, taps,
                                          {10, 1}, {9, 0}),
                          primOk);
                expectNear(Row(dst[k], dst[k] + n), wanted, 2e-6f, n);
                ASSERT_EQ(dst[k][n], -99.0f);
            }
        }
}

TEST_P(FusedRows, SplitsAndJoinsPairs) {
    for (const std::int32_t n : {1, 7, 16, 33}) {
        const Row row = noise(2 * n);
        Row even(row.size() / 2), odd(even), joined(row.size());
        splitPairs(row.data(), even.data(), odd.data(), n);
        EXPECT_EQ(odd[0], row[1]);
        EXPECT_EQ(even.back(), row[row.size() - 2]);
        joinPairs(even.data(), odd.data(), joined.data(), n);
        EXPECT_EQ(joined, row);
    }
}

TEST_P(FusedRows, ShrinkCoefficientsByTheirGains) {
    constexpr std::int32_t n = 203;
    constexpr PrimSize row{n, 1};
    constexpr float threshold = 0.8f, slope = 0.5f, cap = 1.3f, rootHalf = 0.70710677f;
    const Row t[4] = {noise(n, 2), noise(n, 2), noise(n, 2), noise(n, 2)};
    const float* const trees[4] = {t[0].data(), t[1].data(), t[2].data(), t[3].data()};
    const auto combined = [&](std::size_t first, std::size_t second, bool difference) {
        Row sum = t[first];
        if (difference)
            primSub32fC1I(t[second].data(), 0, sum.data(), 0, row);
        else
            primAdd32fI(t[second].data(), sum.data(), n);
        primMulC32fI(rootHalf, sum.data(), n);
        return sum;
    };
    const Row re[2] = {combined(0, 3, false), combined(1, 2, false)};
    const Row im[2] = {combined(1, 2, true), combined(0, 3, true)};
    Row guide[2] = {noise(n, 0.5f), noise(n, 0.5f)}, own[2], larger[2] = {guide[0], guide[1]};
    std::vector<std::uint8_t> mask(n);
    for (int o = 0; o < 2; ++o) {
        own[o].resize(n);
        primMagnitude32f(re[o].data(), im[o].data(), own[o].data(), n);
        primSubC32fC1I(threshold, own[o].data(), 0, row);
        primMulC32fI(slope, own[o].data(), n);
        primCompare32fC1(own[o].data(), 0, larger[o].data(), 0, mask.data(), 0, row, primGreater);
        primCopy32fC1M(own[o].data(), 0, larger[o].data(), 0, row, mask.data(), 0);
    }
    // Back to the last tree: the difference of the two parts that it went into.
    const auto restored = [&](const Row(&gains)[2]) {
        Row first = re[0], second = im[1];
        Row* const parts[2] = {&first, &second};
        for (int o = 0; o < 2; ++o) {
            Row held = gains[o];
            primThresholdLT32fC1I(held.data(), 0, row, 0.0f);
            primThresholdGT32fC1I(held.data(), 0, row, cap);
            primMul32fC1I(held.data(), 0, parts[o]->data(), 0, row);
        }
        primSub32fC1I(second.data(), 0, first.data(), 0, row);
        primMulC32fI(rootHalf, first.data(), n);
        return first;
    };
    Row gain0(n), gain1(n), got(n);
    gainRows(trees, threshold, slope, gain0.data(), gain1.data(), n);
    expectNear(gain0, own[0], 2e-6f, n);
    expectNear(gain1, own[1], 2e-6f, n);
    shrinkByGuide(trees, guide[0].data(), guide[1].data(), cap, got.data(), n);
    expectNear(got, restored(guide), 3e-6f, n);
    shrinkByOwn(trees, threshold, slope, cap, got.data(), n);
    expectNear(got, restored(own), 3e-6f, n);
    shrinkByBoth(trees, threshold, slope, guide[0].data(), guide[1].data(), cap, got.data(), n);
    expectNear(got, restored(larger), 3e-6f, n);
}

TEST_P(FusedRows, LayPixelsOutChannelByChannel) {
    for (const std::int32_t n : {1, 5, 8, 33, 200}) {
        std::vector<std::uint8_t> rgb, bgra(4 * n), screen(bgra), grey(bytes(n)), spread(3 * n),
            wanted(3 * n);
        std::vector<std::uint8_t> channels[3] = {bytes(n), bytes(n), bytes(n)};
        rgb.resize(3 * n);
        for (int c = 0; c < 3; ++c) {
            primCopy8uC1C3(channels[c].data(), n, rgb.data() + c, 3 * n, {n, 1});
            primCopy8uC1C4(channels[c].data(), n, screen.data() + 2 - c, 4 * n, {n, 1});
            primCopy8uC1C3(grey.data(), n, wanted.data() + c, 3 * n, {n, 1});
        }
        primSetChannel8uC4(255, screen.data() + 3, 4 * n, {n, 1});
        for (const bool streamed : {false, true}) {
            toScreen8Row(rgb.data(), bgra.data(), n, streamed);
            EXPECT_EQ(bgra, screen) << n;
        }
        greyToRgbRow(grey.data(), spread.data(), n);
        EXPECT_EQ(spread, wanted) << n;
        std::uint64_t sum = 0;
        double mean = 0;
        primSum8uC1(grey.data(), 0, {n, 1}, &sum);
        primMean8uC1(grey.data(), 0, {n, 1}, &mean);
        EXPECT_EQ(mean, static_cast<double>(sum) / n);
    }
}

} // namespace
} // namespace kt7
