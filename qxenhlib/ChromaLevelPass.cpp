#include "qxenhlib/ChromaLevelPass.h"

#include <algorithm>

#include "prim/waveletRows.h"

namespace kt7 {
namespace {

// Lines of a worker, by what they hold: detail rows by plane, tree and kind within a branch, the
// luma gains of both orientations, a row split into even and odd samples, and a row with its rim,
// which takes two lines. The windows stand behind them.
constexpr std::int32_t detailLine = 0;
constexpr std::int32_t gainLine = detailLine + 3 * 4 * 2;
constexpr std::int32_t splitLine = gainLine + 2;
constexpr std::int32_t rowLine = splitLine + 2;
constexpr std::int32_t windowLine = rowLine + 2;

// Samples that the row filters read on each side.
constexpr std::int32_t rowRim = 2 * lineRim;

std::int32_t detailOf(std::int32_t plane, std::int32_t tree, std::int32_t slot) {
    return detailLine + (plane * 4 + tree) * 2 + slot;
}

std::int32_t wrapped(std::int32_t y, std::int32_t period) {
    const std::int32_t rest = y % period;
    return rest < 0 ? rest + period : rest;
}

} // namespace

ChromaLevelPass::ChromaLevelPass(const GIMG<float>* const planes[3], CDTDWT2d* const transforms[3],
                                 std::int32_t level, const LevelGains& gains, bool lumaGoesOn)
    : planes_{planes[0], planes[1], planes[2]}, transforms_{transforms[0], transforms[1],
                                                            transforms[2]},
      level_(level), gains_(gains), bandWidth_(transforms[0]->levelSize(level).width / 2),
      bandHeight_(transforms[0]->levelSize(level).height / 2) {
    const bool coarsest = level == transforms[0]->levels - 1;
    for (std::int32_t tree = 0; tree < 4; ++tree) {
        work_[0][tree] = {lumaGoesOn, gains.byLuma};
        // Gains from luma alone need no chroma magnitude, hence only the pair that holds tree (1,
        // 1).
        const TreeWork chroma{!coarsest || tree == 3, gains.byChroma || tree == 0 || tree == 3};
        work_[1][tree] = work_[2][tree] = chroma;
    }
}

void ChromaLevelPass::start(LevelWorker& worker) const {
    const bool shared = level_ == 0;
    const std::int32_t branches = shared ? 4 : 2;
    const std::int32_t windowLines = RowWindow::rows * branches;
    worker.scratch.ensureScratch(bandWidth_ + 2 * lineRim,
                                 windowLine + 3 * (shared ? 1 : 4) * windowLines);
    std::int32_t first = windowLine;
    for (std::int32_t plane = 0; plane < 3; ++plane)
        for (std::int32_t tree = 0; tree < (shared ? 1 : 4); ++tree, first += windowLines)
            worker.windows[plane][tree].start(
                worker.scratch, first, splitLine,
                analysisTaps.at[shared ? 0 : 1][shared ? 0 : tree / 2][lowPass], branches,
                bandWidth_);
}

void ChromaLevelPass::run(LevelWorker& worker, std::int32_t first, std::int32_t last) const {
    for (std::int32_t n = first; n < last; ++n) {
        filterColumns(worker, lowPass, n);
        shrinkRow(worker, lowHigh, 1, n);
        filterColumns(worker, highPass, n);
        shrinkRow(worker, highLow, 0, n);
        shrinkRow(worker, highHigh, 1, n);
    }
}

const float* ChromaLevelPass::fetchRow(LevelWorker& worker, std::int32_t plane, std::int32_t tree,
                                       std::int32_t y) const {
    const GIMG<float>* source = planes_[plane];
    std::int32_t period = source->fullWidth, rows = source->fullHeight;
    if (level_ > 0) {
        source = transforms_[plane]->band(level_ - 1, tree / 2, tree % 2, lowLow)->image.get();
        period = source->width;
        rows = source->height;
    }
    float* const row = worker.scratch.line(rowLine) + rowRim;
    std::copy_n(source->at(0, wrapped(y, rows)), period, row);
    for (std::int32_t x = -1; x >= -rowRim; --x)
        row[x] = row[x + period];
    for (std::int32_t x = period; x < 2 * bandWidth_ + rowRim; ++x)
        row[x] = row[x - period];
    return row - rowRim;
}

void ChromaLevelPass::filterColumns(LevelWorker& worker, std::int32_t branch,
                                    std::int32_t n) const {
    const bool shared = level_ == 0;
    for (std::int32_t plane = 0; plane < 3; ++plane)
        for (std::int32_t tree = 0; tree < 4; ++tree) {
            const bool low = branch == lowPass && work_[plane][tree].low;
            const bool detail = work_[plane][tree].detail;
            if (!low && !detail)
                continue;
            RowWindow& window = worker.windows[plane][shared ? 0 : tree];
            window.moveTo(n, [&](std::int32_t y) { return fetchRow(worker, plane, tree, y); });
            const std::int32_t a = tree / 2, b = tree % 2;
            const auto& weights = analysisTaps.at[shared ? 0 : 1][b];
            float* dst[2] = {worker.scratch.line(detailOf(plane, tree, 0)),
                             worker.scratch.line(detailOf(plane, tree, 1))};
            if (low)
                dst[0] = transforms_[plane]->band(level_, a, b, lowLow)->at(0, n);
            const bool highOnly = branch == lowPass && !low;
            window.columns(n, shared ? 2 * a + branch : branch, weights[highOnly ? 1 : 0],
                           highOnly ? dst + 1 : dst, detail && !highOnly ? 2 : 1);
        }
}

void ChromaLevelPass::shrinkRow(LevelWorker& worker, SubbandKind kind, std::int32_t slot,
                                std::int32_t n) const {
    const float* trees[3][4];
    for (std::int32_t plane = 0; plane < 3; ++plane)
        for (std::int32_t tree = 0; tree < 4; ++tree)
            trees[plane][tree] = worker.scratch.line(detailOf(plane, tree, slot));
    float* const gain[2] = {worker.scratch.line(gainLine), worker.scratch.line(gainLine + 1)};
    if (gains_.byLuma)
        gainRows(trees[0], gains_.threshold[0], gains_.slope[0], gain[0], gain[1], bandWidth_);
    for (std::int32_t plane = 1; plane < 3; ++plane) {
        float* const dst = transforms_[plane]->band(level_, 1, 1, kind)->at(0, n);
        const float threshold = gains_.threshold[plane], slope = gains_.slope[plane];
        if (!gains_.byChroma)
            shrinkByGuide(trees[plane], gain[0], gain[1], gains_.cap, dst, bandWidth_);
        else if (!gains_.byLuma)
            shrinkByOwn(trees[plane], threshold, slope, gains_.cap, dst, bandWidth_);
        else
            shrinkByBoth(trees[plane], threshold, slope, gain[0], gain[1], gains_.cap, dst,
                         bandWidth_);
    }
}

} // namespace kt7
