// Every CPU target against the portable one, bit for bit, at widths round the vector widths.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "prim/arith.h"
#include "prim/convert.h"
#include "prim/filter.h"
#include "prim/kernels/select.h"
#include "prim/median.h"
#include "prim/noiseRows.h"
#include "prim/screenRows.h"
#include "prim/sobel.h"
#include "prim/stats.h"
#include "prim/threshold.h"
#include "prim/tileRows.h"
#include "prim/ycbcr.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

constexpr std::int32_t stride = 640, rows = 9;

template <class T>
struct Planes {
    std::vector<T> in, in2, out;
    static constexpr std::int32_t step = stride * sizeof(T);
    explicit Planes(std::mt19937& random) {
        for (std::vector<T>* plane : {&in, &in2, &out})
            for (std::int32_t i = 0; i < stride * rows; ++i)
                plane->push_back(sample(random));
    }
    static T sample(std::mt19937& random) {
        if constexpr (std::is_same_v<T, float>) {
            const std::uint32_t kind = random() % 16;
            if (kind < 2)
                return kind == 0 ? 0.0f : -0.0f;
            return std::uniform_real_distribution<float>(-40000.0f, 40000.0f)(random);
        } else {
            return static_cast<T>(random());
        }
    }
    // Inside a border of three, at an odd address for every element size but one byte.
    const T* src(std::int32_t offset) const { return in.data() + 3 * stride + 3 + offset; }
    const T* src2(std::int32_t offset) const { return in2.data() + 3 * stride + 3 + offset; }
    T* dst(std::int32_t offset) { return out.data() + 3 * stride + 3 + offset; }
    bool same(const Planes& other) const {
        return std::memcmp(out.data(), other.out.data(), out.size() * sizeof(T)) == 0;
    }
};

struct Work {
    explicit Work(std::mt19937 random) : f(random), s(random), b(random), w(random) {}
    Planes<float> f;
    Planes<std::int16_t> s;
    Planes<std::uint8_t> b;
    Planes<std::uint16_t> w;
    double number[4] = {};
    std::uint64_t sum = 0;
    FlatSums flat{};
    bool operator==(const Work& o) const {
        return f.same(o.f) && s.same(o.s) && b.same(o.b) && w.same(o.w) &&
               std::memcmp(number, o.number, sizeof number) == 0 && sum == o.sum &&
               std::memcmp(&flat, &o.flat, sizeof flat) == 0;
    }
};

using Operation = PrimStatus (*)(Work&, PrimSize, std::int32_t);
#define FLOATS w.f.src(o), w.f.step
#define FLOATS2 w.f.src2(o), w.f.step
#define FLOATS_OUT w.f.dst(o), w.f.step
#define SHORTS w.s.src(o), w.s.step
#define SHORTS_OUT w.s.dst(o), w.s.step
#define BYTES w.b.src(o), w.b.step
#define BYTES_OUT w.b.dst(o), w.b.step
#define WORDS w.w.src(o), w.w.step
#define WORDS_OUT w.w.dst(o), w.w.step
#define OPERATION(call)                                                                            \
    {                                                                                              \
#call, [](Work & w, PrimSize z, std::int32_t o) -> PrimStatus { return call; }             \
    }

#define ROW(call) OPERATION((call, primOk))

/// The three output rows as planes of one row.
std::uint8_t* const* planes(Work& w) {
    static std::uint8_t* rows3[3];
    for (int i = 0; i < 3; ++i)
        rows3[i] = w.b.dst(i * stride);
    return rows3;
}

constexpr float floatTaps[20] = {0.1f,  -0.7f, 1.3f,  0.01f, 2.0f,  -3.0f, 0.5f,
                                 0.25f, -0.6f, 0.9f,  1.1f,  -1.2f, 0.3f,  0.7f,
                                 -0.2f, 0.15f, -2.1f, 0.4f,  0.6f,  -0.8f};
/// Weights of a fade, 0 to 1.
const float* const unit = [] {
    static float weights[stride];
    for (std::int32_t i = 0; i < stride; ++i)
        weights[i] = static_cast<float>(i) / stride;
    return weights;
}();
constexpr std::uint8_t factors[3] = {3, 200, 17};
constexpr std::uint16_t limits[3] = {100, 32767, 60000};

