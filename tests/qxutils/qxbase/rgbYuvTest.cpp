#include "qxutils/qxbase/rgbYuv.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cmath>
#include <random>
#include <vector>

#include "tests/support/targets.h"

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

struct Planes {
    Planes(std::int32_t width, std::int32_t height)
        : y(width, height), u(width, height), v(width, height) {}
    Plane y, u, v;
    Plane* const written[3] = {&y, &u, &v};
    const Plane* const read[3] = {&y, &u, &v};
};

class RgbYuv : public test::OnTarget {
  protected:
    NoiseNormalize identity, curve;
    const NoiseNormalize* plain[3] = {&identity, &identity, &identity};
    const NoiseNormalize* curved[3] = {&curve, &curve, &curve};
    const NoiseNormalize* redOnly[3] = {&curve, &identity, &identity};

    RgbYuv() {
        identity.setup(0.0f, 0.0f, 0.0f, 0.95f);
        curve.setup(0.01f, 0.02f, 0.03f, 0.95f);
    }
};

KT7_ON_EVERY_TARGET(RgbYuv);

template <class T>
std::vector<T> randomImage(std::size_t samples, int most) {
    std::mt19937 random(7);
    std::vector<T> image(samples);
    for (T& s : image)
        s = static_cast<T>(random() % static_cast<unsigned>(most + 1));
    return image;
}

TEST_P(RgbYuv, MatrixOfOnePixel) {
    struct Case {
        std::uint16_t r, g, b;
        int y, u, v;
    };
    for (const Case& c :
         {Case{0, 0, 0, 0, 0, 0}, Case{32767, 0, 0, 9797, -4820, 20144},
          Case{0, 0, 32767, 3735, 14283, -3275}, Case{0, 32767, 0, 19234, -9463, -16868},
          Case{20000, 10000, 5000, 12420, -3650, 6647}, Case{65535, 0, 0, 9797, -4820, 20144}}) {
        const std::uint16_t rgb[3] = {c.r, c.g, c.b};
        Planes p(1, 1);
        EXPECT_EQ(qxRGBToYUV(rgb, 6, 1, 1, p.written, plain), 1);
        EXPECT_EQ(*p.y.at(0, 0), c.y);
        EXPECT_EQ(*p.u.at(0, 0), c.u);
        EXPECT_EQ(*p.v.at(0, 0), c.v);
    }
}

TEST_P(RgbYuv, ImageStandsInTheMiddleWithItsEdgesReplicated) {
    constexpr std::int32_t width = 5, height = 3, rowSamples = 17;
    const auto rgb = randomImage<std::uint8_t>(rowSamples * height, 255);
    Planes p(16, 10), bare(width, height);
    qxRGBToYUV(rgb.data(), rowSamples, width, height, p.written, curved);
    qxRGBToYUV(rgb.data(), rowSamples, width, height, bare.written, curved);
    for (int c = 0; c < 3; ++c)
        for (std::int32_t y = 0; y < 10; ++y)
            for (std::int32_t x = 0; x < 16; ++x)
                EXPECT_EQ(*p.read[c]->at(x, y),
                          *bare.read[c]->at(std::clamp(x - 5, 0, width - 1),
                                            std::clamp(y - 3, 0, height - 1)));
    // Backwards only the image is written, and nothing behind its rows.
    std::vector<std::uint8_t> back(rgb.size(), 0xA5);
    EXPECT_EQ(qxYUVToRGB(p.read, back.data(), rowSamples, width, height, curved), 1);
    EXPECT_EQ(back[3 * width], 0xA5);
    // Each channel goes through its own table: only what red reaches differs, and it reaches all.
    Planes mixed(width, height), same(width, height);
    qxRGBToYUV(rgb.data(), rowSamples, width, height, mixed.written, redOnly);
    qxRGBToYUV(rgb.data(), rowSamples, width, height, same.written, plain);
    const double red = (*mixed.v.at(1, 1) - *same.v.at(1, 1)) / (0.701 * 0.877);
    EXPECT_NEAR(red, curve.fwd[rgb[rowSamples + 3] * 128] - rgb[rowSamples + 3] * 128, 4);
    EXPECT_NEAR(*mixed.u.at(1, 1) - *same.u.at(1, 1), -0.299 * 0.492 * red, 3);
    // Planes smaller than the image take what fits.
    Planes small(2, 2);
    qxRGBToYUV(rgb.data(), rowSamples, width, height, small.written, curved);
    EXPECT_EQ(*small.v.at(1, 1), *bare.v.at(1, 1));
}

