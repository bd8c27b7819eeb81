// Parallel loops: the only use of OpenMP. The calling thread is a member of every team.
#pragma once

#include <omp.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>
#include <utility>

#include "qxutils/floatMode.h"

namespace kt7 {

/// Carries the first exception of a parallel region to the thread that opened it: the rest of the
/// region drains without running, and rethrow gives the same exception once all threads have left.
class ExceptionRelay {
  public:
    template <class Body>
    void run(Body&& body) noexcept {
        if (raised_.load(std::memory_order_relaxed))
            return;
        try {
            std::forward<Body>(body)();
        } catch (...) {
            keep(std::current_exception());
        }
    }

    /// True once something was raised.
    bool raised() const noexcept { return raised_.load(std::memory_order_relaxed); }

    void rethrow() {
        if (first_)
            std::rethrow_exception(std::exchange(first_, nullptr));
    }

  private:
    void keep(std::exception_ptr raised) noexcept {
        const std::scoped_lock lock(mutex_);
        if (!first_)
            first_ = std::move(raised);
        raised_.store(true, std::memory_order_relaxed);
    }

    std::atomic<bool> raised_{false};
    std::mutex mutex_;
    std::exception_ptr first_;
};

/// Threads that the next parallel region of this thread may use.
inline std::int32_t maxThreads() noexcept {
    return omp_get_max_threads();
}

/// Sets that number for this thread.
inline void setMaxThreads(std::int32_t threads) noexcept {
    omp_set_num_threads(threads);
}

/// An address inside the OpenMP runtime.
inline const void* runtimeAddress() noexcept {
    return reinterpret_cast<const void*>(&omp_get_max_threads);
}

/// Runs body(i) for i in 0..count-1, split evenly in ascending order (static schedule).
template <class Body>
void parallelRows(std::int32_t count, Body&& body) {
    ExceptionRelay relay;
#pragma omp parallel
    {
        const FloatModeScope floatMode;
#pragma omp for schedule(static)
        for (std::int32_t i = 0; i < count; ++i)
            relay.run([&] { body(i); });
    }
    relay.rethrow();
}

/// Splits 0..count-1 evenly and runs body(begin, end) once on each thread that gets a share; for
/// loops that need scratch of their own.
template <class Body>
void parallelRanges(std::int32_t count, Body&& body) {
    ExceptionRelay relay;
#pragma omp parallel
    {
        const FloatModeScope floatMode;
        const std::int64_t thread = omp_get_thread_num();
        const std::int64_t threads = omp_get_num_threads();
        const auto begin = static_cast<std::int32_t>(count * thread / threads);
        const auto end = static_cast<std::int32_t>(count * (thread + 1) / threads);
        if (begin < end)
            relay.run([&] { body(begin, end); });
    }
    relay.rethrow();
}

/// Runs body(i) for i in 0..count-1, each handed to the next free thread.
template <class Body>
void parallelItems(std::int32_t count, Body&& body) {
    ExceptionRelay relay;
#pragma omp parallel
    {
        const FloatModeScope floatMode;
#pragma omp for schedule(dynamic, 1)
        for (std::int32_t i = 0; i < count; ++i)
            relay.run([&] { body(i); });
    }
    relay.rethrow();
}

/// Runs body(worker) once on each of at most `workers` threads, worker 0 on the calling thread.
/// What work there is, the workers share out among themselves.
template <class Body>
void parallelWorkers(std::int32_t workers, Body&& body) {
    ExceptionRelay relay;
#pragma omp parallel num_threads(workers)
    {
        const FloatModeScope floatMode;
        relay.run([&] { body(static_cast<std::int32_t>(omp_get_thread_num())); });
    }
    relay.rethrow();
}

} // namespace kt7
