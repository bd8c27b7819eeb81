// The denoise call as a host makes it, through the shared library.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "tests/support/hostImage.h"
#include "tests/support/progressLog.h"

namespace kt7::test {
namespace {

struct Options {
    float lumaSmooth = 0.0f;
    float sharpen = 0.0f;
    std::int32_t chromaMedianMode = 0;
    float chromaSmooth = 0.0f;
    float grain = 0.0f;
    std::int32_t fullQuality = 0;
};

constexpr Options everything{0.03f, 0.4f, 1, 0.03f, 0.004f, 1};

template <class Image>
std::int32_t denoise(ProgressLog& log, Image& image, const QxNoiseLevels& noise,
                     const Options& options = {}) {
    return qxDenoiseKt7(&log.record, &image.record, &noise, options.lumaSmooth, options.sharpen,
                        options.chromaMedianMode, options.chromaSmooth, options.grain,
                        options.fullQuality);
}

template <class Image>
std::int32_t denoise(Image& image, const QxNoiseLevels& noise, const Options& options = {}) {
    ProgressLog log;
    return denoise(log, image, noise, options);
}

template <class Sample>
void takesNoiseOut(std::int32_t fullQuality) {
    HostImage<Sample> image(300, 280);
    image.fillNoisyScene(0.06);
    const double before = image.psnr();
    ASSERT_EQ(denoise(image, levelsOf(0.06f), {.fullQuality = fullQuality}), 1);
    EXPECT_GT(image.psnr(), before + 5.0) << sizeof(Sample) << " bytes, quality " << fullQuality;
    EXPECT_TRUE(image.paddingIntact());
}

TEST(Denoise, TakesNoiseOutOfTheScene) {
    for (const std::int32_t fullQuality : {0, 1}) {
        takesNoiseOut<std::uint8_t>(fullQuality);
        takesNoiseOut<std::uint16_t>(fullQuality);
    }
}

TEST(Denoise, TeamSizeLeavesTheResultAsItIs) {
    HostImage<std::uint8_t> noisy(500, 420);
    noisy.fillNoisyScene(0.05);
    std::vector<double> results;
    const int threads = omp_get_max_threads();
    for (const int team : {1, 2, 4, 7}) {
        omp_set_num_threads(team);
        HostImage<std::uint8_t> image(noisy);
        ASSERT_EQ(denoise(image, levelsOf(0.05f), everything), 1);
        EXPECT_EQ(omp_get_max_threads(), team);
        results.push_back(image.psnr());
    }
    omp_set_num_threads(threads);
    const auto [lowest, highest] = std::ranges::minmax(results);
    EXPECT_LT(highest - lowest, 0.1);
}

TEST(Denoise, WithNothingToDoOnlyConverts) {
    HostImage<std::uint8_t> image(70, 3);
    image.fillNoisyScene(0.1);
    HostImage<std::uint8_t> before(image);
    ProgressLog log;
    ASSERT_EQ(denoise(log, image, levelsOf(0.0f)), 1);
    EXPECT_EQ(log.reports, (std::vector<std::int32_t>{2, 1002, 100000, 100000}));
    for (std::size_t i = 0; i < image.samples.size(); ++i)
        ASSERT_NEAR(image.samples[i], before.samples[i], 1);

    // Every strength that is negative or not a number counts as off.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const float off : {-1.0f, nan, -std::numeric_limits<float>::infinity()}) {
        HostImage<std::uint8_t> again(before);
        ProgressLog quiet;
        ASSERT_EQ(
            denoise(quiet, again, {off, off, off, off, off, off}, {off, off, -1, off, off, 0}), 1);
        EXPECT_EQ(quiet.reports, log.reports);
        EXPECT_EQ(again.samples, image.samples);
    }
}

TEST(Denoise, ReportsTheSharesOfItsStages) {
    HostImage<std::uint8_t> image(64, 64);
    image.fillNoisyScene(0.05);
    for (const int team : {1, 2, 4}) {
        omp_set_num_threads(team);
        ProgressLog log;
        ASSERT_EQ(denoise(log, image, levelsOf(0.05f)), 1);
        EXPECT_EQ(log.reports, (std::vector<std::int32_t>{2, 1002, 1003, 3490, 13438, 73126, 94166,
                                                          100000, 100000, 100000, 100000, 100000}));
        EXPECT_FALSE(log.otherThread);
        EXPECT_EQ(log.record.total, 100000);
    }
    ProgressLog silent;
    silent.record.userData = nullptr;
    ASSERT_EQ(denoise(silent, image, levelsOf(0.05f)), 1);
    EXPECT_TRUE(silent.reports.empty());
    EXPECT_EQ(silent.record.done, 100000);
}

// A cancel at any report ends the call with 0 (but for the reports whose answer isn't asked for),
// leaves the image alone until it is complete, and lets the next call run.
class DenoiseCancel : public testing::TestWithParam<std::pair<std::int32_t, std::int32_t>> {};

TEST_P(DenoiseCancel, AtEveryReport) {
    HostImage<std::uint8_t> noisy(GetParam().first, GetParam().second);
    noisy.fillNoisyScene(0.05);
    ProgressLog whole;
    HostImage<std::uint8_t> done(noisy);
    ASSERT_EQ(denoise(whole, done, levelsOf(0.05f), everything), 1);
    const std::size_t reports = whole.reports.size();
    ASSERT_GT(reports, 12u);
    for (std::size_t i = 0; i < reports; ++i) {
        HostImage<std::uint8_t> image(noisy);
        ProgressLog log;
        log.cancelAt = i;
        const bool asked = i != 0 && i != reports - 1;
        EXPECT_EQ(denoise(log, image, levelsOf(0.05f), everything), asked ? 0 : 1) << i;
        EXPECT_EQ(log.reports.size(), asked ? i + 1 : reports) << i;
        EXPECT_EQ(image.samples == noisy.samples, asked && i + 2 < reports) << i;
        EXPECT_TRUE(image.paddingIntact());
    }
}

// Sizes of 8 and of 9 tiles.
INSTANTIATE_TEST_SUITE_P(TileCounts, DenoiseCancel,
                         testing::Values(std::pair{150, 420}, std::pair{290, 290}));

// Codes of the library's own among them, which would read as done and as cancelled.
TEST(Denoise, WhateverLeavesTheCallbackIsAFailure) {
    HostImage<std::uint8_t> noisy(64, 64);
    noisy.fillNoisyScene(0.05);
    void (*const throws[])() = {[] { throw 1001; }, [] { throw 1000; }, [] { throw "text"; },
                                [] { throw std::bad_alloc(); }};
    for (const auto leave : throws)
        for (std::size_t at = 0; at < 12; ++at) {
            HostImage<std::uint8_t> image(noisy);
            ProgressLog log;
            log.during = [&] {
                if (log.reports.size() > at)
                    leave();
            };
            EXPECT_EQ(denoise(log, image, levelsOf(0.05f)), -1000) << at;
            EXPECT_EQ(image.samples == noisy.samples, at < 10) << at;
            EXPECT_EQ(log.record.done, 100000);
        }
    EXPECT_EQ(denoise(noisy, levelsOf(0.05f)), 1);
}

TEST(Denoise, RefusesWhatItCannotRead) {
    HostImage<std::uint8_t> image(40, 30);
    image.fillNoisyScene(0.05);
    const HostImage<std::uint8_t> before(image);
    const QxNoiseLevels levels = levelsOf(0.05f);
    const auto result = [](QxProgress* progress, PSImage* record, const QxNoiseLevels* noise) {
        return qxDenoiseKt7(progress, record, noise, 0.0f, 0.0f, 0, 0.0f, 0.0f, 0);
    };
    EXPECT_EQ(result(nullptr, &image.record, &levels), -1000);
    const auto refused = [&](PSImage* record, const QxNoiseLevels* noise) {
        ProgressLog log;
        EXPECT_EQ(result(&log.record, record, noise), -1000);
        EXPECT_EQ(log.reports, (std::vector<std::int32_t>{2, 100000}));
        EXPECT_EQ(image.samples, before.samples);
    };
    refused(nullptr, &levels);
    refused(&image.record, nullptr);
    for (auto spoil : std::initializer_list<void (*)(PSImage&)>{
             [](PSImage& r) { r.data = nullptr; }, [](PSImage& r) { r.width = 0; },
             [](PSImage& r) { r.height = -4; }, [](PSImage& r) { r.rowBytes = 119; },
             [](PSImage& r) { r.rowBytes = -240; }, [](PSImage& r) { r.format = 3; },
             [](PSImage& r) { r.width = 2147483647; }}) {
        PSImage record = image.record;
        record.rowBytes = 120 + 7;
        spoil(record);
        refused(&record, &levels);
    }
    EXPECT_EQ(denoise(image, levels), 1);
}

TEST(Denoise, HoldsSixteenBitSamplesAtTheTop) {
    HostImage<std::uint16_t> image(33, 21);
    image.fill([](auto x, auto, auto) { return x < 16 ? 1.0 : 0.25; });
    ProgressLog log;
    log.cancelAt = 1;
    ASSERT_EQ(denoise(log, image, levelsOf(0.02f)), 0);
    EXPECT_EQ(image.at(3, 3, 0), 32767);
    EXPECT_EQ(image.at(20, 3, 0), 8192);
    EXPECT_TRUE(image.paddingIntact());
}

// A host may pack its rows or hand over a part of a file: 16-bit samples then lie at odd addresses.
TEST(Denoise, TakesSixteenBitRowsAtAnyAddress) {
    HostImage<std::uint16_t> image(161, 150);
    image.fillNoisyScene(0.05);
    const std::int32_t rowBytes = 161 * 6, screenStep = 161 * 4;
    std::vector<std::uint8_t> odd(static_cast<std::size_t>(rowBytes + 1) * 150 + 1);
    PSImage record{3, odd.data() + 1, rowBytes + 1, 161, 150};
    const auto oddRow = [&](std::int32_t y) { return odd.data() + 1 + y * (rowBytes + 1); };
    for (std::int32_t y = 0; y < 150; ++y)
        std::memcpy(oddRow(y), &image.at(0, y, 0), rowBytes);

    std::vector<std::uint8_t> screens[2];
    std::vector<QxNoiseLevels> levels(2);
    for (std::size_t i = 0; i < 2; ++i) {
        PSImage* source = i == 0 ? &image.record : &record;
        ASSERT_EQ(qxKt7NoiseEst(source, &levels[i]), 1);
        for (const float factor : {1.0f, 0.7f}) {
            std::vector<std::uint8_t> screen(screenStep * 150);
            ASSERT_EQ(PSImage2QImage(source, screen.data(), screenStep, 161, 150, factor), 1);
            screens[i].insert(screens[i].end(), screen.begin(), screen.end());
        }
        QxProgress progress{};
        const QxNoiseLevels off{};
        ASSERT_EQ(qxDenoiseKt7(&progress, source, &off, 0.0f, 0.0f, 0, 0.0f, 0.0f, 0), 1);
    }
    EXPECT_EQ(screens[0], screens[1]);
    EXPECT_EQ(std::memcmp(&levels[0], &levels[1], sizeof levels[0]), 0);
    for (std::int32_t y = 0; y < 150; ++y)
        ASSERT_EQ(std::memcmp(oddRow(y), &image.at(0, y, 0), rowBytes), 0) << y;
}

TEST(Denoise, SurvivesExtremeNumbers) {
    HostImage<std::uint8_t> noisy(150, 130);
    noisy.fillNoisyScene(0.05);
    const float inf = std::numeric_limits<float>::infinity();
    const float big = std::numeric_limits<float>::max();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float tiny = std::numeric_limits<float>::denorm_min();
    for (const float level : {inf, big, nan, tiny, 3e-6f, 1e4f}) {
        for (const float strength : {0.0f, inf, big, nan, tiny}) {
            HostImage<std::uint8_t> image(noisy);
            EXPECT_EQ(denoise(image, levelsOf(level),
                              {strength, strength, 2147483647, strength, strength, 0}),
                      1)
                << level << " " << strength;
            EXPECT_TRUE(image.paddingIntact());
        }
        HostImage<std::uint8_t> image(noisy);
        EXPECT_EQ(denoise(image, {0.02f, level, 0.02f, level, 0.02f, level}), 1) << level;
    }
}

struct Pattern {
    const char* name;
    double (*at)(std::int32_t x, std::int32_t y, std::int32_t c);
    double low, high; // of all samples
};
constexpr Pattern patterns[] = {
    {"black", [](auto, auto, auto) { return 0.0; }, 0.0, 0.0},
    {"saturated", [](auto, auto, auto) { return 1.0; }, 1.0, 1.0},
    {"flat", [](auto, auto, auto c) { return 0.3 + 0.1 * c; }, 0.3, 0.5},
    {"checkerboard", [](auto x, auto y, auto) { return (x + y) % 2 ? 0.4 : 0.6; }, 0.4, 0.6},
    {"impulse", [](auto x, auto y, auto c) { return x == 40 && y == 40 && c == 1 ? 1.0 : 0.4; },
     0.4, 1.0},
};

// Whatever the shape and the picture, no result leaves the range of its samples by much: a sample
// that no tile has written, or that isn't a number, would come out black or white.
template <class Sample>
void staysInRange(std::int32_t width, std::int32_t height, const Pattern& pattern,
                  const Options& options) {
    HostImage<Sample> image(width, height);
    image.fill(pattern.at);
    ASSERT_EQ(denoise(image, levelsOf(0.03f), options), 1);
    ASSERT_TRUE(image.paddingIntact());
    // The smoothing of luma flattens what is brighter than 0.64.
    const double low = options.lumaSmooth > 0.0f ? std::min(pattern.low, 0.45) : pattern.low;
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            for (std::int32_t c = 0; c < 3; ++c) {
                const double value = image.at(x, y, c) / image.fullScale;
                ASSERT_TRUE(value >= low - 0.25 && value <= pattern.high + 0.25)
                    << width << "x" << height << " " << pattern.name << " " << x << "," << y << ","
                    << c << ": " << value;
            }
}

// Sides round the borders of padding and tiles, and one on which more tiles are handed out than
// planned.
TEST(Denoise, HandlesOddShapes) {
    std::vector<std::pair<std::int32_t, std::int32_t>> sizes = {
        {1, 1}, {1, 300}, {300, 1}, {7, 331}, {255, 299}, {256, 300}, {257, 301}, {2, 2500}};
    for (std::int32_t side = 147; side <= 161; ++side)
        sizes.emplace_back(side, 308 - side);
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const auto& [width, height] = sizes[i];
        staysInRange<std::uint8_t>(width, height, patterns[i % std::size(patterns)], everything);
    }
}