TEST_P(RgbYuv, GreysAreNeutralAndComeBack) {
    std::vector<std::uint8_t> rgb(256 * 3), back(256 * 3);
    for (std::size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = static_cast<std::uint8_t>(i / 3);
    for (const auto* tables : {&plain, &curved}) {
        Planes p(256, 1);
        qxRGBToYUV(rgb.data(), 768, 256, 1, p.written, *tables);
        for (const Plane* chroma : {&p.u, &p.v})
            for (const std::int16_t s : chroma->row(0))
                EXPECT_EQ(s, 0);
        qxYUVToRGB(p.read, back.data(), 768, 256, 1, *tables);
        for (std::size_t i = 0; i < rgb.size(); ++i)
            EXPECT_TRUE(back[i] == rgb[i] || back[i] + 1 == rgb[i]) << i << ' ' << int{back[i]};
    }
    Planes white(1, 1); // 255 stands for 32640, not for the table's end
    qxRGBToYUV(rgb.data() + 765, 3, 1, 1, white.written, curved);
    EXPECT_NEAR(*white.y.at(0, 0), curve.fwd[32640], 1);
}

TEST_P(RgbYuv, BackwardHoldsAndTruncates) {
    struct Case {
        std::int16_t y, u, v;
        int r, g, b;
    };
    for (const Case& c :
         {Case{32767, 0, 0, 32767, 32767, 32767}, Case{0, -100, -100, 0, 97, 0},
          Case{10000, 2000, -3000, 6580, 10955, 14064}, Case{-32768, -32768, -32768, 0, 0, 0},
          Case{32767, 32767, 32767, 32767, 819, 32767}}) {
        Planes p(1, 1);
        *p.y.at(0, 0) = c.y;
        *p.u.at(0, 0) = c.u;
        *p.v.at(0, 0) = c.v;
        std::uint16_t rgb[3];
        qxYUVToRGB(p.read, rgb, 6, 1, 1, plain);
        EXPECT_EQ(rgb[0], c.r);
        EXPECT_EQ(rgb[1], c.g);
        EXPECT_EQ(rgb[2], c.b);
        std::uint8_t bytes[3];
        qxYUVToRGB(p.read, bytes, 3, 1, 1, plain);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(bytes[i], rgb[i] / 128);
    }
}

TEST_P(RgbYuv, AllTargetsGiveTheSameBits) {
    const auto words = randomImage<std::uint16_t>(3 * 1100, 65535);
    const auto bytes = randomImage<std::uint8_t>(3 * 1100, 255);
    const auto converted = [&](CpuTarget target, std::int32_t width) {
        selectKernels(target);
        Planes p(width, 1);
        std::vector<std::int16_t> all;
        const auto keep = [&] {
            for (const Plane* plane : p.read)
                all.insert(all.end(), plane->row(0).begin(), plane->row(0).end());
            std::vector<std::uint16_t> rgb(static_cast<std::size_t>(width) * 3);
            qxYUVToRGB(p.read, rgb.data(), width * 6, width, 1, curved);
            all.insert(all.end(), rgb.begin(), rgb.end());
        };
        qxRGBToYUV(words.data(), width * 6, width, 1, p.written, curved);
        keep();
        qxRGBToYUV(bytes.data(), width * 3, width, 1, p.written, redOnly);
        keep();
        return all;
    };
    for (const std::int32_t width : {1, 7, 8, 9, 31, 32, 33, 511, 512, 513, 1100})
        EXPECT_EQ(converted(GetParam(), width), converted(CpuTarget::generic, width)) << width;
}

// Rows so far apart that offsets pass 2 GiB; the untouched space between them costs no memory.
TEST_P(RgbYuv, OffsetsPassTwoGigabytes) {
    constexpr std::int32_t step = 1 << 30, height = 5, width = 40;
    constexpr std::size_t bytes = std::size_t{step} * height;
    void* const storage = mmap(nullptr, bytes * 4, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (storage == MAP_FAILED)
        GTEST_SKIP() << "no address space";
    auto* const area = static_cast<unsigned char*>(storage);
    auto* const image = reinterpret_cast<std::uint16_t*>(area);
    const auto planeAt = [&](std::size_t i) {
        return reinterpret_cast<std::int16_t*>(area + i * bytes);
    };
    Plane y(width, height, planeAt(1), step), u(width, height, planeAt(2), step),
        v(width, height, planeAt(3), step);
    Plane* const planes[3] = {&y, &u, &v};
    const Plane* const read[3] = {&y, &u, &v};
    rowAt(image, step, 4)[3 * 7] = 1000;
    qxRGBToYUV(image, step, width, height, planes, plain);
    EXPECT_EQ(*y.at(7, 4), 299);
    EXPECT_EQ(*v.at(7, 4), 614);
    rowAt(image, step, 4)[3 * 7] = 0;
    qxYUVToRGB(read, image, step, width, height, plain);
    EXPECT_NEAR(rowAt(image, step, 4)[3 * 7], 1000, 3);
    munmap(storage, bytes * 4);
}

} // namespace
} // namespace kt7
