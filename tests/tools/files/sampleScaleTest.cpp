#include "tools/kt7/files/sampleScale.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kt7::tool {
namespace {

TEST(SampleScale, EveryValueGoesToTheNearest) {
    for (std::uint32_t v = 0; v <= 65535; ++v) {
        const std::uint16_t mid = scale16To15(static_cast<std::uint16_t>(v));
        EXPECT_LE(std::abs(mid - v * 32768.0 / 65535.0), 0.5) << v;
        EXPECT_LE(std::abs(scale15To16(mid) - static_cast<int>(v)), 1) << v;
    }
    for (std::uint32_t v = 0; v <= 32768; ++v) {
        const auto sample = static_cast<std::uint16_t>(v);
        EXPECT_EQ(scale16To15(scale15To16(sample)), v);
        EXPECT_LE(std::abs(scale15To16(sample) - v * 65535.0 / 32768.0), 0.5) << v;
        EXPECT_LE(std::abs(scale15To8(sample) - v * 255.0 / 32768.0), 0.5) << v;
        EXPECT_EQ(scaleFloatTo15(static_cast<float>(v) / 32768.0f), v);
    }
    EXPECT_EQ(scale15To16(40000), 65535);
    EXPECT_EQ(scale15To8(65535), 255);
}

} // namespace
} // namespace kt7::tool
