#include "qxenhlib/LayerTiles.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "prim/copy.h"
#include "prim/tileRows.h"
#include "qxenhlib/ImBMAnn.h"
#include "qxenhlib/ImBMFilter.h"
#include "qxenhlib/ImBMResult.h"
#include "qxutils/TileRunner.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {

// What one thread works with.
struct LayerTiles::Worker {
    Worker(const LayerJob& job, const BlockProcPmPnT& blocks)
        : matcher(job.search.trees, job.search.checks, ImBMAnn::usualDcScale) {
        record.setGeometry(blocks.blockWidth, blocks.blockHeight, job.search.gridStep);
        filter.init(record, job.thresholds, job.boost);
        if (job.guide != nullptr)
            guide.emplace(blocks.blockWidth, blocks.blockHeight);
    }

    ImBMAnn matcher;
    ImBMResult record;
    ImBMFilter filter;
    std::optional<GIMG<std::int16_t>> guide;
};

LayerTiles::LayerTiles(LayerJob job, std::span<GIMG<std::int16_t>* const> levels)
    : job_(std::move(job)), levels_(levels.begin(), levels.end()) {
    std::vector<GIMG<std::int16_t>*> outputs;
    for (const GIMG<std::int16_t>* level : levels_) {
        outputs_.push_back(std::make_unique<GIMG<std::int16_t>>(level->width, level->height));
        outputs.push_back(outputs_.back().get());
    }
    if (!blocks_.setup(levels_, outputs, layerTiles))
        raise(QxBase::QXRC::layerNotReady);
}

void LayerTiles::filterTile(Worker& worker, const TileSlot& slot) const {
    GIMG<float>& matchTile = *slot.planes[0];
    if (worker.guide) {
        job_.guide->sumTopInto(slot.x, slot.y, *worker.guide);
        const GIMG<std::int16_t>& guide = *worker.guide;
        for (std::int32_t y = 0; y < matchTile.height; ++y)
            loadTileRow(guide.at(0, y), blocks_.inScale, matchTile.at(0, y), matchTile.width);
    } else {
        blocks_.getBlock(slot.x, slot.y, 0, matchTile);
    }
    worker.matcher.proc(matchTile, worker.record);
    for (std::size_t c = 0; c < slot.planes.size(); ++c) {
        blocks_.getBlock(slot.x, slot.y, static_cast<std::int32_t>(c), *slot.planes[c]);
        worker.filter.filterImage(*slot.planes[c], worker.record, job_.scales[c]);
    }
}

bool LayerTiles::run(QxProgress* progress, std::int32_t step, std::int32_t tilesPerStep) {
    const std::int32_t workerCount = std::min(maxThreads(), plannedTiles());
    // Made by the calling thread, whose memory the next layer finds free again.
    std::vector<std::unique_ptr<Worker>> workers;
    for (std::int32_t i = 0; i < workerCount; ++i)
        workers.push_back(std::make_unique<Worker>(job_, blocks_));

    std::int32_t reported = 0, merged = 0;
    const auto report = [&](std::int32_t steps) {
        for (; reported < steps; ++reported)
            if (qxProgressAdvance(progress, step) == 0)
                return false;
        return true;
    };
    return runTiles(
               blocks_, workerCount,
               [&](std::int32_t i) -> Worker& { return *workers[static_cast<std::size_t>(i)]; },
               [&](Worker& worker, TileSlot& slot) { filterTile(worker, slot); },
               [&](std::int32_t tiles) {
                   merged = tiles;
                   return report(tiles / tilesPerStep);
               }) &&
           report((merged + tilesPerStep - 1) / tilesPerStep);
}

void LayerTiles::store() {
    for (std::size_t c = 0; c < levels_.size(); ++c) {
        GIMG<std::int16_t>& level = *levels_[c];
        const GIMG<std::int16_t>& output = *outputs_[c];
        parallelRows(level.height, [&](std::int32_t y) {
            primCopy16sC1(output.at(0, y), output.stepBytes, level.at(0, y), level.stepBytes,
                          {level.width, 1});
        });
        outputs_[c].reset();
    }
}

} // namespace kt7
