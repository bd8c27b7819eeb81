#include "photo/wienerStage.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "photo/wienerTile.h"
#include "qxutils/parallel.h"

namespace kt7::photo {
namespace {

// Enough tiles between two merges to keep the threads busy, and few enough to hold in memory.
constexpr std::int32_t tilesPerBatch = 32;

/// Sums of weighted samples and of weights, for a few rows of the whole picture.
class RowSums {
  public:
    // From the first row that a batch adds to and does not finish to the last.
    static constexpr std::int32_t mostRows = 2 * mostReach + blockSide - cellSide;

    RowSums(std::int32_t planes, std::int32_t width)
        : width_(width),
          sums_(static_cast<std::size_t>(2 * planes * mostRows) * static_cast<std::size_t>(width)) {
    }

    float* weighted(std::int32_t plane, std::int32_t row) { return at(2 * plane, row); }
    float* weights(std::int32_t plane, std::int32_t row) { return at(2 * plane + 1, row); }

    std::int32_t begin = 0, end = 0; ///< rows of the picture that it holds

  private:
    float* at(std::int32_t kind, std::int32_t row) {
        return &sums_[static_cast<std::size_t>(kind * mostRows + row - begin) *
                      static_cast<std::size_t>(width_)];
    }
    std::int32_t width_;
    std::vector<float> sums_;
};

class Stage {
  public:
    Stage(const Planes& noisy, Planes& pilot, const StageNoise& noise, Progress& progress)
        : noisy_(noisy), pilot_(pilot), noise_(noise), progress_(progress),
          columns_((pilot.width - blockSide) / cellSide + 1),
          rows_((pilot.height - blockSide) / cellSide + 1),
          tilesAcross_((columns_ + tileColumns - 1) / tileColumns),
          bands_((rows_ + tileRows - 1) / tileRows),
          bandsPerBatch_(std::min(bands_, (tilesPerBatch + tilesAcross_ - 1) / tilesAcross_)),
          held_(pilot.count, pilot.width), next_(pilot.count, pilot.width) {
        const std::int32_t workers = std::min(maxThreads(), tilesAcross_ * bandsPerBatch_);
        for (std::int32_t i = 0; i < workers; ++i)
            filters_.push_back(std::make_unique<TileFilter>());
        for (std::int32_t i = 0; i < tilesAcross_ * bandsPerBatch_; ++i)
            tiles_.emplace_back(pilot.count);
    }

    void run() {
        for (std::int32_t band = 0; band < bands_; band += bandsPerBatch_) {
            const std::int32_t end = std::min(band + bandsPerBatch_, bands_);
            filterTiles(band, end);
            progress_.report(static_cast<double>(end) / bands_);
            merge(band, end);
        }
    }

  private:
    TileFrame frameOf(std::int32_t band, std::int32_t across) const {
        const std::int32_t row = band * tileRows, column = across * tileColumns;
        return {column * cellSide, row * cellSide, std::min(tileColumns, columns_ - column),
                std::min(tileRows, rows_ - row)};
    }

    void filterTiles(std::int32_t firstBand, std::int32_t endBand) {
        const std::int32_t count = (endBand - firstBand) * tilesAcross_;
        std::atomic<std::int32_t> nextTile{0};
        std::atomic<bool> ended{false};
        parallelWorkers(static_cast<std::int32_t>(filters_.size()), [&](std::int32_t worker) {
            for (std::int32_t i; (i = nextTile.fetch_add(1, std::memory_order_relaxed)) < count;) {
                if (ended.load(std::memory_order_relaxed))
                    return;
                TileSums& tile = tiles_[static_cast<std::size_t>(i)];
                tile.frame = frameOf(firstBand + i / tilesAcross_, i % tilesAcross_);
                filters_[static_cast<std::size_t>(worker)]->run(noisy_, pilot_, noise_, tile);
                const double done = firstBand + static_cast<double>(i) / tilesAcross_;
                if (worker == 0 &&
                    !progress_.goesOn(done / bands_)) // worker 0 is the caller's thread
                    ended.store(true, std::memory_order_relaxed);
            }
        });
    }

    /// Finishes the rows that no later tile adds to. No later tile reads them either, so the result
    /// takes the pilot's place.
    void merge(std::int32_t firstBand, std::int32_t endBand) {
        const bool last = endBand == bands_;
        const std::int32_t nextReference = endBand * tileRows * cellSide;
        const std::int32_t finished = last ? pilot_.height : nextReference - mostReach;
        next_.begin = finished;
        next_.end = last
                        ? finished
                        : std::min(pilot_.height, nextReference - cellSide + mostReach + blockSide);
        const std::int32_t begin = held_.begin;
        parallelRanges(next_.end - begin, [&](std::int32_t from, std::int32_t to) {
            std::vector<float> sums(2 * static_cast<std::size_t>(pilot_.width));
            for (std::int32_t y = begin + from; y < begin + to; ++y)
                for (std::int32_t plane = 0; plane < pilot_.count; ++plane)
                    mergeRow(y, plane, firstBand, endBand, sums);
        });
        std::swap(held_, next_);
    }

    void mergeRow(std::int32_t y, std::int32_t plane, std::int32_t firstBand, std::int32_t endBand,
                  std::vector<float>& sums) {
        const bool finished = y < next_.begin;
        float* weighted = finished ? sums.data() : next_.weighted(plane, y);
        float* weights = finished ? sums.data() + pilot_.width : next_.weights(plane, y);
        if (y < held_.end) {
            std::copy_n(held_.weighted(plane, y), pilot_.width, weighted);
            std::copy_n(held_.weights(plane, y), pilot_.width, weights);
        } else {
            std::fill_n(weighted, pilot_.width, 0.0f);
            std::fill_n(weights, pilot_.width, 0.0f);
        }
        for (std::int32_t i = 0; i < (endBand - firstBand) * tilesAcross_; ++i) {
            TileSums& tile = tiles_[static_cast<std::size_t>(i)];
            const std::int32_t row = y - tile.frame.above();
            if (row < 0 || row >= sampleRows)
                continue;
            const std::int32_t left = tile.frame.left();
            const std::int32_t end = std::min(sampleColumns, pilot_.width - left);
            const float *samples = tile.weighted(plane, row), *shares = tile.weights(plane, row);
            for (std::int32_t x = std::max(0, -left); x < end; ++x) {
                weighted[left + x] += samples[x];
                weights[left + x] += shares[x];
            }
        }
        if (finished) {
            float* to = pilot_.row(plane, y);
            for (std::int32_t x = 0; x < pilot_.width; ++x)
                to[x] = weighted[x] / weights[x];
        }
    }

    const Planes& noisy_;
    Planes& pilot_;
    const StageNoise& noise_;
    Progress& progress_;
    std::int32_t columns_, rows_; // of references
    std::int32_t tilesAcross_, bands_, bandsPerBatch_;
    std::vector<std::unique_ptr<TileFilter>> filters_;
    std::vector<TileSums> tiles_;
    RowSums held_, next_; // rows that earlier tiles added to, and those that this batch leaves
};

} // namespace

void wienerStage(const Planes& noisy, Planes& pilot, const StageNoise& noise, Progress& progress) {
    Stage(noisy, pilot, noise, progress).run();
}

} // namespace kt7::photo
