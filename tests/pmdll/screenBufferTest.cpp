// Screen buffers and scale conversions through the library as a host loads it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "include/kt7lib/kt7lib.h"
#include "tests/support/iccProfiles.h"

namespace kt7::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Random samples of any format, the extremes among them, in rows with padding.
struct Image {
    Image(std::int32_t format, std::int32_t width, std::int32_t height)
        : deep(format == 3 || format == 6) {
        std::mt19937 random(1);
        const std::uint16_t extremes[] = {0, 127, 128, 255, 256, 32767, 32768, 65535};
        const auto rowSamples = static_cast<std::size_t>(3 * width + 5);
        for (std::size_t i = 0; i < rowSamples * static_cast<std::size_t>(height); ++i) {
            const auto v =
                static_cast<std::uint16_t>(i % 3 ? random() % 32769 : extremes[random() % 8]);
            samples16.push_back(v);
            samples8.push_back(static_cast<std::uint8_t>(v >> 5));
        }
        samples8.resize(samples8.size() - 5); // the buffer ends with the last row
        samples16.resize(samples16.size() - 5);
        samples8.shrink_to_fit();
        samples16.shrink_to_fit();
        host = {format, deep ? static_cast<void*>(samples16.data()) : samples8.data(),
                static_cast<std::int32_t>(rowSamples * (deep ? 2 : 1)), width, height};
    }
    /// Channel c on the screen's scale.
    int at(std::int32_t x, std::int32_t y, int c) const {
        const auto i = static_cast<std::size_t>(y * (3 * host.width + 5) + 3 * x + c);
        return deep ? std::min(samples16[i] / 128, 255) : samples8[i];
    }
    bool deep;
    std::vector<std::uint16_t> samples16;
    Bytes samples8;
    PSImage host;
};

constexpr std::uint8_t untouched = 0xab;

/// Screen buffer with padding behind each row and before the first pixel.
struct Screen {
    Screen(std::int32_t w, std::int32_t h, std::int32_t offset = 0)
        : width(w), height(h), first(offset), step(4 * w + 7),
          bytes(static_cast<std::size_t>(offset + step * h), untouched) {}
    std::uint8_t* data() { return bytes.data() + first; }
    /// Channel 0..3 is R, G, B, A.
    int at(std::int32_t x, std::int32_t y, int c) const {
        const int order[4] = {2, 1, 0, 3};
        return bytes[static_cast<std::size_t>(first + y * step + 4 * x + order[c])];
    }
    std::int32_t show(const PSImage& image, float factor = 1.0f) {
        return PSImage2QImage(&image, data(), step, width, height, factor);
    }
    std::int32_t show(const QxIccProfiles& profiles, const PSImage& image) {
        return PSImageICC2QImage(&profiles, &image, data(), step, width, height, 1.0f);
    }
    bool paddingSurvives() const {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const auto inRow = (static_cast<std::int32_t>(i) - first) % step;
            if ((static_cast<std::int32_t>(i) < first || inRow >= 4 * width) &&
                bytes[i] != untouched)
                return false;
        }
        return true;
    }
    std::int32_t width, height, first, step;
    Bytes bytes;
};

TEST(ScreenBuffer, SameScaleCopiesTheCommonPart) {
    struct Case {
        std::int32_t format, width, height, screenWidth, screenHeight, offset;
    };
    // The last three are stored past the cache, at different alignments.
    for (const Case& c : {Case{5, 1, 1, 1, 1, 0}, Case{1, 7, 3, 9, 5, 0}, Case{6, 40, 4, 33, 2, 3},
                          Case{1, 2100, 2100, 2100, 2100, 0}, Case{3, 2100, 2100, 2100, 2100, 4},
                          Case{1, 2100, 2100, 2101, 2102, 1}}) {
        const Image image(c.format, c.width, c.height);
        Screen screen(c.screenWidth, c.screenHeight, c.offset);
        ASSERT_EQ(1, screen.show(image.host, c.format == 1 ? 0.99f : 1.01f));
        EXPECT_TRUE(screen.paddingSurvives());
        int faults = 0;
        for (std::int32_t y = 0; y < c.screenHeight; ++y)
            for (std::int32_t x = 0; x < c.screenWidth; ++x)
                for (int k = 0; k < 4; ++k) {
                    const bool inside = x < c.width && y < c.height;
                    const int expected = !inside ? untouched : k == 3 ? 255 : image.at(x, y, k);
                    faults += expected != screen.at(x, y, k);
                }
        EXPECT_EQ(0, faults) << c.format << ' ' << c.width;
    }
}

