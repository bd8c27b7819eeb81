#include "qxenhlib/BilateralFilter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "qxenhlib/bilateralPass.h"
#include "qxutils/parallel.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

// Two noisy halves with a slope, within 0..1 and reaching both ends.
void fillScene(GIMG<float>& tile, float noise) {
    std::mt19937 random(11);
    std::normal_distribution<float> grain(0.0f, noise);
    for (std::int32_t y = 0; y < tile.height; ++y)
        for (std::int32_t x = 0; x < tile.width; ++x) {
            const float level = x < tile.width / 2 ? 0.2f : 0.8f;
            tile.row(y)[static_cast<std::size_t>(x)] =
                std::clamp(level + 0.001f * static_cast<float>(y) + grain(random), 0.0f, 1.0f);
        }
    tile.row(0)[0] = 0.0f;
    tile.row(tile.height - 1).back() = 1.0f;
}

// The grid in double precision, in whole passes over whole grids.
class SlowGrid {
  public:
    SlowGrid(const GIMG<float>& values, const GIMG<float>& edges, int sample, double bin)
        : nx_((values.width + sample - 1) / sample + 4),
          ny_((values.height + sample - 1) / sample + 4),
          nz_(static_cast<int>(std::ceil(1.0 / bin - 1e-9)) + 4), sample_(sample), bin_(bin) {
        std::vector<double> sums(cells(), 0.0), counts(cells(), 1e-11);
        for (int y = 0; y < values.height; ++y)
            for (int x = 0; x < values.width; ++x) {
                const auto i = static_cast<std::size_t>(x);
                const int z = static_cast<int>(static_cast<double>(edges.row(y)[i]) / bin + 2.0);
                at(sums, 2 + x / sample, 2 + y / sample, z) += double{values.row(y)[i]};
                at(counts, 2 + x / sample, 2 + y / sample, z) += 1.0;
            }
        blur(sums);
        blur(counts);
        for (std::size_t i = 0; i < sums.size(); ++i)
            sums[i] /= counts[i];
        quotient_ = sums;
    }

    double read(int x, int y, double edge) {
        const double p[3] = {x / double(sample_) + 1.5, y / double(sample_) + 1.5,
                             edge / bin_ + 1.5};
        double sum = 0.0;
        for (int corner = 0; corner < 8; ++corner) {
            double weight = 1.0;
            int cell[3];
            for (int axis = 0; axis < 3; ++axis) {
                const int far = corner >> axis & 1;
                const double fraction = p[axis] - std::floor(p[axis]);
                cell[axis] = static_cast<int>(p[axis]) + far;
                weight *= far != 0 ? fraction : 1.0 - fraction;
            }
            sum += weight * at(quotient_, cell[0], cell[1], cell[2]);
        }
        return sum;
    }

  private:
    std::size_t cells() const { return std::size_t(nx_) * std::size_t(ny_) * std::size_t(nz_); }
    double& at(std::vector<double>& grid, int x, int y, int z) const {
        return grid[std::size_t((y * nx_ + x) * nz_ + z)];
    }
    // Pads inside each slice, blurs it, pads across slices, blurs across them.
    void blur(std::vector<double>& grid) const {
        std::vector<double> inSlice(grid.size(), 0.0);
        for (int y = 0; y < ny_; ++y) {
            for (int z = 1; z < nz_ - 1; ++z) {
                at(grid, 1, y, z) = at(grid, 2, y, z);
                at(grid, nx_ - 2, y, z) = at(grid, nx_ - 3, y, z);
            }
            for (int x = 1; x < nx_ - 1; ++x) {
                at(grid, x, y, 1) = at(grid, x, y, 2);
                at(grid, x, y, nz_ - 2) = at(grid, x, y, nz_ - 3);
            }
            for (int x = 1; x < nx_ - 1; ++x)
                for (int z = 1; z < nz_ - 1; ++z)
                    for (int i = -1; i < 2; ++i)
                        for (int j = -1; j < 2; ++j)
                            at(inSlice, x, y, z) +=
                                at(grid, x + i, y, z + j) * (2 - i * i) * (2 - j * j) / 16.0;
        }
        for (int x = 0; x < nx_; ++x)
            for (int z = 0; z < nz_; ++z) {
                at(inSlice, x, 1, z) = at(inSlice, x, 2, z);
                at(inSlice, x, ny_ - 2, z) = at(inSlice, x, ny_ - 3, z);
            }
        for (int y = 1; y < ny_ - 1; ++y)
            for (int x = 1; x < nx_ - 1; ++x)
                for (int z = 1; z < nz_ - 1; ++z)
                    at(grid, x, y, z) = 2.0 * at(inSlice, x, y, z) + at(inSlice, x, y - 1, z) +
                                        at(inSlice, x, y + 1, z);
    }

