#include "qxenhlib/LayerTiles.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "prim/tileRows.h"
#include "qxenhlib/ImBMAnn.h"
#include "qxenhlib/ImBMFilter.h"
#include "qxenhlib/ImBMResult.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {
namespace {

constexpr std::int32_t tileSide = 128;
constexpr std::int32_t tileOverlap = 8;
constexpr std::int32_t tileFeather = 2;

// Mean brightness counts a quarter of its share in the squared distance of two blocks.
constexpr float matchDcScale = 0.5f;

} // namespace

// What one thread works with.
struct LayerTiles::Worker {
    Worker(const LayerTiles& tiles)
        : matcher(tiles.denoiser_.numTrees[tiles.layer_], tiles.denoiser_.checks[tiles.layer_],
                  matchDcScale) {
        record.setGeometry(tiles.blocks_.blockWidth, tiles.blocks_.blockHeight,
                           tiles.denoiser_.blockStep[tiles.layer_]);
        filter.init(record, tiles.denoiser_.thresholdTables[tiles.layer_].get(),
                    tiles.denoiser_.boost);
        if (tiles.matchOn_ == MatchOn::guide)
            guide.emplace(tiles.blocks_.blockWidth, tiles.blocks_.blockHeight);
    }

    ImBMAnn matcher;
    ImBMResult record;
    ImBMFilter filter;
    std::optional<GIMG<std::int16_t>> guide; ///< what luma is matched on, if not on its level
};

// A tile on its way: where it lies, when it was handed out, and one float image per plane.
struct LayerTiles::Slot {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t number = 0;
    bool finished = false;
    std::vector<std::unique_ptr<GIMG<float>>> planes;
};

// Hands out tiles and merges them in that order. There are two slots per thread, so a slow tile
// doesn't hold up the others.
class LayerTiles::Conveyor {
  public:
    Conveyor(BlockProcPmPnT& blocks, std::int32_t planes, std::int32_t workers)
        : blocks_(blocks), slots_(2 * static_cast<std::size_t>(workers)) {
        for (Slot& slot : slots_) {
            for (std::int32_t c = 0; c < planes; ++c)
                slot.planes.push_back(
                    std::make_unique<GIMG<float>>(blocks.blockWidth, blocks.blockHeight));
            idle_.push_back(&slot);
        }
    }

    // The next tile, or null when there is none left or the run has been stopped.
    Slot* take() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stopped_ || exhausted_ || !idle_.empty(); });
        if (stopped_ || exhausted_)
            return nullptr;
        Slot* slot = idle_.back();
        if (!blocks_.getABlockLoc(&slot->x, &slot->y)) {
            exhausted_ = true;
            changed_.notify_all();
            return nullptr;
        }
        idle_.pop_back();
        slot->number = handedOut_++;
        slot->finished = false;
        return slot;
    }

    // Takes a filtered tile back and merges all tiles whose turn has come.
    void finish(Slot& slot) {
        const std::scoped_lock lock(mutex_);
        slot.finished = true;
        for (Slot* due = nextToMerge(); due != nullptr; due = nextToMerge()) {
            for (std::size_t c = 0; c < due->planes.size(); ++c)
                blocks_.saveOutBlock(due->x, due->y, static_cast<std::int32_t>(c), *due->planes[c]);
            due->finished = false;
            idle_.push_back(due);
            ++merged_;
        }
        changed_.notify_all();
    }

    void stop() {
        const std::scoped_lock lock(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }

    std::int32_t merged() {
        const std::scoped_lock lock(mutex_);
        return merged_;
    }

    // Blocks until more than `seen` tiles are merged, or none will come any more. Returns false
    // then.
    bool waitBeyond(std::int32_t seen) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] {
            return stopped_ || merged_ > seen || (exhausted_ && merged_ == handedOut_);
        });
        return !stopped_ && merged_ > seen;
    }

  private:
    Slot* nextToMerge() {
        const auto due = std::ranges::find_if(
            slots_, [&](const Slot& slot) { return slot.finished && slot.number == merged_; });
        return due == slots_.end() ? nullptr : &*due;
    }

    BlockProcPmPnT& blocks_;
    std::vector<Slot> slots_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Slot*> idle_;
    std::int32_t handedOut_ = 0;
    std::int32_t merged_ = 0;
    bool exhausted_ = false;
    bool stopped_ = false;
};

