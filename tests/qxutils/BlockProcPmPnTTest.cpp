#include "qxutils/BlockProcPmPnT.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

template <class Value>
void fill(Plane& plane, Value&& value) {
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int32_t x = 0; x < plane.width; ++x)
            *plane.at(x, y) = static_cast<std::int16_t>(value(x, y));
}

struct Processor {
    Processor(Plane& in, Plane& out, std::int32_t block, std::int32_t overlap,
              std::int32_t feather) {
        const Plane* inputs[] = {&in};
        Plane* outputs[] = {&out};
        EXPECT_EQ(blocks.setup(1, inputs, 1, outputs, block, block, overlap, feather), 1);
    }
    BlockProcPmPnT blocks;
};

TEST(BlockProcPmPnT, SpreadsTilesEvenly) {
    struct Case {
        std::int32_t side, count, size, step;
        std::vector<std::int32_t> positions;
    };
    for (const Case& c : {Case{256, 1, 256, 256, {0}}, Case{299, 1, 299, 299, {0}},
                          Case{300, 2, 182, 150, {0, 118}}, Case{600, 3, 242, 210, {0, 210, 358}},
                          Case{1000, 5, 238, 206, {0, 206, 412, 618, 762}}}) {
        const BlockLayout layout = chooseBlockCount(c.side, 240, 32);
        EXPECT_EQ(layout.count, c.count) << c.side;
        EXPECT_EQ(layout.blockSize, c.size) << c.side;
        EXPECT_EQ(layout.step, c.step) << c.side;
        Plane in(c.side, 256), out(c.side, 256);
        Processor p(in, out, 240, 32, 12);
        std::vector<std::int32_t> positions;
        for (std::int32_t x, y; p.blocks.getABlockLoc(&x, &y);)
            positions.push_back(x);
        EXPECT_EQ(positions, c.positions) << c.side;
        std::int32_t x = -7, y = -7;
        EXPECT_FALSE(p.blocks.getABlockLoc(&x, &y));
    }
}

TEST(BlockProcPmPnT, RefusesBadPlaneCounts) {
    Plane plane(256, 256);
    const Plane* inputs[7] = {&plane, &plane, &plane, &plane, &plane, &plane, &plane};
    Plane* outputs[7] = {&plane, &plane, &plane, &plane, &plane, &plane, &plane};
    BlockProcPmPnT blocks;
    EXPECT_EQ(blocks.setup(7, inputs, 1, outputs, 128, 128, 8, 2), 0);
    EXPECT_EQ(blocks.setup(-1, inputs, 1, outputs, 128, 128, 8, 2), 0);
    EXPECT_EQ(blocks.setup(1, inputs, 0, outputs, 128, 128, 8, 2), 0);
    EXPECT_EQ(blocks.setup(1, inputs, 7, outputs, 128, 128, 8, 2), 0);
    EXPECT_EQ(blocks.outputCount, 0);
    EXPECT_EQ(blocks.setup(0, inputs, 1, outputs, 128, 128, 8, 2), 1);
}

// Tiles that come back as they were rebuild the plane, in the core exactly, in the fades within the
// two truncations of a corner, and leave the plane's own rim unwritten.
TEST(BlockProcPmPnT, IdentityTilesRebuildThePlane) {
    struct Case {
        std::int32_t width, height, block, overlap, feather;
    };
    for (const Case& c :
         {Case{256, 256, 128, 8, 2}, Case{333, 257, 128, 8, 2}, Case{700, 301, 240, 32, 12},
          Case{500, 450, 128, 8, 4}, Case{900, 410, 400, 40, 16}}) {
        Plane in(c.width, c.height), out(c.width, c.height);
        fill(in, [](std::int32_t x, std::int32_t y) {
            return (x * 7919 + y * 104729) % 65521 - 32760;
        });
        Processor p(in, out, c.block, c.overlap, c.feather);
        GIMG<float> tile(p.blocks.blockWidth, p.blocks.blockHeight);
        for (std::int32_t x, y; p.blocks.getABlockLoc(&x, &y);) {
            p.blocks.getBlock(x, y, 0, tile);
            p.blocks.saveOutBlock(x, y, 0, tile);
        }
        std::int32_t worst = 0;
        for (std::int32_t y = c.feather; y < c.height - c.feather; ++y)
            for (std::int32_t x = c.feather; x < c.width - c.feather; ++x)
                worst = std::max(worst, std::abs(*in.at(x, y) - *out.at(x, y)));
        EXPECT_LE(worst, c.overlap == 2 * c.feather ? 0 : 4) << c.width << "x" << c.height;
        EXPECT_EQ(*out.at(0, 0), BlockProcPmPnT::unwritten);
        EXPECT_EQ(*out.at(c.width - 1, c.height / 3), BlockProcPmPnT::unwritten);
    }
}

TEST(BlockProcPmPnT, SeamCrossFadesAndValuesAreHeld) {
    Plane in(300, 256), out(300, 256);
    fill(in, [](std::int32_t, std::int32_t) { return 0; });
    Processor p(in, out, 240, 32, 12);
    ASSERT_EQ(p.blocks.blocksX, 2);
    GIMG<float> tile(p.blocks.blockWidth, p.blocks.blockHeight);
    const auto save = [&](std::int32_t x, float value) {
        for (std::int32_t y = 0; y < tile.height; ++y)
            std::ranges::fill(tile.row(y), value);
        p.blocks.saveOutBlock(x, 0, 0, tile);
    };
    save(0, 1.5f);    // held at 32767
    save(118, -2.0f); // held at -32767
    // The second tile drops 12 samples, then fades in over 8, then replaces what was there.
    EXPECT_EQ(*out.at(118 + 11, 128), 32767);
    EXPECT_EQ(*out.at(118 + 12, 128), 32767);
    EXPECT_EQ(*out.at(118 + 16, 128), 0);
    EXPECT_EQ(*out.at(118 + 20, 128), -32767);
    for (std::int32_t i = 1; i < 8; ++i)
        EXPECT_LT(*out.at(118 + 12 + i, 128), *out.at(118 + 11 + i, 128));
}

TEST(BlockProcPmPnT, RoundsTheCoreAndTruncatesTheSeams) {
    Plane in(256, 256), out(256, 256);
    Processor p(in, out, 240, 32, 12);
    GIMG<float> tile(256, 256);
    for (const auto& [value, core, seam] :
         {std::tuple{1.5f, 2, 1}, {2.5f, 2, 2}, {-1.5f, -2, -1}, {0.7f, 1, 0}}) {
        fill(out, [](std::int32_t, std::int32_t) { return BlockProcPmPnT::unwritten; });
        for (std::int32_t y = 0; y < 256; ++y)
            std::ranges::fill(tile.row(y), value / 32768.0f);
        p.blocks.saveOutBlock(0, 0, 0, tile);
        EXPECT_EQ(*out.at(128, 128), core) << value;
        EXPECT_EQ(*out.at(14, 128), seam) << value;
        EXPECT_EQ(*out.at(128, 243), seam) << value;
    }
}

} // namespace
} // namespace kt7
