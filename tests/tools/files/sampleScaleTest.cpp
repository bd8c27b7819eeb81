#include "tools/kt7/files/sampleScale.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kt7::tool {
namespace {

TEST(SampleScale, EveryValueGoesToTheNearest) {
    for (const std::uint32_t from : {255u, 1023u, 4095u, 32768u, 65535u})
        for (const std::uint32_t to : {255u, 4095u, 32768u, 65535u}) {
            const Rescale scaled(from, to), back(to, from);
            for (std::uint32_t v = 0; v <= from; ++v) {
                ASSERT_LE(std::abs(scaled(v) - static_cast<double>(v) * to / from), 0.5) << v;
                if (to >= from) {
                    ASSERT_EQ(back(scaled(v)), v);
                }
            }
            EXPECT_EQ(scaled(70000), to);
        }
}

} // namespace
} // namespace kt7::tool
