#include "qxenhlib/PyramidLap16s.h"

#include <algorithm>
#include <vector>

#include "prim/kernels/KernelTable.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

// Samples of `coarse` that a side of `fine` samples reaches.
std::int32_t reach(std::int32_t fine, std::int32_t coarse) {
    return fine < 2 * std::int64_t{coarse} ? fine / 2 : coarse;
}

// Hands each row of the expansion of `src` to `use(row, y)` in turn, without making the expanded
// image: an even row mixes three rows of `src`, an odd one two.
template <class Use>
void forExpandedRows(const Plane& src, PrimSize size, Use&& use) {
    const std::int32_t srcWidth = reach(size.width, src.width);
    const std::int32_t srcHeight = reach(size.height, src.height);
    const std::vector<std::int16_t> zeros(static_cast<std::size_t>(src.width), 0);
    const auto srcRow = [&](std::int32_t i) {
        return i >= 0 && i < srcHeight ? src.at(0, i) : zeros.data();
    };
    parallelRanges(size.height, [&](std::int32_t begin, std::int32_t end) {
        std::vector<std::int32_t> scratch(3 * (static_cast<std::size_t>(size.width) / 2 + 4));
        std::vector<std::int16_t> expanded(static_cast<std::size_t>(size.width));
        for (std::int32_t y = begin; y < end; ++y) {
            const std::int32_t i = y / 2;
            pyramidKernels->expandRow(srcRow(i - 1), srcRow(i), srcRow(i + 1), srcWidth, y & 1,
                                      scratch.data(), expanded.data(), size.width);
            use(expanded.data(), y);
        }
    });
}

void addExpanded(const Plane& src, Plane& dst) {
    forExpandedRows(src, dst.roi(), [&](const std::int16_t* expanded, std::int32_t y) {
        pyramidKernels->addSaturated(expanded, dst.at(0, y), dst.width);
    });
}

} // namespace

void expand2x(const Plane& src, Plane& dst) {
    forExpandedRows(src, dst.roi(), [&](const std::int16_t* expanded, std::int32_t y) {
        std::copy_n(expanded, dst.width, dst.at(0, y));
    });
}

void reduce2xLap(Plane& src, Plane& dst) {
    const std::int32_t outWidth = reach(src.width, dst.width);
    const std::int32_t outHeight = reach(src.height, dst.height);
    parallelRanges(outHeight, [&](std::int32_t begin, std::int32_t end) {
        std::vector<std::int32_t> scratch(3 * (static_cast<std::size_t>(outWidth) + 2));
        for (std::int32_t i = begin; i < end; ++i) {
            const std::int16_t* rows[5];
            for (std::int32_t r = 0; r < 5; ++r)
                rows[r] = src.at(0, std::clamp(2 * i + r - 2, 0, src.height - 1));
            pyramidKernels->reduceRow(rows, src.width, outWidth, scratch.data(), dst.at(0, i));
        }
    });
    // Against the expansion of what was stored, so that folding back is exact.
    forExpandedRows(dst, src.roi(), [&](const std::int16_t* expanded, std::int32_t y) {
        pyramidKernels->subSaturated(expanded, src.at(0, y), src.width);
    });
}

PyramidLap16s::PyramidLap16s(Plane& plane, std::int32_t depth) : levelCount(-1), levels{} {
    if (depth >= mostLevels)
        return;
    levelCount = depth;
    levels[0] = &plane;
    for (std::int32_t i = 1; i <= depth; ++i) {
        Plane& finer = *levels[i - 1];
        auto& owner = owned_[static_cast<std::size_t>(i)];
        owner = std::make_unique<Plane>(finer.width / 2, finer.height / 2);
        levels[i] = owner.get();
        reduce2xLap(finer, *owner);
    }
}

std::int32_t PyramidLap16s::expandTopInto(Plane& image) const {
    const std::int32_t t = levelCount;
    if (t < 1)
        return 0;
    if (image.width != levels[t - 1]->width || image.height != levels[t - 1]->height)
        return 0;
    expand2x(*levels[t], image);
    return t - 1;
}

std::int32_t PyramidLap16s::foldTop() {
    const std::int32_t t = levelCount;
    if (t < 1)
        return 0;
    addExpanded(*levels[t], *levels[t - 1]);
    owned_[static_cast<std::size_t>(t)].reset();
    levels[t] = nullptr;
    levelCount = t - 1;
    return levelCount;
}

std::int32_t PyramidLap16s::foldLevel(std::int32_t k) {
    if (k < 1 || k >= levelCount)
        return 0;
    addExpanded(*levels[k], *levels[k - 1]);
    for (std::int32_t y = 0; y < levels[k]->height; ++y)
        std::ranges::fill(levels[k]->row(y), 0);
    return levelCount;
}

} // namespace kt7