const struct {
    const char* name;
    Operation run;
} operations[] = {
    OPERATION(primAdd32fC1I(FLOATS, FLOATS_OUT, z)),
    OPERATION(primAddC32fC1I(0.3f, FLOATS_OUT, z)),
    OPERATION(primMulC32fC1I(0.3f, FLOATS_OUT, z)),
    OPERATION(primAbs32fC1I(FLOATS_OUT, z)),
    OPERATION(primAdd16sC1I(SHORTS, SHORTS_OUT, z, 0)),
    OPERATION(primSub16sC1I(SHORTS, SHORTS_OUT, z, 1)),
    OPERATION(primSub16sC1I(SHORTS, SHORTS_OUT, z, 20)),
    OPERATION(primSub8uC1I(BYTES, BYTES_OUT, z, 0)),
    OPERATION(primSubC8uC1(BYTES, 128, BYTES_OUT, z, -3)),
    OPERATION(primMulC8uC1I(9, BYTES_OUT, z, 3)),
    OPERATION(primMulC8uC3I(factors, w.b.dst(o) - 3, w.b.step, {z.width / 2 + 1, 3}, 3)),
    OPERATION(primAddC16uC1I(1, WORDS_OUT, z, -7)),
    OPERATION(primAddC16uC1I(1, WORDS_OUT, z, -30)),
    OPERATION(primSubC16uC1(WORDS, 128, WORDS_OUT, z, 7)),
    OPERATION(primConvert16s32fC1(SHORTS, FLOATS_OUT, z)),
    OPERATION(primConvert8u16uC1(BYTES, WORDS_OUT, z)),
    OPERATION(primConvert16u8uC1(WORDS, BYTES_OUT, z)),
    OPERATION(primConvert32f8uC1(FLOATS, BYTES_OUT, z, 0)),
    OPERATION(primConvert32f8uC1(FLOATS, BYTES_OUT, z, 1)),
    OPERATION(primConvert32f16sC1(FLOATS, SHORTS_OUT, z, 0)),
    OPERATION(primConvert32f16sC1(FLOATS, SHORTS_OUT, z, 1)),
    OPERATION(primThresholdLT32fC1I(FLOATS_OUT, z, 5.0f)),
    OPERATION(primThresholdGT32fC1I(FLOATS_OUT, z, 5.0f)),
    OPERATION(primThresholdGT16uC3I(w.w.dst(o) - 3, w.w.step, {z.width / 2 + 1, 3}, limits)),
    OPERATION(primSum8uC1(BYTES, z, &w.sum)),
    OPERATION(primMean8uC3(BYTES, {z.width / 2 + 1, 3}, w.number)),
    OPERATION(primRGBToYCbCr8uC3P3(BYTES, planes(w), 0, {z.width / 2 + 1, 1})),
    OPERATION(primYCbCrToRGB8uP3C3(planes(w), 0, BYTES_OUT, {z.width / 2 + 1, 1})),
    ROW(splitGDbDrRow(w.b.src(o), planes(w)[0], planes(w)[1], planes(w)[2], z.width / 2 + 1)),
    ROW(greyToRgbRow(w.b.src(o), w.b.dst(o), z.width / 2 + 1)),
    ROW(toScreen8Row(w.b.src(o), w.b.dst(o), z.width / 3 + 1, z.width % 2 == 0)),
    ROW(toScreen16Row(w.w.src(o), w.b.dst(o), z.width / 3 + 1, z.width % 2 != 0)),
    ROW(fromScreenRow(w.b.src(o), w.b.dst(o), z.width / 2 + 1)),
    ROW(intoScreenRow(w.b.src(o), w.b.dst(o), z.width / 3 + 1)),
    ROW(loadTileRow(w.s.src(o), 0.01f, w.f.dst(o), z.width)),
    ROW(holdTileRow(0.3f, 5000.0f, w.f.dst(o), z.width)),
    ROW(fadeTileRow(w.f.src(o), unit, 1, -1, w.s.dst(o), z.width)),
    ROW(fadeTileRow(w.f.src(o), unit + 9, 0, -1, w.s.dst(o), z.width)),
    ROW(sumFlatRow(w.b.src(o), 90, w.f.src(o), 0.0f, 9000.0f, w.f.src2(o), z.width, &w.flat)),
    OPERATION(primFilterBox32fC1(FLOATS, FLOATS_OUT, z, {2, 2}, {0, 0})),
    OPERATION(primFilterBox32fC1(FLOATS, FLOATS_OUT, z, {3, 4}, {1, 2})),
    OPERATION(primFilterGauss32fC1(FLOATS, FLOATS_OUT, z, 33)),
    OPERATION(primFilterGauss32fC1(FLOATS, FLOATS_OUT, z, 55)),
    OPERATION(primFilterSobelHoriz32fC1(FLOATS, FLOATS_OUT, z)),
    OPERATION(primFilterSobelVert32fC1(FLOATS, FLOATS_OUT, z)),
    OPERATION(primFilterMedian32fC1(FLOATS, FLOATS_OUT, z, {3, 3}, {1, 1})),
    OPERATION(primFilterMedianCross16sC1(SHORTS, SHORTS_OUT, z, 33)),
    OPERATION(primFilterMedianCross16sC1(SHORTS, SHORTS_OUT, z, 55)),
    OPERATION(primFilter32fC1(FLOATS, FLOATS_OUT, z, floatTaps, {3, 3}, {1, 1})),
    OPERATION(primFilter32fC1(FLOATS, FLOATS_OUT, z, floatTaps, {5, 4}, {2, 1})),
};

