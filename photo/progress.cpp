#include "photo/progress.h"

#include <algorithm>

#include "photo/failure.h"

namespace kt7::photo {
namespace {

thread_local bool inside = false;

} // namespace

bool Progress::insideCallback() noexcept {
    return inside;
}

bool Progress::goesOn(double done) noexcept {
    if (ended_ != kt7PhotoDone)
        return false;
    last_ = std::max(last_, from_ + (to_ - from_) * std::clamp(done, 0.0, 1.0));
    if (callback_ == nullptr)
        return true;
    inside = true;
    try {
        if (callback_(last_, userData_) == 0)
            ended_ = kt7PhotoCancelled;
    } catch (...) {
        ended_ = kt7PhotoFailed;
    }
    inside = false;
    return ended_ == kt7PhotoDone;
}

void Progress::report(double done) {
    if (!goesOn(done))
        fail(ended_);
}

} // namespace kt7::photo