    int nx_, ny_, nz_, sample_;
    double bin_;
    std::vector<double> quotient_;
};

struct Shape {
    std::int32_t width, height, sample;
    float bin;
};

// Bins are powers of two, so that no pixel lies within a rounding of a cell's bound.
constexpr Shape shapes[] = {{64, 40, 4, 0.125f},     {67, 41, 8, 0.0625f}, {31, 90, 5, 0.25f},
                            {9, 7, 24, 0.5f},        {2, 2, 2, 1.0f},      {1, 1, 3, 4.0f},
                            {130, 33, 2, 0.0078125f}};

class BilateralTargets : public test::OnTarget {};

KT7_ON_EVERY_TARGET(BilateralTargets);

TEST_P(BilateralTargets, FollowTheGridInDoublePrecision) {
    for (const Shape& s : shapes) {
        GIMG<float> edges(s.width, s.height), values(s.width, s.height);
        fillScene(edges, 0.05f);
        fillScene(values, 0.1f);
        SlowGrid slow(values, edges, s.sample, double{s.bin});
        std::vector<float> first;
        for (const CpuTarget target : {CpuTarget::generic, GetParam()}) {
            selectKernels(target);
            fillScene(values, 0.1f);
            BilateralFilter filter;
            ASSERT_EQ(filter.setup(s.width, s.height, 0.0f, 1.0f, s.sample, s.bin), 0);
            ASSERT_EQ(filter.filter(values, edges), 0);
            std::vector<float> result;
            for (std::int32_t y = 0; y < s.height; ++y)
                for (std::int32_t x = 0; x < s.width; ++x) {
                    const auto i = static_cast<std::size_t>(x);
                    result.push_back(values.row(y)[i]);
                    ASSERT_NEAR(double{result.back()}, slow.read(x, y, double{edges.row(y)[i]}),
                                2e-6)
                        << s.width << "x" << s.height << " at " << x << "," << y;
                }
            if (target == CpuTarget::generic)
                first = result;
            EXPECT_EQ(result, first) << static_cast<int>(target);
        }
    }
}

TEST(BilateralFilter, SmoothsEachSideOfAnEdgeAndForgetsTheTileBefore) {
    GIMG<float> tile(150, 97);
    std::vector<float> first;
    BilateralFilter filter;
    ASSERT_EQ(filter.setup(150, 97, 0.0f, 1.0f, 6, 0.2f), 0);
    for (const float noiseBefore : {0.01f, 0.3f}) {
        fillScene(tile, noiseBefore);
        ASSERT_EQ(filter.filter(tile, tile), 0);
        fillScene(tile, 0.05f);
        ASSERT_EQ(filter.filter(tile, tile), 0);
        std::vector<float> result;
        for (std::int32_t y = 0; y < tile.height; ++y)
            result.insert(result.end(), tile.row(y).begin(), tile.row(y).end());
        if (first.empty())
            first = result;
        EXPECT_EQ(result, first);
    }
    for (const std::size_t x : {std::size_t{20}, std::size_t{50}}) {
        const std::size_t row = 48 * 150;
        EXPECT_NEAR(first[row + x], 0.248f, 0.02f);
        EXPECT_NEAR(first[row + x + 75], 0.848f, 0.02f);
    }
}

TEST(BilateralFilter, LaysTheGridOutAndRefusesOtherTiles) {
    BilateralFilter filter;
    GIMG<float> tile(40, 30), narrow(39, 30);
    fillScene(tile, 0.01f);
    EXPECT_EQ(filter.filter(tile, tile), 2);
    EXPECT_EQ(filter.setup(40, 30, 0.0f, 1.0f, 1, 0.1f), 5);
    EXPECT_EQ(filter.gridX, 0);
    // The finest value axis ends just below 1 with 245 cells and takes one more.
    ASSERT_EQ(filter.setup(40, 30, 0.0f, 1.0f, 4, 0.0040816325f), 0);
    EXPECT_EQ(filter.gridX, 14);
    EXPECT_EQ(filter.gridY, 12);
    EXPECT_EQ(filter.gridZ, 250);
    EXPECT_EQ(filter.filter(narrow, tile), 2);
    EXPECT_EQ(filter.filter(tile, narrow), 2);
    const float* const before = filter.valueGrid.get();
    ASSERT_EQ(filter.setup(40, 30, 0.0f, 1.0f, 4, 0.0040816325f), 0);
    EXPECT_EQ(filter.valueGrid.get(), before);
}

TEST(BilateralFilter, NoticesAnOverrunGrid) {
    const auto damageOne = [] {
        BilateralFilter filter;
        filter.setup(40, 30, 0.0f, 1.0f, 4, 0.1f);
        filter.countGrid[static_cast<std::size_t>(filter.gridX * filter.gridY * filter.gridZ)] = 0;
    };
    try {
        damageOne();
        FAIL();
    } catch (int code) {
        EXPECT_EQ(code, 104);
    }
}

