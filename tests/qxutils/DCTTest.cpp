// The plain transforms that group filter and features are compared with.
#include "qxutils/DCT.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "prim/plainForms.h"

namespace kt7 {
namespace {

struct Transform {
    const char* name;
    std::size_t size;
    void (*forward)(float*);
    void (*inverse)(float*);
};

class CosineTransform : public testing::TestWithParam<Transform> {};

TEST_P(CosineTransform, KeepsEnergyAndComesBack) {
    const Transform& t = GetParam();
    std::mt19937 random(7);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    std::vector<float> x(t.size);
    double before = 0, after = 0;
    for (float& v : x) {
        v = sample(random);
        before += double{v} * double{v};
    }
    const std::vector<float> input = x;
    t.forward(x.data());
    for (const float v : x)
        after += double{v} * double{v};
    EXPECT_NEAR(after, before, 1e-6 * before);
    if (t.inverse == nullptr)
        return;
    t.inverse(x.data());
    for (std::size_t i = 0; i < x.size(); ++i)
        ASSERT_NEAR(x[i], input[i], 1e-6f) << i;
}

// A half cosine of one frequency along the last axis has one coefficient, as has a constant.
TEST_P(CosineTransform, PutsAConstantAndAFrequencyIntoOneCoefficient) {
    const Transform& t = GetParam();
    const std::size_t side = t.size == 16 ? 4 : 8;
    for (const std::size_t k : {std::size_t{0}, std::size_t{3}}) {
        std::vector<float> x(t.size);
        for (std::size_t i = 0; i < x.size(); ++i)
            x[i] = static_cast<float>(std::cos((2.0 * static_cast<double>(i % side) + 1.0) *
                                               static_cast<double>(k) * M_PI /
                                               (2.0 * static_cast<double>(side))));
        t.forward(x.data());
        const double size = std::sqrt(static_cast<double>(t.size) / (k == 0 ? 1 : 2));
        for (std::size_t i = 0; i < x.size(); ++i)
            ASSERT_NEAR(x[i], i == k ? size : 0.0, 4e-6) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(All, CosineTransform,
                         testing::Values(Transform{"Cube", 512, nDCT8x8x8, nIDCT8x8x8},
                                         Transform{"Block", 64,
                                                   [](float* b) { primDCT8x8Fwd32fC1I(b); },
                                                   [](float* b) { primDCT8x8Inv32fC1I(b); }},
                                         Transform{"Sample", 16, dct4x4, nullptr}),
                         [](const auto& tested) { return tested.param.name; });

} // namespace
} // namespace kt7
