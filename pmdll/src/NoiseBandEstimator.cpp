#include "pmdll/src/NoiseBandEstimator.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "prim/arith.h"
#include "prim/convert.h"
#include "prim/copy.h"
#include "prim/filter.h"
#include "prim/histogram.h"
#include "prim/median.h"
#include "prim/noiseRows.h"
#include "prim/sobel.h"

namespace kt7 {
namespace {

constexpr std::int32_t bins = 256;

// The median filter and the Sobel filter behind it take a pixel each off every side.
constexpr std::int32_t rim = 2;
constexpr std::int32_t leastSide = 2 * rim + 1;

// Mean absolute response of the kernel to noise of deviation 1: close to its weights' norm, 6,
// times the mean absolute value of a standard normal variable, 0.798.
constexpr float responseOfUnitNoise = 4.76f;

bool isMeasurable(const GIMG<float>& plane) {
    return plane.width >= leastSide && plane.height >= leastSide;
}

// Rows worked on together, few enough to stay in the cache from step to step.
constexpr std::int32_t stripRows = 16;

/// Fills `gradients`, which lacks the plane's rim, with 76.5 * (|Gx| + |Gy|) of the median-filtered
/// plane, held at 255. One sweep: the last two medians of a strip are the first of the next.
void fillGradients(const GIMG<float>& plane, GIMG<std::uint8_t>& gradients) {
    GIMG<float> medians(plane.width - 2, stripRows + 2);
    GIMG<float> gx(gradients.width, stripRows), gy(gradients.width, stripRows);
    const auto addMedians = [&](std::int32_t planeRow, std::int32_t row, std::int32_t rows) {
        primFilterMedian32fC1(plane.at(1, planeRow), plane.stepBytes, medians.at(0, row),
                              medians.stepBytes, {medians.width, rows}, {3, 3}, {1, 1});
    };
    addMedians(1, 0, 2);
    for (std::int32_t y = 0; y < gradients.height; y += stripRows) {
        const PrimSize strip{gradients.width, std::min(stripRows, gradients.height - y)};
        addMedians(y + 3, 2, strip.height);
        primFilterSobelHoriz32fC1(medians.at(1, 1), medians.stepBytes, gx.data, gx.stepBytes,
                                  strip);
        primFilterSobelVert32fC1(medians.at(1, 1), medians.stepBytes, gy.data, gy.stepBytes, strip);
        primAbs32fC1I(gx.data, gx.stepBytes, strip);
        primAbs32fC1I(gy.data, gy.stepBytes, strip);
        primAdd32fC1I(gy.data, gy.stepBytes, gx.data, gx.stepBytes, strip);
        primMulC32fC1I(76.5f, gx.data, gx.stepBytes, strip);
        primConvert32f8uC1(gx.data, gx.stepBytes, gradients.at(0, y), gradients.stepBytes, strip,
                           primTruncate);
        primCopy32fC1(medians.at(0, strip.height), medians.stepBytes, medians.data,
                      medians.stepBytes, {medians.width, 2});
    }
    // The planes free what they hold; the analyzer loses their virtual destructors.
} // NOLINT(clang-analyzer-unix.Malloc)

/// Continues noise to an end of the range, but not far from what was measured in the middle.
float heldNear(float mid, float end) {
    return std::min(8.0f * mid, std::max(0.1f * mid, end));
}

} // namespace

NoiseBandEstimator::NoiseBandEstimator(float fraction, float low, float high)
    : gradientFraction(fraction), bandLow(low), bandHigh(high),
      histogram(std::make_unique<std::int32_t[]>(tableSize)),
      levelTable(std::make_unique<std::int32_t[]>(tableSize)) {}

float NoiseBandEstimator::estimate(const GIMG<float>& plane, const GIMG<std::uint8_t>* gradients) {
    const GIMG<float>* const planes[] = {&plane};
    float noise = 0.0f;
    if (gradients != nullptr)
        measure(planes, 1, *gradients, &noise);
    else
        measure(planes, 1, &noise);
    return noise;
}

void NoiseBandEstimator::estimateThree(const GIMG<float>* const planes[3], float results[3]) {
    measure(planes, 3, results);
}

void NoiseBandEstimator::measure(const GIMG<float>* const* planes, std::int32_t count,
                                 float* results) {
    std::fill_n(results, count, 0.0f);
    if (!isMeasurable(*planes[0]))
        return;
    GIMG<std::uint8_t> gradients(planes[0]->width - 2 * rim, planes[0]->height - 2 * rim);
    fillGradients(*planes[0], gradients);
    measure(planes, count, gradients, results);
}

std::int32_t NoiseBandEstimator::flatLimit(const GIMG<std::uint8_t>& gradients) {
    primHistogramEven8uC1(gradients.data, gradients.stepBytes, gradients.roi(), histogram.get(),
                          levelTable.get(), bins + 1, 0, bins);
    std::partial_sum(histogram.get(), histogram.get() + bins, histogram.get());
    const auto wanted =
        static_cast<std::int32_t>(static_cast<float>(histogram[bins - 1]) * gradientFraction);
    std::int32_t limit = 1;
    while (limit < bins && wanted > histogram[limit])
        ++limit;
    return limit;
}

void NoiseBandEstimator::measure(const GIMG<float>* const* planes, std::int32_t count,
                                 const GIMG<std::uint8_t>& gradients, float* results) {
    const std::int32_t limit = flatLimit(gradients);
    const std::int32_t width = gradients.width;
    GIMG<float> response(width, 1);
    const GIMG<float>& guide = *planes[0];
    float responses[3] = {}, roots = 0.0f;
    std::int64_t used = 0;
    for (std::int32_t y = 0; y < gradients.height; ++y) {
        const float* samples = guide.at(rim, y + rim);
        // Rows are summed by themselves first: one running sum over a million samples would lose
        // most of their digits.
        for (std::int32_t c = 0; c < count; ++c) {
            const GIMG<float>& plane = *planes[c];
            primFilter32fC1(plane.at(rim, y + rim), plane.stepBytes, response.data, plane.stepBytes,
                            {width, 1}, kernel, {3, 3}, {1, 1});
            FlatSums sums;
            sumFlatRow(gradients.at(0, y), limit, samples, bandLow, bandHigh, response.data, width,
                       &sums);
            responses[c] += sums.response;
            if (c == 0) {
                roots += sums.root;
                used += sums.count;
            }
        }
    }
    sampleCount = static_cast<float>(used);
    const float divisor = sampleCount + 1e-6f;
    for (std::int32_t c = 0; c < count; ++c)
        results[c] = responses[c] / divisor / responseOfUnitNoise;
    meanRoot = roots / divisor;
} // NOLINT(clang-analyzer-unix.Malloc): as above

void estimateLevels(const GIMG<float>& plane, float noise[3]) {
    constexpr float fallbackNoise = 0.005f;
    struct Band {
        float noise, root;
        std::int32_t count;
    };
    std::fill_n(noise, 3, fallbackNoise);
    if (!isMeasurable(plane))
        return;
    GIMG<std::uint8_t> gradients(plane.width - 2 * rim, plane.height - 2 * rim);
    fillGradients(plane, gradients);
    const auto measureBand = [&](float bandLow, float bandHigh) {
        NoiseBandEstimator estimator(0.15f, bandLow, bandHigh);
        const float measured = estimator.estimate(plane, &gradients);
        return Band{measured, estimator.meanRoot, static_cast<std::int32_t>(estimator.sampleCount)};
    };

    const Band middle = measureBand(0.3f, 0.7f);
    if (middle.count < 100) {
        const Band all = measureBand(0.1f, 0.9f);
        if (all.count >= 30)
            std::fill_n(noise, 3, all.noise);
        return;
    }
    const float mid = middle.noise;
    std::fill_n(noise, 3, mid);

    // A band counts when it holds enough pixels by itself and beside the middle.
    const auto counts = [&](const Band& band) {
        return band.count > 50 && std::int64_t{3} * band.count > middle.count;
    };
    const Band dark = measureBand(0.1f, 0.4f);
    if (counts(dark))
        noise[0] = heldNear(mid, (dark.noise * middle.root - mid * dark.root) /
                                     (std::abs(middle.root - dark.root) + 1e-6f));
    const Band bright = measureBand(0.6f, 0.9f);
    if (counts(bright)) {
        const float d = std::abs(bright.root - middle.root) + 1e-6f;
        noise[2] = heldNear(mid, (bright.noise - mid) / d +
                                     (mid * bright.root - bright.noise * middle.root) / d);
    }
}

} // namespace kt7
