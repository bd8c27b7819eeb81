#include "prim/memory.h"

#include <gtest/gtest.h>

namespace kt7 {
namespace {

TEST(PlaneMemory, RoundsRowsAndRefusesWhatDoesNotFit) {
    struct Case {
        std::int32_t width, height, step;
        bool given;
    };
    for (const Case& c : {Case{1, 1, 32, true}, Case{32, 4, 32, true}, Case{33, 3, 64, true},
                          Case{0, 4, 0, false}, Case{4, 0, 0, false}, Case{-5, 4, 0, false},
                          Case{1 << 20, 1 << 11, 1 << 20, false}, Case{2147483647, 1, 0, false}}) {
        std::int32_t step = -1;
        const PrimPtr<unsigned char> block(primMalloc8uC1(c.width, c.height, &step));
        EXPECT_EQ(step, c.step) << c.width << "x" << c.height;
        EXPECT_EQ(block != nullptr, c.given) << c.width << "x" << c.height;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.get()) % 32, 0u);
    }
    EXPECT_EQ(primMalloc8uC1(32, 1, nullptr), nullptr);
}

} // namespace
} // namespace kt7