TEST(BilateralPass, SmoothsWithinTheLimitsAndKeepsTheRimMarked) {
    GIMG<std::int16_t> plane(620, 450);
    std::mt19937 random(5);
    std::normal_distribution<float> grain(0.0f, 400.0f);
    const auto levelAt = [](std::int32_t x) { return x < 200 ? 4000 : x < 400 ? 12000 : 30000; };
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int32_t x = 0; x < plane.width; ++x)
            *plane.at(x, y) = static_cast<std::int16_t>(
                std::min(32767.0f, static_cast<float>(levelAt(x)) + grain(random)));
    ASSERT_EQ(bilateralPass(plane, 0.1f, 8.0f), 1);
    EXPECT_EQ(*plane.at(5, 200), -32768);
    EXPECT_EQ(*plane.at(300, 449), -32768);
    double squares[2] = {};
    for (std::int32_t y = 20; y < 430; ++y) {
        for (std::int32_t i = 0; i < 150; ++i)
            for (const std::int32_t half : {0, 1}) {
                const std::int32_t x = 30 + 200 * half + i;
                squares[half] += std::pow(*plane.at(x, y) - levelAt(x), 2);
            }
        // Beyond the limit of 0.64 the plane ends at it.
        EXPECT_NEAR(*plane.at(500, y), 0.64 * 32768, 2.0);
    }
    for (const double sum : squares)
        EXPECT_LT(std::sqrt(sum / (410 * 150)), 120.0);
}

TEST(BilateralPass, GivesTheSameOnAnyTeam) {
    const std::int32_t threads = maxThreads();
    std::vector<std::int16_t> first;
    for (const std::int32_t team : {1, 2, 4}) {
        setMaxThreads(team);
        GIMG<std::int16_t> plane(1300, 1250);
        std::mt19937 random(8);
        for (std::int32_t y = 0; y < plane.height; ++y)
            for (std::int16_t& sample : plane.row(y))
                sample = static_cast<std::int16_t>(random() % 20000);
        bilateralPass(plane, 0.1f, 12.0f);
        std::vector<std::int16_t> result;
        for (std::int32_t y = 0; y < plane.height; ++y)
            result.insert(result.end(), plane.row(y).begin(), plane.row(y).end());
        if (first.empty())
            first = result;
        EXPECT_TRUE(result == first) << team;
    }
    setMaxThreads(threads);
}

TEST(BilateralPass, LeavesPlanesThatItCannotMap) {
    constexpr std::int16_t levels[] = {0, -4000, 25000, -32768, 32767};
    for (const std::int16_t level : levels) {
        GIMG<std::int16_t> plane(300, 200);
        for (std::int32_t y = 0; y < 200; ++y)
            std::ranges::fill(plane.row(y), level);
        *plane.at(9, 9) = level > 20971 ? std::int16_t{30000} : level;
        const std::int16_t corner = *plane.at(9, 9);
        ASSERT_EQ(bilateralPass(plane, 0.05f, 6.0f), 1);
        EXPECT_EQ(*plane.at(0, 0), level);
        EXPECT_EQ(*plane.at(9, 9), corner);
        EXPECT_EQ(*plane.at(150, 100), level);
    }
}

TEST(BilateralPass, TakesAnyStrengthAndRange) {
    const auto smoothed = [](float strength, float range) {
        GIMG<std::int16_t> plane(90, 70);
        std::mt19937 random(3);
        for (std::int32_t y = 0; y < plane.height; ++y)
            for (std::int16_t& sample : plane.row(y))
                sample = static_cast<std::int16_t>(random() % 16384);
        EXPECT_EQ(bilateralPass(plane, strength, range), 1);
        std::vector<std::int16_t> inside;
        for (std::int32_t y = 16; y < 54; ++y)
            inside.insert(inside.end(), plane.row(y).begin() + 16, plane.row(y).begin() + 74);
        for (const std::int16_t sample : inside)
            EXPECT_TRUE(sample >= -1 && sample <= 16385) << strength << " " << range;
        return inside;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    for (const float strength : {nan, inf, -inf, 3e38f, -1.0f, 0.0f, 1e-30f, 0.05f})
        for (const float range : {nan, inf, -inf, 3e38f, -5.0f, 0.0f, 1.9f, 2.0f, 7.0f, 1e9f})
            smoothed(strength, range);
    EXPECT_EQ(smoothed(0.2f, 4.9f), smoothed(0.2f, 4.0f));
    EXPECT_NE(smoothed(0.2f, 4.9f), smoothed(0.2f, 5.0f));
    EXPECT_EQ(smoothed(0.2f, 1.9f), smoothed(0.2f, nan));
}

} // namespace
} // namespace kt7
