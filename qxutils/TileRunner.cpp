#include "qxutils/TileRunner.h"

#include <algorithm>

namespace kt7 {

TileConveyor::TileConveyor(BlockProcPmPnT& blocks, std::int32_t workers)
    : blocks_(blocks), slots_(workers > 1 ? 2 * static_cast<std::size_t>(workers) : 1) {
    for (TileSlot& slot : slots_) {
        for (std::int32_t c = 0; c < blocks.outputCount; ++c)
            slot.planes.push_back(
                std::make_unique<GIMG<float>>(blocks.blockWidth, blocks.blockHeight));
        idle_.push_back(&slot);
    }
}

TileSlot* TileConveyor::take() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return stopped_ || exhausted_ || !idle_.empty(); });
    if (stopped_ || exhausted_)
        return nullptr;
    TileSlot* slot = idle_.back();
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

void TileConveyor::finish(TileSlot& slot) {
    const std::scoped_lock lock(mutex_);
    slot.finished = true;
    for (TileSlot* due = nextToMerge(); due != nullptr; due = nextToMerge()) {
        for (std::size_t c = 0; c < due->planes.size(); ++c)
            blocks_.saveOutBlock(due->x, due->y, static_cast<std::int32_t>(c), *due->planes[c]);
        due->finished = false;
        idle_.push_back(due);
        ++merged_;
    }
    changed_.notify_all();
}

void TileConveyor::stop() {
    const std::scoped_lock lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

std::int32_t TileConveyor::merged() {
    const std::scoped_lock lock(mutex_);
    return merged_;
}

bool TileConveyor::waitBeyond(std::int32_t seen) {
    std::unique_lock lock(mutex_);
    changed_.wait(
        lock, [&] { return stopped_ || merged_ > seen || (exhausted_ && merged_ == handedOut_); });
    return !stopped_ && merged_ > seen;
}

TileSlot* TileConveyor::nextToMerge() {
    const auto due = std::ranges::find_if(
        slots_, [&](const TileSlot& slot) { return slot.finished && slot.number == merged_; });
    return due == slots_.end() ? nullptr : &*due;
}

} // namespace kt7
