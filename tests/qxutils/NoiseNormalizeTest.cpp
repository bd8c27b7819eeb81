#include "qxutils/NoiseNormalize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace kt7 {
namespace {

constexpr std::int32_t top = NoiseNormalize::tableSize - 1;

void expectMonotone(const NoiseNormalize& n, const char* what) {
    EXPECT_GE(n.fwd[0], 0) << what;
    EXPECT_EQ(n.fwd[top], top) << what;
    EXPECT_EQ(n.inv[0], 0) << what;
    EXPECT_EQ(n.inv[top], top) << what;
    for (std::int32_t i = 1; i <= top; ++i) {
        ASSERT_GE(n.fwd[i], n.fwd[i - 1]) << what << " fwd " << i;
        ASSERT_GE(n.inv[i], n.inv[i - 1]) << what << " inv " << i;
    }
}

TEST(NoiseNormalize, KnownCurve) {
    NoiseNormalize n;
    EXPECT_NEAR(n.setup(0.01f, 0.02f, 0.03f, 0.95f), 0.01915f, 5e-6f);
    EXPECT_NEAR(n.fwd[1024], 1765, 2);
    EXPECT_NEAR(n.fwd[16384], 19577, 2);
    EXPECT_NEAR(n.fwd[32640], 32520, 2);
}

TEST(NoiseNormalize, NoNoiseChangesNothing) {
    NoiseNormalize n;
    for (const float level : {0.0f, -1.0f, 9e-7f, std::numeric_limits<float>::quiet_NaN()}) {
        const float result = n.setup(level, level, level, 0.95f);
        EXPECT_EQ(result, level > 0.0f ? level : 0.0f);
        for (std::int32_t i = 0; i <= top; ++i)
            ASSERT_TRUE(n.fwd[i] == i && n.inv[i] == i) << i;
    }
}

TEST(NoiseNormalize, TablesAreMonotoneAndUndoEachOther) {
    struct Case {
        const char* what;
        float low, mid, high;
    };
    for (const Case& c : {Case{"rising", 0.01f, 0.02f, 0.03f}, Case{"flat", 0.05f, 0.05f, 0.05f},
                          Case{"falling", 0.08f, 0.03f, 0.0f}, Case{"black only", 0.1f, 0.0f, 0.0f},
                          Case{"white only", 0.0f, 0.0f, 0.1f}, Case{"tiny", 1e-5f, 1e-5f, 1e-5f},
                          Case{"huge", 50.0f, 3.0f, 1e20f}}) {
        NoiseNormalize n;
        n.setup(c.low, c.mid, c.high, 0.95f);
        expectMonotone(n, c.what);
        for (std::int32_t i = 2; i < top; ++i)
            if (n.fwd[i + 1] - n.fwd[i - 1] > 2) { // steeper than 1
                ASSERT_NEAR(n.inv[n.fwd[i]], i, 1) << c.what << ' ' << i;
            }
    }
}

TEST(NoiseNormalize, ExtremesGiveUsableTables) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    constexpr float most = std::numeric_limits<float>::max();
    constexpr float denormal = std::numeric_limits<float>::denorm_min();
    const float levels[] = {0.0f, -inf, inf, nan, most, denormal, 0.02f};
    NoiseNormalize n;
    for (const float low : levels)
        for (const float mid : levels)
            for (const float high : levels) {
                EXPECT_TRUE(std::isfinite(n.setup(low, mid, high, 0.95f)));
                expectMonotone(n, "extreme");
            }
    // What is not a number counts as 0.
    NoiseNormalize zero;
    n.setup(nan, 0.02f, -inf, 0.95f);
    zero.setup(0.0f, 0.02f, 0.0f, 0.95f);
    EXPECT_EQ(std::memcmp(n.fwd.get(), zero.fwd.get(), 65536), 0);
}

} // namespace
} // namespace kt7