class KernelTargets : public test::OnTarget {};

KT7_ON_EVERY_TARGET(KernelTargets);

TEST_P(KernelTargets, AgreeBitForBitAndStayInsideTheSize) {
    const std::mt19937 random(20260);
    for (const auto& operation : operations)
        for (const std::int32_t width : {1, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 65, 127, 300}) {
            const std::int32_t offset = width % 4;
            const PrimSize size{width, 3};
            selectKernels(CpuTarget::generic);
            const Work before(random);
            Work expected(random);
            const PrimStatus status = operation.run(expected, size, offset);
            EXPECT_EQ(status, primOk) << operation.name;
            ASSERT_FALSE(width > 30 && expected == before) << operation.name << " does nothing";
            // Rows above and below stay, and columns beyond the widest form of the size.
            const auto outside = [&](const auto& got, const auto& was) {
                for (std::int32_t i = 0; i < stride * rows; ++i) {
                    const std::int32_t y = i / stride - 3, x = i % stride;
                    if (y >= 0 && y <= 2 && x < 3 * (width / 2 + 1) + 6 + offset)
                        continue;
                    ASSERT_EQ(got.out[static_cast<std::size_t>(i)],
                              was.out[static_cast<std::size_t>(i)])
                        << operation.name << " at " << x << "," << y;
                }
            };
            outside(expected.f, before.f);
            outside(expected.s, before.s);
            outside(expected.b, before.b);
            outside(expected.w, before.w);
            selectKernels(GetParam());
            Work got(random);
            EXPECT_EQ(operation.run(got, size, offset), status);
            EXPECT_TRUE(got == expected) << operation.name << " width " << width;
        }
}

// What float comparisons are most easily wrong about.
TEST_P(KernelTargets, KeepOddFloatsInRange) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<float> odd;
    for (int i = 0; i < 8; ++i)
        odd.insert(odd.end(), {nan, inf, -inf, -0.0f, 3.0e38f, -3.0e38f, 1.0e-40f, 32767.6f});
    const PrimSize size{64, 1};
    std::uint8_t bytes[64];
    std::int16_t shorts[64];
    const std::uint8_t bytesWanted[8] = {0, 255, 0, 0, 255, 0, 0, 255};
    const std::int16_t shortsWanted[8] = {32767, 32767, -32768, 0, 32767, -32768, 0, 32767};
    for (const std::int32_t rounding : {0, 1}) {
        primConvert32f8uC1(odd.data(), 256, bytes, 64, size, rounding);
        primConvert32f16sC1(odd.data(), 256, shorts, 128, size, rounding);
        for (int i = 0; i < 64; ++i) {
            EXPECT_EQ(bytes[i], bytesWanted[i % 8]) << i;
            EXPECT_EQ(shorts[i], shortsWanted[i % 8]) << i;
        }
    }
}

} // namespace
} // namespace kt7
