// The Wiener stage: what it keeps, what it takes out, on every CPU target and number of threads.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "photo/Planes.h"
#include "photo/kernels/select.h"
#include "photo/wienerStage.h"
#include "qxutils/parallel.h"
#include "tests/support/hostImage.h"
#include "tests/support/targets.h"

namespace kt7::test {
namespace {

using photo::Planes;

constexpr std::int32_t width = 150, height = 141;

Planes scenePlanes(float deviation) {
    Planes planes(width, height, 3);
    std::mt19937 random(3);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    std::vector<float> rgb(3 * width);
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t i = 0; i < 3 * width; ++i)
            rgb[i] = static_cast<float>(sceneAt(i / 3, y, i % 3)) + deviation * noise(random);
        planes.setRow(y, rgb.data(), rgb.data() + 1, rgb.data() + 2, 3, 1.0f);
    }
    planes.extend();
    return planes;
}

photo::StageNoise noiseOf(float power) {
    photo::StageNoise noise{};
    std::fill(&noise.power[0][0], &noise.power[0][0] + 3 * 64, power);
    std::fill(&noise.gain[0][0], &noise.gain[0][0] + 3 * photo::StageNoise::bands, 1.0f);
    return noise;
}

std::vector<float> stage(float power, std::int32_t threads, bool refining = false) {
    const Planes noisy = scenePlanes(0.08f);
    Planes pilot = scenePlanes(0.01f);
    photo::Progress progress(nullptr, nullptr);
    const std::int32_t before = maxThreads();
    setMaxThreads(threads);
    photo::StageNoise noise = noiseOf(power);
    noise.refining = refining;
    photo::wienerStage(noisy, pilot, noise, progress);
    setMaxThreads(before);
    std::vector<float> result;
    for (std::int32_t plane = 0; plane < 3; ++plane)
        for (std::int32_t y = 0; y < height; ++y)
            result.insert(result.end(), pilot.row(plane, y), pilot.row(plane, y) + width);
    return result;
}

double meanSquare(const std::vector<float>& values, const Planes& of) {
    double sum = 0.0;
    std::size_t i = 0;
    for (std::int32_t plane = 0; plane < 3; ++plane)
        for (std::int32_t y = 0; y < height; ++y)
            for (std::int32_t x = 0; x < width; ++x) {
                const double d = static_cast<double>(values[i++] - of.row(plane, y)[x]);
                sum += d * d;
            }
    return sum / static_cast<double>(values.size());
}

TEST(WienerStage, TakesOutWhatItIsToldAndNoMore) {
    constexpr float deviation = 0.08f * 255.0f;
    for (const bool refining : {false, true}) {
        EXPECT_LT(meanSquare(stage(0.0f, 2, refining), scenePlanes(0.08f)), 1e-4)
            << "without noise nothing goes";
        EXPECT_LT(meanSquare(stage(deviation * deviation, 2, refining), scenePlanes(0.0f)),
                  0.1 * static_cast<double>(deviation * deviation));
    }
}

TEST(WienerStage, DoesNotDependOnThreads) {
    EXPECT_EQ(stage(400.0f, 1), stage(400.0f, 3));
    EXPECT_EQ(stage(400.0f, 1, true), stage(400.0f, 3, true));
}

class WienerStageTargets : public OnTarget {
  protected:
    void TearDown() override {
        photo::selectKernels(bestCpuTarget());
        OnTarget::TearDown();
    }
};

KT7_ON_EVERY_TARGET(WienerStageTargets);

TEST_P(WienerStageTargets, AgreeWithThePortableOne) {
    photo::selectKernels(CpuTarget::generic);
    const std::vector<float> portable = stage(400.0f, 2);
    photo::selectKernels(GetParam());
    const std::vector<float> result = stage(400.0f, 2);
    // Distances that are nearly the same may pick another match.
    double sum = 0.0;
    for (std::size_t i = 0; i < result.size(); ++i)
        sum += std::pow(static_cast<double>(result[i] - portable[i]), 2.0);
    EXPECT_LT(std::sqrt(sum / static_cast<double>(result.size())), 0.05);
}

} // namespace
} // namespace kt7::test
