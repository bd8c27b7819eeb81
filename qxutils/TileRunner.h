// Runs a stage over all tiles of a block processor: the one tile loop of the library.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "qxutils/BlockProcPmPnT.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// A tile on its way: where it lies, and one float image for each output of the processor.
struct TileSlot {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::vector<std::unique_ptr<GIMG<float>>> planes;

  private:
    friend class TileConveyor;
    std::int32_t number = 0; // when it was handed out
    bool finished = false;
};

/// Hands tiles out in row order and merges them in that order, so that seams don't depend on
/// timing. With several workers there are two slots for each, so a slow tile doesn't hold up the
/// others.
class TileConveyor {
  public:
    /// Raises noBufferStorage.
    TileConveyor(BlockProcPmPnT& blocks, std::int32_t workers);

    /// The next tile, or null when there is none left or the run has been stopped.
    TileSlot* take();

    /// Takes a finished tile back and merges all tiles whose turn has come.
    void finish(TileSlot& slot);

    void stop();

    std::int32_t merged();

    /// Blocks until more than `seen` tiles are merged, or none will come any more. Returns false
    /// then.
    bool waitBeyond(std::int32_t seen);

  private:
    TileSlot* nextToMerge();

    BlockProcPmPnT& blocks_;
    std::vector<TileSlot> slots_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<TileSlot*> idle_;
    std::int32_t handedOut_ = 0;
    std::int32_t merged_ = 0;
    bool exhausted_ = false;
    bool stopped_ = false;
};

/// Runs all tiles of `blocks`, which has been set up, on at most `workers` threads and returns true,
/// or false once `goesOn` has given false. Tiles being worked on at that moment are given up.
///
/// worker(i): what thread i works with, made on that thread and kept for all its tiles. work(worker,
/// slot): leaves the results in slot.planes. goesOn(merged): called by the calling thread alone,
/// as tiles are merged, with their number so far and at last with that of all. What any of them raises ends
/// the run and is raised here.
///
/// With one worker no parallel region is opened: `work` may then open its own.
template <class MakeWorker, class Work, class GoesOn>
bool runTiles(BlockProcPmPnT& blocks, std::int32_t workers, MakeWorker&& worker, Work&& work,
              GoesOn&& goesOn) {
    TileConveyor conveyor(blocks, workers);
    bool completed = true; // this and the next of the calling thread, worker 0
    std::int32_t reported = 0;
    const auto report = [&] {
        reported = conveyor.merged();
        completed = goesOn(reported);
        if (!completed)
            conveyor.stop();
    };
    parallelWorkers(workers, [&](std::int32_t index) {
        try {
            decltype(auto) mine = worker(index);
            while (TileSlot* slot = conveyor.take()) {
                work(mine, *slot);
                conveyor.finish(*slot);
                if (index == 0)
                    report();
            }
            while (index == 0 && conveyor.waitBeyond(reported))
                report();
        } catch (...) {
            conveyor.stop();
            throw;
        }
    });
    return completed;
}

/// For stages that neither report progress nor can be cancelled.
template <class MakeWorker, class Work>
void runTiles(BlockProcPmPnT& blocks, std::int32_t workers, MakeWorker&& worker, Work&& work) {
    runTiles(blocks, workers, worker, work, [](std::int32_t) { return true; });
}

} // namespace kt7
