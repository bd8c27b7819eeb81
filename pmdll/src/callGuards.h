// What an exported call sets for its time, and how raised codes become results.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <utility>

#include "qxutils/floatMode.h"
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
    // The call that holds the flag stays in the parent of a fork.
    static inline const int forkHandler = pthread_atfork(nullptr, nullptr, [] { busy.clear(); });
    bool held_;
};

/// Calls body() in a place of its own, where the compiler can't move its arithmetic out of a mode.
template <class Body>
[[gnu::noinline]] std::int32_t apart(Body& body) {
    return body();
}

/// Gives body()'s result, worked out in the library's floating-point mode and by a team of at most
/// `threads`: every call that calculates goes through here.
template <class Body>
std::int32_t guarded(std::int32_t threads, Body&& body) {
    const ThreadCap cap(threads);
    const FloatModeScope floatMode;
    return apart(body);
}

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
