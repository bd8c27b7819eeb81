// Plane operations on chosen values, and the refusals that all of them share.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "prim/arith.h"
#include "prim/convert.h"
#include "prim/copy.h"
#include "prim/histogram.h"
#include "prim/plainForms.h"
#include "prim/set.h"
#include "prim/stats.h"
#include "prim/threshold.h"

namespace kt7 {
namespace {

TEST(ScaledArithmetic, RoundsTiesToEvenAndSaturates) {
    const auto addC16u = [](std::uint16_t v, std::uint16_t c, std::int32_t scale) {
        primAddC16uC1I(c, &v, 2, {1, 1}, scale);
        return static_cast<int>(v);
    };
    const auto subC16u = [](std::uint16_t v, std::uint16_t c, std::int32_t scale) {
        std::uint16_t out = 0;
        primSubC16uC1(&v, 2, c, &out, 2, {1, 1}, scale);
        return static_cast<int>(out);
    };
    const auto mulC8u = [](std::uint8_t v, std::uint8_t c, std::int32_t scale) {
        primMulC8uC1I(c, &v, 1, {1, 1}, scale);
        return static_cast<int>(v);
    };
    const auto sub16s = [](std::int16_t v, std::int16_t c, std::int32_t scale) {
        primSub16sC1I(&c, 2, &v, 2, {1, 1}, scale);
        return static_cast<int>(v);
    };
    EXPECT_EQ(addC16u(0, 1, -7), 128);
    EXPECT_EQ(addC16u(255, 1, -7), 32768);
    EXPECT_EQ(addC16u(65535, 65535, 0), 65535);
    EXPECT_EQ(addC16u(65535, 65535, 16), 2);
    EXPECT_EQ(addC16u(65535, 65535, 17), 1);
    EXPECT_EQ(addC16u(65535, 65535, 2000000000), 0);
    EXPECT_EQ(addC16u(0, 1, -2147483647 - 1), 65535);
    EXPECT_EQ(subC16u(32768, 128, 7), 255);
    EXPECT_EQ(subC16u(128, 128, 7), 0);
    EXPECT_EQ(subC16u(64, 128, 7), 0);
    EXPECT_EQ(subC16u(192, 128, 7), 0);
    EXPECT_EQ(subC16u(320, 128, 7), 2);
    EXPECT_EQ(mulC8u(255, 255, 3), 255);
    EXPECT_EQ(mulC8u(12, 1, 3), 2);
    EXPECT_EQ(mulC8u(20, 1, 3), 2);
    EXPECT_EQ(sub16s(-32768, 32767, 0), -32768);
    EXPECT_EQ(sub16s(-3, 0, 1), -2);
    EXPECT_EQ(sub16s(-5, 0, 1), -2);
    EXPECT_EQ(sub16s(-32768, 32767, 16), -1);
    EXPECT_EQ(sub16s(1, 2, -40), -32768);
}

TEST(Conversions, RoundAndSaturate) {
    const struct {
        float value;
        int trunc8, round8, trunc16, round16;
    } cases[] = {{0.5f, 0, 0, 0, 0},
                 {1.5f, 1, 2, 1, 2},
                 {2.5f, 2, 2, 2, 2},
                 {-1.5f, 0, 0, -1, -2},
                 {254.9f, 254, 255, 254, 255},
                 {255.0f, 255, 255, 255, 255},
                 {32766.5f, 255, 255, 32766, 32766},
                 {32767.0f, 255, 255, 32767, 32767},
                 {-3.0f, 0, 0, -3, -3},
                 {-32767.5f, 0, 0, -32767, -32768},
                 {-40000.0f, 0, 0, -32768, -32768}};
    for (const auto& c : cases) {
        std::uint8_t bytes[2];
        std::int16_t shorts[2];
        for (const std::int32_t rounding : {primTruncate, primNearest}) {
            primConvert32f8uC1(&c.value, 4, bytes + rounding, 1, {1, 1}, rounding);
            primConvert32f16sC1(&c.value, 4, shorts + rounding, 2, {1, 1}, rounding);
        }
        EXPECT_EQ(bytes[0], c.trunc8) << c.value;
        EXPECT_EQ(bytes[1], c.round8) << c.value;
        EXPECT_EQ(shorts[0], c.trunc16) << c.value;
        EXPECT_EQ(shorts[1], c.round16) << c.value;
    }
}

TEST(Thresholds, WorkOnUnsignedSamplesPerChannel) {
    std::uint16_t pixels[6] = {32768, 40000, 10, 65535, 32767, 300};
    const std::uint16_t limits[3] = {32767, 35000, 255};
    ASSERT_EQ(primThresholdGT16uC3I(pixels, 12, {2, 1}, limits), primOk);
    const std::uint16_t wanted[6] = {32767, 35000, 10, 32767, 32767, 255};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(pixels[i], wanted[i]) << i;
}

TEST(FloatArithmetic, KeepsTheRulesForOddFactorsAndDivisors) {
    using Row = std::vector<float>;
    constexpr float inf = INFINITY;
    Row divided = {1.0f, -1.0f, 0.0f, 6.0f, 1.0f, -1.0f};
    const Row divisors = {0.0f, 0.0f, 0.0f, 3.0f, -0.0f, -0.0f};
    EXPECT_EQ(primDiv32fI(divisors.data(), divided.data(), 6), primDivByZero);
    EXPECT_TRUE(std::isnan(divided[2]));
    divided[2] = 0.0f;
    EXPECT_EQ(divided, (Row{inf, -inf, 0.0f, 2.0f, inf, -inf}));

    Row vector = {1.0f, NAN, 2.0f};
    primMulC32fI(1.0f, vector.data(), 3);
    EXPECT_TRUE(std::isnan(vector[1]));
    primMulC32fI(-2.0f, vector.data(), 3);
    EXPECT_TRUE(std::isnan(vector[1]));
    EXPECT_EQ(vector[2], -4.0f);
    primMulC32fI(0.0f, vector.data(), 3);
    EXPECT_EQ(vector, Row(3, 0.0f));
    // Two of three samples a row are set.
    Row plane(6, 9.0f);
    EXPECT_EQ(primSet32fC1(7.0f, plane.data() + 1, 12, {1, 2}), primOk);
    EXPECT_EQ(plane, (Row{9.0f, 7.0f, 9.0f, 9.0f, 7.0f, 9.0f}));
    EXPECT_EQ(primSet32f(3.0f, plane.data(), 2), primOk);
    EXPECT_EQ(plane, (Row{3.0f, 3.0f, 9.0f, 9.0f, 7.0f, 9.0f}));
}

TEST(Statistics, CountAndAverageRows) {
    // Three samples a row are used of five.
    const std::uint8_t bytes[10] = {1, 2, 250, 99, 99, 4, 250, 250, 99, 99};
    double mean = 0.0, means[3];
    primMean8uC1(bytes, 5, {3, 2}, &mean);
    EXPECT_EQ(mean, 757.0 / 6.0);
    primMean8uC3(bytes, 5, {1, 2}, means);
    EXPECT_EQ(means[0], 2.5);
    EXPECT_EQ(means[2], 250.0);
    const std::int16_t shorts[6] = {5, -7, 30000, -3, 32767, 2};
    std::int16_t least = 0, most = 0;
    primMin16sC1(shorts, 6, {2, 2}, &least);
    primMax16sC1(shorts, 6, {2, 2}, &most);
    EXPECT_EQ(least, -7);
    EXPECT_EQ(most, 32767);

    // 10 over 4 intervals: the first two take one more.
    std::int32_t hist[256], levels[257];
    ASSERT_EQ(primHistogramEven8uC1(bytes, 5, {3, 2}, hist, levels, 5, 1, 11), primOk);
    const std::int32_t levelsWanted[5] = {1, 4, 7, 9, 11}, histWanted[4] = {2, 1, 0, 0};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(levels[i], levelsWanted[i]);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(hist[i], histWanted[i]);
    // One bin a value, over levels that reach beyond the samples' range on both sides too.
    ASSERT_EQ(primHistogramEven8uC1(bytes, 5, {3, 2}, hist, levels, 257, 0, 256), primOk);
    EXPECT_EQ(hist[250], 3);
    ASSERT_EQ(primHistogramEven8uC1(bytes, 5, {3, 2}, hist, levels, 3, -1000, 1000), primOk);
    EXPECT_EQ(hist[0], 0);
    EXPECT_EQ(hist[1], 6);
    EXPECT_EQ(primHistogramEven8uC1(bytes, 5, {3, 2}, hist, levels, 1, 0, 256), primBadLevels);
}

TEST(PlaneOperations, RefuseInOrder) {
    float a = 1.0f, b = 2.0f;
    std::uint8_t byte = 3;
    std::int16_t value = 4;
    std::uint16_t word = 5;
    std::int32_t number = 0;
    float* const none = nullptr;
    const PrimSize ok{1, 1}, flat{1, 0}, narrow{-1, 1};
    const struct {
        PrimStatus got, wanted;
    } cases[] = {
        {primCopy32fC1(none, 4, &b, 4, flat), primNullPtr},
        {primCopy32fC1(&a, 4, &b, 4, flat), primBadSize},
        {primCopy32f(&a, &b, 0), primBadSize},
        {primCopy32fC1M(&a, 4, &b, 4, ok, nullptr, 1), primNullPtr},
        {primSet16sC1(1, &value, 2, narrow), primBadSize},
        {primAdd32fC1I(&a, 4, none, 4, ok), primNullPtr},
        {primDiv32fI(&a, &b, -5), primBadSize},
        {primMulC8uC3I(nullptr, &byte, 3, ok, 0), primNullPtr},
        {primThresholdGT16uC3I(&word, 6, ok, nullptr), primNullPtr},
        {primConvert32f8uC1(&a, 4, &byte, 1, flat, 9), primBadSize},
        {primConvert32f8uC1(&a, 4, &byte, 1, ok, 9), primBadArg},
        {primConvert32f16sC1(&a, 4, &value, 2, ok, -1), primBadArg},
        {primCompare32fC1(&a, 4, &b, 4, &byte, 1, ok, 5), primBadArg},
        {primMean8uC1(&byte, 1, ok, nullptr), primNullPtr},
        {primHistogramEven8uC1(&byte, 1, ok, &number, nullptr, 1, 0, 9), primNullPtr},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(cases[i].got, cases[i].wanted) << i;
    EXPECT_EQ(b, 2.0f);
    EXPECT_EQ(byte, 3);
    EXPECT_EQ(value, 4);
}

} // namespace
} // namespace kt7
