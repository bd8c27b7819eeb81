// What an exported call sets for its time, and how raised codes become results.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <utility>

#include "qxutils/parallel.h"

namespace kt7 {

/// Holds the process-wide busy flag if it was free; one denoise call runs at a time.
class BusyGuard {
  public:
    BusyGuard() noexcept : held_(!busy.test_and_set(std::memory_order_acquire)) {}
    ~BusyGuard() {
        if (held_)
            busy.clear(std::memory_order_release);
    }
    BusyGuard(const BusyGuard&) = delete;
    BusyGuard& operator=(const BusyGuard&) = delete;

    /// False when another call holds the flag.
    bool held() const noexcept { return held_; }

  private:
    static inline std::atomic_flag busy;
    bool held_;
};

/// Caps the team of this thread's parallel regions while it lives.
class ThreadCap {
  public:
    explicit ThreadCap(std::int32_t most) noexcept : savedThreads_(maxThreads()) {
        setMaxThreads(std::min(most, savedThreads_));
    }
    ~ThreadCap() { setMaxThreads(savedThreads_); }
    ThreadCap(const ThreadCap&) = delete;
    ThreadCap& operator=(const ThreadCap&) = delete;

  private:
    std::int32_t savedThreads_;
};

/// Runs body() and gives its result, or what ifInt(e) makes of a raised int e, or what ifOther()
/// makes of anything else.
template <class Body, class IfInt, class IfOther>
std::int32_t resultOf(Body&& body, IfInt&& ifInt, IfOther&& ifOther) {
    try {
        return std::forward<Body>(body)();
    } catch (int code) {
        return std::forward<IfInt>(ifInt)(code);
    } catch (...) {
        return std::forward<IfOther>(ifOther)();
    }
}

} // namespace kt7
