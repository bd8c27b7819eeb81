#include "qxenhlib/PyramidLap16s.h"

#include <algorithm>
#include <vector>

#include "prim/arith.h"
#include "prim/pyramidRows.h"
#include "prim/set.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

// Samples of `coarse` that a side of `fine` samples reaches.
std::int32_t reach(std::int32_t fine, std::int32_t coarse) {
    return fine < 2 * std::int64_t{coarse} ? fine / 2 : coarse;
}

// Rows of the expansion of `src` to `size`, from column `left` on, without making the expanded
// image: an even row mixes three rows of `src`, an odd one two. One thread uses an object at a
// time.
class ExpandedRows {
  public:
    ExpandedRows(const Plane& src, PrimSize size, std::int32_t left, std::int32_t width)
        : src_(src), srcHeight_(reach(size.height, src.height)),
          // One column of `src` further left, whose own two samples are dropped for want of theirs.
          firstColumn_(std::max(0, left / 2 - 1)), dropped_(left - 2 * firstColumn_),
          srcWidth_(reach(size.width, src.width) - firstColumn_), width_(width + dropped_),
          zeros_(static_cast<std::size_t>(std::max(srcWidth_, 1)), 0),
          scratch_(3 * (static_cast<std::size_t>(width_) / 2 + 4)),
          expanded_(static_cast<std::size_t>(width_)) {}

    const std::int16_t* row(std::int32_t y) {
        const std::int32_t i = y / 2;
        expandPyramidRow(srcRow(i - 1), srcRow(i), srcRow(i + 1), srcWidth_, y & 1, scratch_.data(),
                         expanded_.data(), width_);
        return expanded_.data() + dropped_;
    }

  private:
    const std::int16_t* srcRow(std::int32_t i) const {
        return i >= 0 && i < srcHeight_ ? src_.at(firstColumn_, i) : zeros_.data();
    }

    const Plane& src_;
    std::int32_t srcHeight_;
    std::int32_t firstColumn_;
    std::int32_t dropped_;
    std::int32_t srcWidth_;
    std::int32_t width_;
    std::vector<std::int16_t> zeros_;
    std::vector<std::int32_t> scratch_;
    std::vector<std::int16_t> expanded_;
};

template <class Use>
void forExpandedRows(const Plane& src, PrimSize size, Use&& use) {
    parallelRanges(size.height, [&](std::int32_t begin, std::int32_t end) {
        ExpandedRows rows(src, size, 0, size.width);
        for (std::int32_t y = begin; y < end; ++y)
            use(rows.row(y), y);
    });
}

void addExpanded(const Plane& src, Plane& dst) {
    forExpandedRows(src, dst.roi(), [&](const std::int16_t* expanded, std::int32_t y) {
        primAdd16sC1I(expanded, 0, dst.at(0, y), 0, {dst.width, 1}, 0);
    });
}

} // namespace

void reduce2xLap(Plane& src, Plane& dst) {
    const std::int32_t outWidth = reach(src.width, dst.width);
    const std::int32_t outHeight = reach(src.height, dst.height);
    parallelRanges(outHeight, [&](std::int32_t begin, std::int32_t end) {
        std::vector<std::int32_t> scratch(3 * (static_cast<std::size_t>(outWidth) + 2));
        for (std::int32_t i = begin; i < end; ++i) {
            const std::int16_t* rows[5];
            for (std::int32_t r = 0; r < 5; ++r)
                rows[r] = src.at(0, std::clamp(2 * i + r - 2, 0, src.height - 1));
            reducePyramidRow(rows, src.width, outWidth, scratch.data(), dst.at(0, i));
        }
    });
    // Against the expansion of what was stored, so that folding back is exact.
    forExpandedRows(dst, src.roi(), [&](const std::int16_t* expanded, std::int32_t y) {
        primSub16sC1I(expanded, 0, src.at(0, y), 0, {src.width, 1}, 0);
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

void PyramidLap16s::sumTopInto(std::int32_t x, std::int32_t y, Plane& tile) const {
    const Plane& level = *levels[levelCount - 1];
    ExpandedRows rows(*levels[levelCount], level.roi(), x, tile.width);
    for (std::int32_t row = 0; row < tile.height; ++row) {
        std::copy_n(rows.row(y + row), tile.width, tile.at(0, row));
        primAdd16sC1I(level.at(x, y + row), 0, tile.at(0, row), 0, {tile.width, 1}, 0);
    }
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
    primSet16sC1(0, levels[k]->data, levels[k]->stepBytes, levels[k]->roi());
    return levelCount;
}

} // namespace kt7
