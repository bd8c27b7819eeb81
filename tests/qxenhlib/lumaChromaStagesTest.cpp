// The small stages on whole planes: grain on luma, median on chroma.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "qxenhlib/chromaMedian.h"
#include "qxenhlib/grainStage.h"

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

template <class Value>
void fill(Plane& plane, Value&& value) {
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int32_t x = 0; x < plane.width; ++x)
            *plane.at(x, y) = static_cast<std::int16_t>(value(x, y));
}

TEST(GrainStage, DeviationFollowsGrain) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    struct Case {
        float grain;
        double deviation;
    };
    for (const Case& c : {Case{0.05f, 1638}, Case{1e-5f, 0}, Case{-1.0f, 0}, Case{-inf, 0},
                          Case{std::nanf(""), 0}}) {
        Plane luma(300, 260);
        fill(luma, [](auto, auto) { return 9000; });
        addGrain(luma, c.grain);
        double square = 0;
        for (std::int32_t y = 0; y < luma.height; ++y)
            for (const std::int16_t s : luma.row(y))
                square += (s - 9000.0) * (s - 9000.0);
        EXPECT_NEAR(std::sqrt(square / (300 * 260)), c.deviation, 0.03 * c.deviation) << c.grain;
    }
    // Beyond full scale the deviation stays there: about a third of the samples stay in range.
    for (const float grain : {1.0f, 7.0f, 1e30f, inf}) {
        Plane luma(300, 260);
        fill(luma, [](auto, auto) { return 0; });
        addGrain(luma, grain);
        std::int32_t held = 0;
        for (std::int32_t y = 0; y < luma.height; ++y)
            held += static_cast<std::int32_t>(std::ranges::count_if(
                luma.row(y), [](std::int16_t s) { return s == 32767 || s == -32768; }));
        EXPECT_NEAR(held / (300.0 * 260.0), 0.317, 0.02) << grain;
    }
}

TEST(GrainStage, DiffersFromCallToCallAndBandToBand) {
    Plane a(200, 200), b(200, 200);
    for (Plane* plane : {&a, &b}) {
        fill(*plane, [](auto, auto) { return 0; });
        addGrain(*plane, 0.1f);
    }
    EXPECT_FALSE(std::ranges::equal(a.row(0), b.row(0)));
    for (std::int32_t y = 1; y < a.height; ++y)
        EXPECT_FALSE(std::ranges::equal(a.row(0), a.row(y)));
}

TEST(ChromaMedian, TakesTheCrossInsideItsRim) {
    const auto value = [](std::int32_t x, std::int32_t y) { return (x * 7919 + y * 104729) % 997; };
    for (const std::int32_t mode : {-1, 0, 1, 2, 50}) {
        Plane plane(67, 41);
        fill(plane, value);
        chromaMedian(plane, mode);
        EXPECT_EQ(plane.width, 67);
        const std::int32_t rim = std::min(mode, 2);
        for (std::int32_t y = 0; y < plane.height; ++y)
            for (std::int32_t x = 0; x < plane.width; ++x) {
                int cross[] = {value(x, y), value(x - 1, y), value(x + 1, y), value(x, y - 1),
                               value(x, y + 1)};
                const bool inside = mode > 0 && std::min({x, y, 66 - x, 40 - y}) >= rim;
                const int before = cross[0];
                std::ranges::sort(cross);
                ASSERT_EQ(*plane.at(x, y), inside ? cross[2] : before)
                    << mode << ' ' << x << ' ' << y;
            }
    }
}

} // namespace
} // namespace kt7
