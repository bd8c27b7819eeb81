#include "qxutils/DCT.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "prim/dct8x8.h"
#include "prim/kernels/select.h"

namespace kt7 {
namespace {

// Orthonormal DCT-II in double precision along one axis of n elements, `stride` apart.
void referenceAxis(double* x, int n, int stride) {
    std::vector<double> out;
    for (int k = 0; k < n; ++k) {
        double sum = 0;
        for (int i = 0; i < n; ++i)
            sum += x[i * stride] * std::cos((2 * i + 1) * k * std::numbers::pi / (2 * n));
        out.push_back(sum * std::sqrt((k == 0 ? 1.0 : 2.0) / n));
    }
    for (int k = 0; k < n; ++k)
        x[k * stride] = out[static_cast<std::size_t>(k)];
}

struct Transform {
    const char* name;
    int side, axes;
    void (*forward)(float*);
    void (*inverse)(float*);
};

class CosineTransform : public testing::TestWithParam<Transform> {
  protected:
    void TearDown() override { selectKernels(bestCpuTarget()); }
};

TEST_P(CosineTransform, AgreesWithTheDefinitionAndComesBackOnEveryTarget) {
    const Transform& t = GetParam();
    int size = 1;
    for (int a = 0; a < t.axes; ++a)
        size *= t.side;
    std::mt19937 random(7);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    std::vector<float> input;
    for (int i = 0; i < size; ++i)
        input.push_back(sample(random));
    std::vector<double> expected(input.begin(), input.end());
    for (int stride = 1; stride < size; stride *= t.side)
        for (int i = 0; i < size; ++i)
            if (i / stride % t.side == 0)
                referenceAxis(&expected[static_cast<std::size_t>(i)], t.side, stride);

    for (int target = 0; target <= static_cast<int>(bestCpuTarget()); ++target) {
        selectKernels(static_cast<CpuTarget>(target));
        std::vector<float> x = input;
        double worst = 0, worstBack = 0;
        t.forward(x.data());
        for (std::size_t i = 0; i < x.size(); ++i)
            worst = std::max(worst, std::abs(double{x[i]} - expected[i]));
        EXPECT_LT(worst, 2e-6) << "target " << target;
        if (t.inverse == nullptr)
            continue;
        t.inverse(x.data());
        for (std::size_t i = 0; i < x.size(); ++i)
            worstBack = std::max(worstBack, std::abs(double{x[i]} - double{input[i]}));
        EXPECT_LT(worstBack, 2e-6) << "target " << target;
        EXPECT_GT(worst + worstBack, 2e-8); // else the bounds are far too wide
    }
}

TEST_P(CosineTransform, PutsAConstantIntoOneCoefficient) {
    const Transform& t = GetParam();
    const auto size = static_cast<std::size_t>(std::lround(std::pow(t.side, t.axes)));
    std::vector<float> x(size, 0.75f);
    t.forward(x.data());
    EXPECT_NEAR(x[0], 0.75 * std::sqrt(static_cast<double>(size)), 4e-6);
    for (std::size_t i = 1; i < size; ++i)
        EXPECT_NEAR(x[i], 0.0f, 2e-6f) << i;
}

INSTANTIATE_TEST_SUITE_P(All, CosineTransform,
                         testing::Values(Transform{"Cube", 8, 3, nDCT8x8x8, nIDCT8x8x8},
                                         Transform{"Block", 8, 2,
                                                   [](float* b) { primDCT8x8Fwd32fC1I(b); },
                                                   [](float* b) { primDCT8x8Inv32fC1I(b); }},
                                         Transform{"Sample", 4, 2, dct4x4, nullptr}),
                         [](const auto& tested) { return tested.param.name; });

TEST(BlockTransform, RefusesANullBlock) {
    EXPECT_EQ(primDCT8x8Fwd32fC1I(nullptr), primNullPtr);
    EXPECT_EQ(primDCT8x8Inv32fC1I(nullptr), primNullPtr);
}

} // namespace
} // namespace kt7
