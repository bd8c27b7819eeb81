#include "qxutils/TileRunner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

constexpr std::int32_t side = 400;
constexpr TileShape shape{64, 16, 4};

struct Job {
    Job() {
        Plane* const target = &output;
        for (std::int32_t y = 0; y < side; ++y)
            std::ranges::fill(output.row(y), std::int16_t{0});
        EXPECT_TRUE(blocks.setup({&target, 1}, {&target, 1}, shape));
    }

    Plane output{side, side};
    BlockProcPmPnT blocks;
};

// Neighbours that differ everywhere, so that a seam shows which of them was merged first.
void paint(TileSlot& slot) {
    for (std::int32_t y = 0; y < slot.planes[0]->height; ++y)
        std::ranges::fill(slot.planes[0]->row(y),
                          static_cast<float>(slot.x % 97 + slot.y % 89) * 0.004f);
}

TEST(TileRunner, MergesInOrderWhateverTheTiming) {
    const std::int32_t threads = maxThreads();
    Job serial, parallel;
    runTiles(
        serial.blocks, 1, [](std::int32_t) { return 0; },
        [](int&, TileSlot& slot) { paint(slot); });
    std::int32_t last = 0, most = 0;
    EXPECT_TRUE(runTiles(
        parallel.blocks, threads, [](std::int32_t i) { return i; },
        [](int& worker, TileSlot& slot) {
            // Every second tile is late, and the calling thread's are the latest.
            std::this_thread::sleep_for(std::chrono::microseconds(
                (slot.x / 48 + slot.y / 48) % 2 * 500 + (worker == 0 ? 1000 : 0)));
            paint(slot);
        },
        [&](std::int32_t merged) {
            EXPECT_GE(merged, last);
            last = merged;
            most = std::max(most, merged);
            return true;
        }));
    EXPECT_EQ(most, parallel.blocks.blocksX * parallel.blocks.blocksY);
    for (std::int32_t y = 0; y < side; ++y)
        ASSERT_TRUE(std::ranges::equal(serial.output.row(y), parallel.output.row(y))) << y;
}

TEST(TileRunner, EndsOnCancelAndOnWhatAWorkerRaises) {
    for (const std::int32_t threads : {1, maxThreads()}) {
        Job cancelled, failing, unmade;
        std::atomic<std::int32_t> worked{0};
        EXPECT_FALSE(runTiles(
            cancelled.blocks, threads, [](std::int32_t i) { return i; },
            [&](int&, TileSlot&) { ++worked; }, [](std::int32_t) { return false; }));
        if (threads == 1) {
            EXPECT_EQ(worked, 1);
        }
        EXPECT_THROW(runTiles(
                         failing.blocks, threads, [](std::int32_t i) { return i; },
                         [](int&, TileSlot& slot) {
                             if (slot.y > 0)
                                 throw std::runtime_error("tile");
                         }),
                     std::runtime_error);
        EXPECT_THROW(runTiles(
                         unmade.blocks, threads,
                         [&](std::int32_t i) {
                             if (i == threads - 1)
                                 throw std::runtime_error("worker");
                             return i;
                         },
                         [](int&, TileSlot&) {}),
                     std::runtime_error);
    }
}

} // namespace
} // namespace kt7
