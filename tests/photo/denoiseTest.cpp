// The photo library through its exported functions: every form of pixels, and what is refused.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "include/kt7photo/kt7photo.h"
#include "tests/support/hostImage.h"

namespace kt7::test {
namespace {

template <class Struct>
Struct sized() {
    Struct host{};
    host.size = sizeof host;
    return host;
}

struct Form {
    std::int32_t sampleType, bytes;
    float step; // between two neighbouring values near the middle
};
const Form forms[] = {{kt7PhotoU8, 1, 1.0f / 255.0f},
                      {kt7PhotoU16, 2, 1.0f / 65535.0f},
                      {kt7PhotoU15, 2, 1.0f / 32768.0f},
                      {kt7PhotoHalf, 2, 1.0f / 2048.0f},
                      {kt7PhotoFloat, 4, 1e-7f}};

/// A photo in a host's memory, filled through kt7photo itself from floats.
struct HostPhoto {
    HostPhoto(const Form& form, std::int32_t colours, std::int32_t alphaKind, bool planar,
              std::int32_t w, std::int32_t h) {
        const std::int64_t channels = colours + (alphaKind != kt7PhotoNoAlpha ? 1 : 0);
        const std::int64_t rowBytes = (w + 3) * channels * form.bytes + 5;
        bytes.assign(static_cast<std::size_t>(rowBytes * h), mark);
        EXPECT_EQ(kt7PhotoInterleaved(&image, form.sampleType, colours, alphaKind, bytes.data(), w,
                                      h, rowBytes),
                  kt7PhotoDone);
        if (!planar)
            return;
        // Planes one behind the other in each row, from its end to its beginning.
        std::int64_t plane = 0;
        for (Kt7PhotoPlane* p :
             {&image.planes[0], &image.planes[1], &image.planes[2], &image.alpha})
            if (p->data != nullptr)
                *p = {bytes.data() + ((w + 2) * plane++ + w - 1) * form.bytes, -form.bytes,
                      rowBytes};
    }

    Kt7PhotoImage image = sized<Kt7PhotoImage>();
    std::vector<unsigned char> bytes;
    static constexpr unsigned char mark = 0xa7;
};

TEST(PhotoDenoise, TakesEveryFormOfPixelsAndGivesItBack) {
    constexpr std::int32_t width = 61, height = 50;
    std::vector<float> values(width * height * 4);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            for (std::int32_t c = 0; c < 4; ++c)
                values[(y * width + x) * 4 + c] = c == 3
                                                      ? 0.25f + 0.5f * static_cast<float>(x) / width
                                                      : static_cast<float>(sceneAt(x, y, c));
    auto floats = sized<Kt7PhotoImage>();
    ASSERT_EQ(kt7PhotoInterleaved(&floats, kt7PhotoFloat, kt7PhotoRgb, kt7PhotoStraight,
                                  values.data(), width, height, width * 16),
              kt7PhotoDone);
    auto copy = sized<Kt7PhotoSettings>();
    ASSERT_EQ(kt7PhotoDefaults(&copy), kt7PhotoDone);
    copy.strength = 0.0f;
    for (const Form& form : forms)
        for (const std::int32_t alphaKind :
             {kt7PhotoNoAlpha, kt7PhotoStraight, kt7PhotoPremultiplied})
            for (const bool planar : {false, true}) {
                SCOPED_TRACE(testing::Message() << "type " << form.sampleType << ", alpha "
                                                << alphaKind << (planar ? ", planar" : ""));
                HostPhoto photo(form, kt7PhotoRgb, alphaKind, planar, width, height);
                ASSERT_EQ(kt7PhotoDenoise(&floats, &photo.image, &copy), kt7PhotoDone);
                std::vector<float> back(values.size(), -1.0f);
                Kt7PhotoImage floatsBack = floats;
                kt7PhotoInterleaved(&floatsBack, kt7PhotoFloat, kt7PhotoRgb, kt7PhotoStraight,
                                    back.data(), width, height, width * 16);
                ASSERT_EQ(kt7PhotoDenoise(&photo.image, &floatsBack, &copy), kt7PhotoDone);
                float worst = 0.0f;
                for (std::size_t i = 0; i < values.size(); ++i) {
                    const bool isAlpha = i % 4 == 3;
                    const float expected =
                        isAlpha && alphaKind == kt7PhotoNoAlpha ? 1.0f : values[i];
                    worst = std::max(worst, std::fabs(back[i] - expected));
                }
                // Colours are rounded after they were multiplied by an alpha of 0.25 or more.
                EXPECT_LE(worst, form.step * (alphaKind == kt7PhotoPremultiplied ? 8.0f : 0.51f));
                // In place, strength 0 changes no byte, also none between the rows.
                const std::vector<unsigned char> before = photo.bytes;
                EXPECT_EQ(kt7PhotoDenoise(&photo.image, &photo.image, &copy), kt7PhotoDone);
                EXPECT_EQ(photo.bytes, before);
            }
}

} // namespace
} // namespace kt7::test