TEST(ScreenBuffer, ResizingFollowsBilinearInterpolation) {
    for (const std::int32_t format : {1, 3})
        for (const float factor : {0.3f, 0.5f, 0.989f, 1.011f, 2.0f, 3.7f}) {
            const Image image(format, 37, 23);
            const double f = static_cast<double>(factor);
            const auto w = static_cast<std::int32_t>(37 * f), h = static_cast<std::int32_t>(23 * f);
            Screen screen(w + 3, h + 2);
            ASSERT_EQ(1, screen.show(image.host, factor));
            EXPECT_TRUE(screen.paddingSurvives());
            const auto position = [f](std::int32_t k, std::int32_t side, std::int32_t& i) {
                const double p = k * (side - 1) / (side * f - 1);
                i = std::min(static_cast<std::int32_t>(p), side - 2);
                return p - i;
            };
            for (std::int32_t y = 0; y < h + 2; ++y)
                for (std::int32_t x = 0; x < w + 3; ++x) {
                    ASSERT_EQ(255, screen.at(x, y, 3));
                    for (int c = 0; c < 3; ++c) {
                        if (x >= w || y >= h) {
                            ASSERT_EQ(0, screen.at(x, y, c));
                            continue;
                        }
                        std::int32_t i, j;
                        const double a = position(x, 37, i), b = position(y, 23, j);
                        const double upper =
                            image.at(i, j, c) * (1 - a) + image.at(i + 1, j, c) * a;
                        const double lower =
                            image.at(i, j + 1, c) * (1 - a) + image.at(i + 1, j + 1, c) * a;
                        ASSERT_NEAR(upper * (1 - b) + lower * b, screen.at(x, y, c), 1.0)
                            << factor << ' ' << x << ' ' << y;
                    }
                }
        }
}

TEST(ScreenBuffer, AnyFactorEnds) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    const Image image(1, 12, 9), column(1, 1, 4);
    for (const float factor : {0.0f, -1.0f, -inf, 1e-38f}) {
        Screen screen(5, 4);
        EXPECT_EQ(1, screen.show(image.host, factor));
        for (std::int32_t x = 0; x < 5; ++x)
            for (int c = 0; c < 4; ++c)
                EXPECT_EQ(c == 3 ? 255 : 0, screen.at(x, 3, c));
    }
    for (const float factor : {nan, 1e30f, inf}) {
        Screen screen(5, 4);
        EXPECT_EQ(1, screen.show(image.host, factor));
        EXPECT_EQ(image.at(0, 0, 0), screen.at(0, 0, 0)) << factor;
        EXPECT_EQ(255, screen.at(4, 3, 3));
    }
    // A side of one pixel is taken by the nearest: rows 1 and 3 of four, and the one column there
    // is.
    Screen half(1, 2);
    EXPECT_EQ(1, half.show(column.host, 0.5f));
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(column.at(0, 1, c), half.at(0, 0, c));
        EXPECT_EQ(column.at(0, 3, c), half.at(0, 1, c));
    }
}

