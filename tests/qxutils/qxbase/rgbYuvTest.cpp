#include "qxutils/qxbase/rgbYuv.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cmath>
#include <random>
#include <vector>

#include "prim/kernels/KernelTable.h"
#include "prim/kernels/select.h"

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

class RgbYuv : public testing::Test {
  protected:
    NoiseNormalize identity, curve;
    const NoiseNormalize* plain[3] = {&identity, &identity, &identity};
    const NoiseNormalize* curved[3] = {&curve, &curve, &curve};

    void SetUp() override {
        identity.setup(0.0f, 0.0f, 0.0f, 0.95f);
        curve.setup(0.01f, 0.02f, 0.03f, 0.95f);
    }
    void TearDown() override { selectKernels(CpuTarget::generic); }
};

std::vector<CpuTarget> targetsHere() {
    std::vector<CpuTarget> targets;
    for (const CpuTarget t : {CpuTarget::generic, CpuTarget::avx2, CpuTarget::avx512})
        if (t <= bestCpuTarget())
            targets.push_back(t);
    return targets;
}

template <class T>
std::vector<T> randomImage(std::size_t samples, int most) {
    std::mt19937 random(7);
    std::vector<T> image(samples);
    for (T& s : image)
        s = static_cast<T>(random() % static_cast<unsigned>(most + 1));
    return image;
}

TEST_F(RgbYuv, MatrixOfOnePixel) {
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

TEST_F(RgbYuv, ImageStandsInTheMiddleWithItsEdgesReplicated) {
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
    EXPECT_EQ(back[rowSamples + 3 * width + 1], 0xA5);
    // Planes smaller than the image take what fits.
    Planes small(2, 2);
    qxRGBToYUV(rgb.data(), rowSamples, width, height, small.written, curved);
    EXPECT_EQ(*small.v.at(1, 1), *bare.v.at(1, 1));
}

TEST_F(RgbYuv, GreysAreNeutralAndComeBack) {
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

TEST_F(RgbYuv, RoundTripOfColours) {
    constexpr std::int32_t width = 613, height = 5;
    const auto rgb = randomImage<std::uint16_t>(std::size_t{width} * height * 3, 32767);
    std::vector<std::uint16_t> back(rgb.size());
    Planes p(width + 9, height + 4);
    qxRGBToYUV(rgb.data(), width * 6, width, height, p.written, plain);
    qxYUVToRGB(p.read, back.data(), width * 6, width, height, plain);
    // The matrices are inverse to about one part in a thousand.
    for (std::size_t i = 0; i < rgb.size(); ++i)
        ASSERT_NEAR(back[i], rgb[i], 40) << i;
}

TEST_F(RgbYuv, EachChannelHasItsOwnTable) {
    const NoiseNormalize* const redOnly[3] = {&curve, &identity, &identity};
    const std::uint16_t rgb[3] = {9000, 9000, 9000};
    Planes p(1, 1), q(1, 1);
    qxRGBToYUV(rgb, 6, 1, 1, p.written, redOnly);
    const auto curvedRed = static_cast<std::uint16_t>(curve.fwd[9000]);
    const std::uint16_t direct[3] = {curvedRed, 9000, 9000};
    qxRGBToYUV(direct, 6, 1, 1, q.written, plain);
    for (int c = 0; c < 3; ++c)
        EXPECT_EQ(*p.read[c]->at(0, 0), *q.read[c]->at(0, 0));
}

TEST_F(RgbYuv, BackwardHoldsAndTruncates) {
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

TEST_F(RgbYuv, AllTargetsGiveTheSameBits) {
    constexpr std::int32_t most = 1100;
    const auto words = randomImage<std::uint16_t>(most * 3, 65535);
    const auto bytes = randomImage<std::uint8_t>(most * 3, 255);
    for (const CpuTarget target : targetsHere())
        for (const std::int32_t width : {1, 7, 8, 9, 31, 32, 33, 511, 512, 513, most}) {
            Planes expected(width, 2), actual(width, 2);
            std::vector<std::uint16_t> rgb[2];
            std::vector<std::uint8_t> rgb8[2];
            for (const bool reference : {true, false}) {
                selectKernels(reference ? CpuTarget::generic : target);
                Planes& p = reference ? expected : actual;
                Plane firstY(width, 1, p.y.data, p.y.stepBytes),
                    firstU(width, 1, p.u.data, p.u.stepBytes),
                    firstV(width, 1, p.v.data, p.v.stepBytes);
                Plane* const first[3] = {&firstY, &firstU, &firstV};
                Plane secondY(width, 1, p.y.at(0, 1), p.y.stepBytes),
                    secondU(width, 1, p.u.at(0, 1), p.u.stepBytes),
                    secondV(width, 1, p.v.at(0, 1), p.v.stepBytes);
                Plane* const second[3] = {&secondY, &secondU, &secondV};
                qxRGBToYUV(words.data(), width * 6, width, 1, first, curved);
                qxRGBToYUV(bytes.data(), width * 3, width, 1, second, curved);
                rgb[reference].resize(static_cast<std::size_t>(width) * 6);
                rgb8[reference].resize(static_cast<std::size_t>(width) * 6);
                qxYUVToRGB(p.read, rgb[reference].data(), width * 6, width, 2, curved);
                qxYUVToRGB(p.read, rgb8[reference].data(), width * 3, width, 2, curved);
            }
            for (int c = 0; c < 3; ++c)
                for (std::int32_t y = 0; y < 2; ++y)
                    ASSERT_TRUE(
                        std::ranges::equal(expected.read[c]->row(y), actual.read[c]->row(y)))
                        << width << " plane " << c;
            ASSERT_EQ(rgb[0], rgb[1]) << width;
            ASSERT_EQ(rgb8[0], rgb8[1]) << width;
        }
}

// Rows so far apart that offsets pass 2 GiB; the untouched space between them costs no memory.
TEST_F(RgbYuv, OffsetsPassTwoGigabytes) {
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