LayerTiles::LayerTiles(const Denoise3DCT& denoiser, std::int32_t layer,
                       std::span<GIMG<std::int16_t>* const> levels, MatchOn matchOn)
    : denoiser_(denoiser), layer_(layer), matchOn_(matchOn), levels_(levels.begin(), levels.end()) {
    std::vector<const GIMG<std::int16_t>*> inputs(levels_.begin(), levels_.end());
    std::vector<GIMG<std::int16_t>*> outputs;
    for (const GIMG<std::int16_t>* level : levels_) {
        outputs_.push_back(std::make_unique<GIMG<std::int16_t>>(level->width, level->height));
        outputs.push_back(outputs_.back().get());
    }
    if (blocks_.setup(static_cast<std::int32_t>(inputs.size()), inputs.data(),
                      static_cast<std::int32_t>(outputs.size()), outputs.data(), tileSide, tileSide,
                      tileOverlap, tileFeather) == 0)
        raise(QxBase::QXRC::layerNotReady);
}

LayerTiles::~LayerTiles() = default;

void LayerTiles::filterTile(Worker& worker, Slot& slot) const {
    GIMG<float>& matchTile = *slot.planes[0];
    if (worker.guide) {
        denoiser_.pyramids[0]->sumTopInto(slot.x, slot.y, *worker.guide);
        const GIMG<std::int16_t>* guide = &*worker.guide;
        for (std::int32_t y = 0; y < matchTile.height; ++y)
            loadTileRow(guide->at(0, y), blocks_.inScale, matchTile.at(0, y), matchTile.width);
    } else {
        blocks_.getBlock(slot.x, slot.y, 0, matchTile);
    }
    worker.matcher.proc(matchTile, worker.record);
    for (std::int32_t c = 0; c < static_cast<std::int32_t>(levels_.size()); ++c) {
        GIMG<float>& tile = *slot.planes[static_cast<std::size_t>(c)];
        blocks_.getBlock(slot.x, slot.y, c, tile);
        worker.filter.filterImage(tile, worker.record,
                                  denoiser_.channelGain[c] * denoiser_.layerNoise[layer_]);
    }
}

bool LayerTiles::run(std::int32_t step, std::int32_t tilesPerStep) {
    const std::int32_t workerCount = std::min(maxThreads(), plannedTiles());
    std::vector<std::unique_ptr<Worker>> workers;
    for (std::int32_t i = 0; i < workerCount; ++i)
        workers.push_back(std::make_unique<Worker>(*this));
    Conveyor conveyor(blocks_, static_cast<std::int32_t>(levels_.size()), workerCount);

    // Only the calling thread, worker 0, touches these and speaks to the host.
    std::int32_t reported = 0;
    bool cancelled = false;
    const auto report = [&](std::int32_t steps) {
        while (reported < steps && !cancelled) {
            ++reported;
            cancelled = qxProgressAdvance(denoiser_.progress, step) == 0;
        }
        if (cancelled)
            conveyor.stop();
    };

    parallelWorkers(workerCount, [&](std::int32_t index) {
        try {
            while (Slot* slot = conveyor.take()) {
                filterTile(*workers[static_cast<std::size_t>(index)], *slot);
                conveyor.finish(*slot);
                if (index == 0)
                    report(conveyor.merged() / tilesPerStep);
            }
            if (index != 0)
                return;
            for (std::int32_t seen = conveyor.merged(); conveyor.waitBeyond(seen);) {
                seen = conveyor.merged();
                report(seen / tilesPerStep);
            }
        } catch (...) {
            conveyor.stop();
            throw;
        }
    });
    if (!cancelled)
        report((conveyor.merged() + tilesPerStep - 1) / tilesPerStep);
    return !cancelled;
}

void LayerTiles::store() {
    for (std::size_t c = 0; c < levels_.size(); ++c) {
        GIMG<std::int16_t>& level = *levels_[c];
        const GIMG<std::int16_t>& output = *outputs_[c];
        parallelRows(level.height, [&](std::int32_t y) {
            std::ranges::copy(output.row(y), level.row(y).begin());
        });
        outputs_[c].reset();
    }
}

} // namespace kt7