TEST(Denoise, KeepsAnyPictureInRangeWithAnyOption) {
    const Options each[] = {{},
                            {.lumaSmooth = 0.03f},
                            {.sharpen = 0.4f},
                            {.chromaMedianMode = 2},
                            {.chromaSmooth = 0.03f},
                            {.grain = 0.004f},
                            {.fullQuality = 1},
                            everything};
    for (const Pattern& pattern : patterns)
        for (const Options& options : each)
            staysInRange<std::uint16_t>(130, 90, pattern, options);
}

// Flat pictures come back flat, black and white ones at their end of the scale. All blocks of a
// flat tile match equally well, those at the plane's border with their steep Laplacian too, so
// single samples may be some steps off.
TEST(Denoise, LeavesFlatPicturesFlat) {
    for (const double grey : {0.0, 0.2, 0.5, 1.0}) {
        HostImage<std::uint8_t> image(320, 170);
        image.fill([&](auto, auto, auto) { return grey; });
        const std::uint8_t value = image.at(0, 0, 0);
        ASSERT_EQ(denoise(image, levelsOf(0.03f), {0.0f, 0.5f, 1, 0.03f, 0.0f, 1}), 1);
        double off = 0.0;
        for (std::int32_t y = 0; y < 170; ++y)
            for (std::int32_t x = 0; x < 320; ++x)
                for (std::int32_t c = 0; c < 3; ++c) {
                    ASSERT_NEAR(image.at(x, y, c), value, 30);
                    off += std::abs(image.at(x, y, c) - value);
                }
        EXPECT_LT(off / (320.0 * 170 * 3), 1.0) << grey;
    }
}

} // namespace
} // namespace kt7::test
