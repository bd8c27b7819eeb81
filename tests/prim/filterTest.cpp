// Neighbourhood filters against slow references in double precision and by sorting.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "prim/filter.h"
#include "prim/median.h"
#include "prim/sobel.h"

namespace kt7 {
namespace {

constexpr std::int32_t stride = 80, outWidth = 60, outHeight = 11, margin = 9;

template <class T>
std::vector<T> randomPlane(float most) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> level(-most, most);
    std::vector<T> plane(stride * (outHeight + 2 * margin));
    for (T& v : plane)
        v = static_cast<T>(level(random));
    return plane;
}

template <class T>
const T* origin(const std::vector<T>& plane) {
    return plane.data() + margin * stride + margin;
}

// kernel[j][i] times the pixel at (ax - i, ay - j).
template <class T, class K>
double convolved(const T* src, const K* kernel, PrimSize k, PrimPoint a, double* magnitude) {
    double sum = 0.0;
    *magnitude = 0.0;
    for (std::int32_t j = 0; j < k.height; ++j)
        for (std::int32_t i = 0; i < k.width; ++i) {
            const double term = static_cast<double>(kernel[j * k.width + i]) *
                                static_cast<double>(src[(a.y - j) * stride + a.x - i]);
            sum += term;
            *magnitude += std::abs(term);
        }
    return sum;
}

TEST(Filters, FloatSumsStandWithinRoundingOfTheExactOnes) {
    const std::vector<float> plane = randomPlane<float>(1.0f);
    const std::vector<float> taps = randomPlane<float>(3.0f);
    const float gauss3[9] = {1 / 16.f, 2 / 16.f, 1 / 16.f, 2 / 16.f, 4 / 16.f,
                             2 / 16.f, 1 / 16.f, 2 / 16.f, 1 / 16.f};
    // As convolutions: the largest index is what stands first in the image.
    const float horiz[9] = {1, 2, 1, 0, 0, 0, -1, -2, -1};
    const float vert[9] = {-1, 0, 1, -2, 0, 2, -1, 0, 1};
    std::vector<float> gauss5, mean4, mean35(15, 1.0f / 15.0f);
    for (const float y : {1.f, 4.f, 6.f, 4.f, 1.f})
        for (const float x : {1.f, 4.f, 6.f, 4.f, 1.f})
            gauss5.push_back(x * y / 256.0f);
    mean4.assign(4, 0.25f);
    std::vector<float> out(outWidth * outHeight);
    const float* src = origin(plane);
    const PrimSize size{outWidth, outHeight};
    const auto compare = [&](const char* name, PrimStatus status, const float* kernel, PrimSize k,
                             PrimPoint a) {
        ASSERT_EQ(status, primOk) << name;
        double worst = 0.0;
        for (std::int32_t y = 0; y < outHeight; ++y)
            for (std::int32_t x = 0; x < outWidth; ++x) {
                double magnitude = 0.0;
                const double wanted = convolved(src + y * stride + x, kernel, k, a, &magnitude);
                const double got = static_cast<double>(out[std::size_t(y * outWidth + x)]);
                worst = std::max(worst, std::abs(got - wanted) / magnitude);
            }
        EXPECT_LT(worst, 4.0e-7) << name;
    };
    const std::int32_t in = stride * 4, to = outWidth * 4;
    for (const PrimSize k : {PrimSize{3, 3}, PrimSize{1, 1}, PrimSize{5, 4}, PrimSize{2, 7}})
        for (const PrimPoint a : {PrimPoint{0, 0}, PrimPoint{k.width - 1, k.height / 2}})
            compare("convolution",
                    primFilter32fC1(src, in, out.data(), to, size, taps.data(), k, a), taps.data(),
                    k, a);
    compare("gauss 33", primFilterGauss32fC1(src, in, out.data(), to, size, 33), gauss3, {3, 3},
            {1, 1});
    compare("gauss 55", primFilterGauss32fC1(src, in, out.data(), to, size, 55), gauss5.data(),
            {5, 5}, {2, 2});
    compare("horizontal", primFilterSobelHoriz32fC1(src, in, out.data(), to, size), horiz, {3, 3},
            {1, 1});
    compare("vertical", primFilterSobelVert32fC1(src, in, out.data(), to, size), vert, {3, 3},
            {1, 1});
    // A mask's anchor counts from its top left corner.
    compare("box 2x2", primFilterBox32fC1(src, in, out.data(), to, size, {2, 2}, {0, 0}),
            mean4.data(), {2, 2}, {1, 1});
    compare("box 3x5", primFilterBox32fC1(src, in, out.data(), to, size, {3, 5}, {2, 1}),
            mean35.data(), {3, 5}, {0, 3});
}

template <class T>
T middle(std::vector<T> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

TEST(Medians, AreTheMiddleOfTheSortedNeighbourhood) {
    const std::vector<float> plane = randomPlane<float>(4.0f);
    std::vector<float> out(outWidth * outHeight);
    for (const PrimSize m : {PrimSize{3, 3}, PrimSize{1, 5}, PrimSize{7, 3}, PrimSize{17, 15}}) {
        const PrimPoint a{m.width / 2, m.height > 3 ? 0 : m.height / 2};
        ASSERT_EQ(primFilterMedian32fC1(origin(plane), stride * 4, out.data(), outWidth * 4,
                                        {outWidth, 3}, m, a),
                  primOk);
        for (std::int32_t i = 0; i < outWidth * 3; ++i) {
            std::vector<float> values;
            for (std::int32_t j = 0; j < m.width * m.height; ++j)
                values.push_back(origin(plane)[(i / outWidth + j / m.width - a.y) * stride +
                                               i % outWidth + j % m.width - a.x]);
            ASSERT_EQ(out[static_cast<std::size_t>(i)], middle(values)) << m.width << " at " << i;
        }
    }
    // Few distinct values, so that many are equal.
    const std::vector<std::int16_t> shorts = randomPlane<std::int16_t>(9.0f);
    std::vector<std::int16_t> crossed(outWidth * outHeight);
    for (const std::int32_t reach : {1, 2}) {
        ASSERT_EQ(primFilterMedianCross16sC1(origin(shorts), stride * 2, crossed.data(),
                                             outWidth * 2, {outWidth, outHeight},
                                             reach == 1 ? 33 : 55),
                  primOk);
        for (std::int32_t i = 0; i < outWidth * outHeight; ++i) {
            const std::int16_t* at = origin(shorts) + i / outWidth * stride + i % outWidth;
            std::vector<std::int16_t> values = {*at};
            for (std::int32_t d = 1; d <= reach; ++d)
                values.insert(values.end(), {at[d], at[-d], at[d * stride], at[-d * stride]});
            ASSERT_EQ(crossed[static_cast<std::size_t>(i)], middle(values)) << reach;
        }
    }
}

TEST(Filters, RefuseBadMasksAnchorsAndSteps) {
    std::vector<float> f(64);
    std::vector<std::int16_t> s(64);
    float* to = f.data() + 32;
    std::int16_t* sTo = s.data() + 32;
    const float kernel[9] = {};
    const PrimSize z{4, 1};
    const PrimPoint o{0, 0};
    const struct {
        PrimStatus got, wanted;
    } cases[] = {
        {primFilter32fC1(f.data(), 20, to, 16, z, kernel, {3, 1}, o), primBadStep},
        {primFilter32fC1(f.data(), 24, to, 12, z, kernel, {3, 1}, o), primBadStep},
        {primFilter32fC1(f.data(), 24, to, 16, z, kernel, {0, 1}, o), primBadStep},
        {primFilter32fC1(f.data(), 24, to, 16, z, nullptr, {3, 1}, o), primNullPtr},
        {primFilter32fC1(f.data(), 24, to, 16, z, kernel, {3, 1}, {2, 0}), primOk},
        {primFilterBox32fC1(f.data(), 32, to, 16, z, {0, 1}, o), primBadMask},
        {primFilterBox32fC1(f.data(), 32, to, 16, z, {2, 1}, {2, 0}), primBadAnchor},
        {primFilterMedian32fC1(f.data(), 32, to, 16, z, {2, 3}, o), primBadMask},
        {primFilterMedian32fC1(f.data(), 32, to, 16, z, {3, 3}, {0, -1}), primBadAnchor},
        {primFilterMedianCross16sC1(s.data(), 32, sTo, 16, z, 44), primBadMask},
        {primFilterGauss32fC1(f.data(), 32, to, 16, {0, 1}, 44), primBadSize},
        {primFilterGauss32fC1(f.data(), 32, to, 16, z, 35), primBadMask},
        {primFilterSobelVert32fC1(f.data(), 32, nullptr, 16, z), primNullPtr},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(cases[i].got, cases[i].wanted) << i;
}

} // namespace
} // namespace kt7
