#include "prim/deconvLR.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tests/support/targets.h"

namespace kt7 {
namespace {

struct Matrix {
    std::int32_t width, height;
    std::vector<double> v = std::vector<double>(static_cast<std::size_t>(width * height));
    double& at(std::int32_t x, std::int32_t y) {
        return v[static_cast<std::size_t>(y * width + x)];
    }
    double read(std::int32_t x, std::int32_t y) const {
        const bool inside = x >= 0 && y >= 0 && x < width && y < height;
        return inside ? v[static_cast<std::size_t>(y * width + x)] : 0.0;
    }
};

/// The iteration in plain loops and double precision, convolution by convolution.
Matrix reference(const Matrix& src, const Matrix& k, std::int32_t iterations, double threshold) {
    const std::int32_t K = k.width, a = (K - 1) / 2, in = K - 1 - a;
    Matrix obs{src.width + K - 1, src.height + K - 1};
    const auto weight = [&](std::int32_t x, std::int32_t y) {
        double sum = 0;
        for (std::int32_t j = 0; j < K; ++j)
            for (std::int32_t i = 0; i < K; ++i)
                if (x + i - a >= 0 && x + i - a < src.width && y + j - a >= 0 &&
                    y + j - a < src.height)
                    sum += k.read(i, j);
        return sum;
    };
    for (std::int32_t y = 0; y < obs.height; ++y)
        for (std::int32_t x = 0; x < obs.width; ++x) {
            const std::int32_t px = std::clamp(x - in, 0, src.width - 1);
            const std::int32_t py = std::clamp(y - in, 0, src.height - 1);
            const double full = weight(px, py);
            obs.at(x, y) = src.read(px, py);
            if (px != x - in || py != y - in)
                obs.at(x, y) *= weight(x - in, y - in) / (std::abs(full) < threshold ? 1.0 : full);
        }
    const auto convolved = [&](const Matrix& m, bool transposed, std::int32_t anchor) {
        Matrix sum{m.width, m.height};
        for (std::int32_t y = 0; y < m.height; ++y)
            for (std::int32_t x = 0; x < m.width; ++x)
                for (std::int32_t j = 0; j < K; ++j)
                    for (std::int32_t i = 0; i < K; ++i)
                        sum.at(x, y) += (transposed ? k.read(j, i) : k.read(i, j)) *
                                        m.read(x + anchor - i, y + anchor - j);
        return sum;
    };
    Matrix est = obs;
    for (std::int32_t n = 0; n < iterations; ++n) {
        Matrix r = convolved(est, false, a);
        for (std::size_t i = 0; i < r.v.size(); ++i)
            r.v[i] = std::abs(r.v[i]) > threshold ? obs.v[i] / r.v[i] : 0.0;
        const Matrix e = convolved(r, true, K - 1 - a);
        for (std::size_t i = 0; i < r.v.size(); ++i)
            est.v[i] *= e.v[i];
    }
    Matrix dst{src.width, src.height};
    for (std::int32_t y = 0; y < dst.height; ++y)
        for (std::int32_t x = 0; x < dst.width; ++x)
            if (const double value = est.read(x + in, y + in); std::abs(value) > threshold)
                dst.at(x, y) = value;
    return dst;
}

std::vector<float> restored(const Matrix& src, const Matrix& k, std::int32_t iterations,
                            float threshold) {
    std::vector<float> plane(src.v.begin(), src.v.end()), weights(k.v.begin(), k.v.end());
    PrimDeconvLR32f* made = nullptr;
    // Room for more than the plane: the state serves smaller ones too.
    EXPECT_EQ(primDeconvLRInitAlloc32fC1(&made, weights.data(), k.width,
                                         {src.width + k.width + 20, src.height + k.width},
                                         threshold),
              primOk);
    const PrimDeconvLRPtr state(made);
    std::vector<float> first;
    for (int run = 0; run < 2; ++run) {
        std::vector<float> dst(plane.size());
        EXPECT_EQ(primDeconvLR32fC1(plane.data(), src.width * 4, dst.data(), src.width * 4,
                                    {src.width, src.height}, iterations, state.get()),
                  primOk);
        EXPECT_TRUE(run == 0 || dst == first) << "what a run leaves must not reach the next";
        first = dst;
    }
    return first;
}

struct Case {
    std::int32_t K;
    bool gaussian;
    std::int32_t width, height, iterations;
};
constexpr Case cases[] = {{3, true, 33, 20, 5},  {5, true, 47, 31, 8},  {7, true, 6, 40, 5},
                          {9, true, 40, 35, 10}, {9, true, 1, 1, 3},    {3, false, 30, 17, 4},
                          {5, false, 9, 22, 3},  {4, false, 21, 19, 3}, {1, false, 8, 5, 2},
                          {11, true, 30, 15, 3}};

class DeconvLR : public test::OnTarget {};

TEST_P(DeconvLR, AgreesWithPlainLoops) {
    for (const Case& c : cases) {
        std::mt19937 random(3);
        std::uniform_real_distribution<double> uniform(0.01, 1.0);
        Matrix k{c.K, c.K}, src{c.width, c.height};
        const double middle = (c.K - 1) / 2;
        for (std::int32_t j = 0; j < c.K; ++j)
            for (std::int32_t i = 0; i < c.K; ++i)
                k.at(i, j) =
                    c.gaussian
                        ? std::exp(-(std::pow(i - middle, 2) + std::pow(j - middle, 2)) / c.K)
                        : uniform(random);
        double sum = 0;
        for (const double w : k.v)
            sum += w;
        for (double& w : k.v)
            w /= sum;
        for (double& v : src.v)
            v = uniform(random);
        src.at(0, 0) = src.at(c.width - 1, c.height - 1) = 0.0;
        const Matrix expected = reference(src, k, c.iterations, 1e-4);
        const std::vector<float> actual = restored(src, k, c.iterations, 1e-4f);
        for (std::size_t i = 0; i < actual.size(); ++i)
            ASSERT_NEAR(double{actual[i]}, expected.v[i], 2e-5 * (1 + expected.v[i]))
                << c.K << ' ' << c.width << ' ' << i;
    }
}

KT7_ON_EVERY_TARGET(DeconvLR);

TEST(DeconvLRStatus, RefusesBadArguments) {
    const float kernel[9] = {0, 0, 0, 0, 1, 0, 0, 0, 0};
    float plane[100] = {};
    PrimDeconvLR32f* s = nullptr;
    EXPECT_EQ(primDeconvLRInitAlloc32fC1(&s, kernel, 3, {9, 2}, 0.f), primBadSize);
    EXPECT_EQ(primDeconvLRInitAlloc32fC1(&s, kernel, 3, {9, 9}, -1.f), primBadArg);
    EXPECT_EQ(primDeconvLRInitAlloc32fC1(&s, kernel, 3, {0x7fffffff, 0x7fffffff}, 0.f), primNoMem);
    EXPECT_EQ(s, nullptr);
    ASSERT_EQ(primDeconvLRInitAlloc32fC1(&s, kernel, 3, {9, 9}, 0.f), primOk);
    const PrimDeconvLRPtr state(s);
    const auto run = [&](std::int32_t step, PrimSize size, std::int32_t iterations) {
        return primDeconvLR32fC1(plane, step, plane, step, size, iterations, s);
    };
    EXPECT_EQ(run(28, {7, 7}, 1), primOk);
    EXPECT_EQ(run(32, {8, 7}, 1), primBadSize);
    EXPECT_EQ(run(28, {7, 0}, 1), primBadSize);
    EXPECT_EQ(run(27, {7, 7}, 1), primBadStep);
    EXPECT_EQ(run(30, {7, 7}, 1), primUnalignedStep);
    EXPECT_EQ(run(28, {7, 7}, 0), primBadArg);
    EXPECT_EQ(primDeconvLR32fC1(plane, 28, plane, 28, {7, 7}, 1, nullptr), primNullPtr);
}

} // namespace
} // namespace kt7