TEST(ScreenBuffer, RefusalsWriteNothing) {
    const Image image(1, 4, 4);
    Screen screen(4, 4);
    const QxIccProfiles none{};
    PSImage host = image.host;
    const auto both = [&](std::int32_t expected, std::int32_t step, std::int32_t width,
                          std::int32_t height, bool noImage = false, bool noScreen = false) {
        const PSImage* const from = noImage ? nullptr : &host;
        std::uint8_t* const to = noScreen ? nullptr : screen.data();
        EXPECT_EQ(expected, PSImage2QImage(from, to, step, width, height, 1.0f));
        EXPECT_EQ(expected, PSImageICC2QImage(&none, from, to, step, width, height, 0.5f));
    };
    for (host.format = -1; host.format < 12; ++host.format)
        if (host.format != 1 && host.format != 3 && host.format != 5 && host.format != 6)
            both(-3, 16, 4, 4);
    host = image.host;
    both(-1001, 16, 4, 4, true, false);
    both(-1001, 16, 4, 4, false, true);
    both(-1001, 15, 4, 4);
    both(-1001, 16, 0, 4);
    both(-1001, 16, 4, -1);
    both(-1001, 16, 1 << 30, 4);
    EXPECT_EQ(-1001, PSImageICC2QImage(nullptr, &host, screen.data(), 16, 4, 4, 1.0f));
    void* const data = image.host.data;
    for (const PSImage& bad : {PSImage{1, nullptr, 99, 4, 4}, PSImage{1, data, 99, 0, 4},
                               PSImage{1, data, 99, 4, -5}, PSImage{1, data, 11, 4, 4}}) {
        host = bad;
        both(-1001, 16, 4, 4);
    }
    EXPECT_EQ(Screen(4, 4).bytes, screen.bytes);
}

QxIccProfiles pair(const Bytes& source, const Bytes& target) {
    return {source.empty() ? nullptr : source.data(), static_cast<std::int32_t>(source.size()),
            target.empty() ? nullptr : target.data(), static_cast<std::int32_t>(target.size())};
}

/// The screen as Little CMS takes it from one profile to the other.
Screen carried(Screen screen, cmsHPROFILE source, cmsHPROFILE target) {
    const cmsHTRANSFORM transform = cmsCreateTransform(source, TYPE_BGRA_8, target, TYPE_BGRA_8,
                                                       INTENT_RELATIVE_COLORIMETRIC, 0);
    for (std::int32_t y = 0; y < screen.height; ++y) {
        std::uint8_t* const row = screen.data() + y * screen.step;
        cmsDoTransform(transform, row, row, static_cast<cmsUInt32Number>(screen.width));
    }
    cmsDeleteTransform(transform);
    cmsCloseProfile(source);
    cmsCloseProfile(target);
    return screen;
}

TEST(ColourManagedPreview, TakesTheWholeBufferFromProfileToProfile) {
    const Image image(1, 61, 20);
    const Bytes srgb = blockOf(cmsCreate_sRGBProfile()),
                wide = blockOf(matrixProfile(2.2, {0.21, 0.71, 1.0}));
    const auto open = [](const Bytes& block) {
        return cmsOpenProfileFromMem(block.data(), static_cast<cmsUInt32Number>(block.size()));
    };
    // Wider and higher than the image: what the conversion leaves alone is carried along.
    Screen plain(64, 22);
    ASSERT_EQ(1, plain.show(image.host));
    const auto shown = [&](const QxIccProfiles& profiles) {
        Screen screen(64, 22);
        EXPECT_EQ(1, screen.show(profiles, image.host));
        return screen.bytes;
    };
    EXPECT_EQ(carried(plain, open(srgb), open(wide)).bytes, shown(pair(srgb, wide)));
    EXPECT_EQ(carried(plain, open(wide), open(srgb)).bytes, shown(pair(wide, srgb)));
    // A missing profile is sRGB, told by the pointer or by the size.
    const Bytes ofSrgb = carried(plain, cmsCreate_sRGBProfile(), open(wide)).bytes;
    EXPECT_EQ(ofSrgb, shown(pair({}, wide)));
    QxIccProfiles noSource = pair(wide, wide);
    noSource.sourceProfileSize = 0;
    EXPECT_EQ(ofSrgb, shown(noSource));
}

TEST(ColourManagedPreview, LeavesTheConversionWithoutUsableProfiles) {
    const Image image(3, 30, 20);
    const Bytes wide = blockOf(matrixProfile(2.2, {0.21, 0.71, 1.0})),
                lab = blockOf(cmsCreateLab4Profile(nullptr));
    Bytes garbage(500, 0x5a), cut(wide.begin(), wide.begin() + 200), empty;
    Screen plain(30, 20);
    ASSERT_EQ(1, plain.show(image.host));
    QxIccProfiles noSizes = pair(wide, wide);
    noSizes.sourceProfileSize = 0;
    noSizes.targetProfileSize = -4;
    const struct {
        std::int32_t result;
        QxIccProfiles profiles;
    } cases[] = {{1, QxIccProfiles{}},     {1, noSizes},          {0, pair(garbage, wide)},
                 {0, pair(wide, garbage)}, {0, pair(cut, empty)}, {0, pair(empty, cut)},
                 {0, pair(empty, lab)},    {0, pair(lab, wide)}};
    for (const auto& c : cases) {
        Screen screen(30, 20);
        EXPECT_EQ(c.result, screen.show(c.profiles, image.host)) << &c - cases;
        EXPECT_EQ(plain.bytes, screen.bytes) << &c - cases;
    }
}

TEST(ColourManagedPreview, ManyCallsAtOnceKeepTheirOwnProfiles) {
    const Image image(1, 50, 40);
    const Bytes garbage(300, 1);
    std::vector<std::thread> hosts;
    std::vector<int> faults(12);
    for (std::size_t t = 0; t < faults.size(); ++t)
        hosts.emplace_back([&, t] {
            const Bytes mine =
                blockOf(matrixProfile(1.8, {0.2 + 0.01 * static_cast<double>(t), 0.71, 1.0}));
            const Screen untouchedScreen(50, 40);
            Screen first = untouchedScreen;
            faults[t] += first.show(pair({}, mine), image.host) != 1;
            for (int turn = 0; turn < 20; ++turn) {
                Screen again = untouchedScreen;
                faults[t] += t % 3 == 0 && again.show(pair(mine, garbage), image.host) != 0;
                faults[t] += again.show(pair({}, mine), image.host) != 1;
                faults[t] += first.bytes != again.bytes;
            }
        });
    for (std::thread& host : hosts)
        host.join();
    EXPECT_EQ(std::vector<int>(12), faults);
}

TEST(SampleScales, EightBitsComeBackFromFifteen) {
    constexpr std::int32_t width = 2050, height = 3, step = width + 3;
    Bytes in(step * height), out(step * height, untouched);
    for (std::size_t i = 0; i < in.size(); ++i)
        in[i] = static_cast<std::uint8_t>(i);
    // Samples of 16 bits may lie at odd addresses.
    constexpr std::int32_t wideStep = 2 * step + 1;
    Bytes wideBytes(wideStep * height + 1, untouched);
    auto* const wide = reinterpret_cast<std::uint16_t*>(wideBytes.data() + 1);
    ASSERT_EQ(1, psC1U8toU15(in.data(), step, width, height, wide, wideStep));
    ASSERT_EQ(1, psC1U15toU8(wide, wideStep, width, height, out.data(), step));
    for (std::int32_t i = 0; i < step * height; ++i) {
        const auto k = static_cast<std::size_t>(i);
        const bool inside = i % step < width;
        std::uint16_t sample;
        std::memcpy(&sample, &wideBytes[1 + i / step * wideStep + i % step * 2], sizeof sample);
        ASSERT_EQ(inside ? (in[k] + 1) * 128 : untouched * 257, sample);
        ASSERT_EQ(inside ? in[k] : untouched, out[k]);
    }
    const std::uint16_t samples[] = {0, 64, 127, 128, 192, 193, 320, 32767, 32768, 65535};
    const std::uint8_t expected[] = {0, 0, 0, 0, 0, 1, 2, 255, 255, 255};
    ASSERT_EQ(1, psC1U15toU8(samples, sizeof samples, 10, 1, out.data(), 10));
    EXPECT_EQ(Bytes(expected, expected + 10), Bytes(out.begin(), out.begin() + 10));

    const Bytes before = wideBytes;
    const struct {
        std::int32_t width, narrowStep, wideStep;
    } bad[] = {{0, 4, 8}, {4, 3, 8}, {4, 4, 7}, {1 << 30, 4, 8}};
    for (const auto& [w, narrow, broad] : bad) {
        EXPECT_EQ(-1001, psC1U8toU15(in.data(), narrow, w, 1, wide, broad));
        EXPECT_EQ(-1001, psC1U15toU8(wide, broad, w, 1, in.data(), narrow));
    }
    EXPECT_EQ(before, wideBytes);
}

} // namespace
} // namespace kt7::test
