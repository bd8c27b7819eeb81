// Parallel loops: the only use of OpenMP, and of threads of our own where a platform is without it.
// The calling thread is a member of every team.
#pragma once

#if defined(_OPENMP)
#include <omp.h>
#else
#include "qxutils/threadTeam.h"
#endif
#include <pthread.h>

#include <algorithm>
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

/// True in a forked child. Of its parent's team it has the runtime's records but not the threads,
/// and a region opened there would wait for them for ever.
inline std::atomic<bool> teamStayedInParent{false};
/// The C library forgets the handler when the library that holds it is unloaded.
inline const int teamForkHandler = pthread_atfork(
    nullptr, nullptr, [] { teamStayedInParent.store(true, std::memory_order_relaxed); });

/// What the process allows on this thread.
inline std::int32_t allowedThreads() noexcept {
#if defined(_OPENMP)
    return omp_get_max_threads();
#else
    return ThreadTeam::allowed;
#endif
}

/// Threads that the next parallel region of this thread may use: as many as the process allows, no
/// more than there are CPUs for them.
inline std::int32_t maxThreads() noexcept {
    if (teamStayedInParent.load(std::memory_order_relaxed))
        return 1;
#if defined(_OPENMP)
    return std::min(allowedThreads(), omp_get_num_procs());
#else
    return std::min(allowedThreads(), ThreadTeam::processors());
#endif
}

/// Sets what the process allows on this thread.
inline void setMaxThreads(std::int32_t threads) noexcept {
#if defined(_OPENMP)
    omp_set_num_threads(threads);
#else
    ThreadTeam::allowed = threads;
#endif
}

/// Caps the team of this thread's parallel regions while it lives. A call whose loops are all
/// shorter than the team caps it once: a team that shrinks and grows within a call would cost the
/// runtime threads, and their memory once they are needed again.
class ThreadCap {
  public:
    explicit ThreadCap(std::int32_t most) noexcept {
        setMaxThreads(std::clamp(most, 1, maxThreads()));
    }
    ~ThreadCap() { setMaxThreads(savedThreads_); }
    ThreadCap(const ThreadCap&) = delete;
    ThreadCap& operator=(const ThreadCap&) = delete;

  private:
    std::int32_t savedThreads_ = allowedThreads();
};

#if defined(_OPENMP)
/// An address inside the OpenMP runtime.
inline const void* runtimeAddress() noexcept {
    return reinterpret_cast<const void*>(&omp_get_max_threads);
}
#endif

/// Runs body(thread, threads, relay) once on every thread of the team, 0 being the caller's, or on
/// the caller alone when there is work for one.
template <class Body>
void onTeam(std::int32_t work, Body&& body) {
    ExceptionRelay relay;
    const auto member = [&](std::int32_t thread, std::int32_t threads) {
        const FloatModeScope floatMode;
        relay.run([&] { body(thread, threads, relay); });
    };
    // The runtime makes a team of one anew for every region, and ends the process when there is no
    // memory for it.
    const std::int32_t team = work > 1 ? maxThreads() : 1;
    if (team == 1) {
        member(0, 1);
    } else {
#if defined(_OPENMP)
#pragma omp parallel num_threads(team)
        member(omp_get_thread_num(), omp_get_num_threads());
#else
        ThreadTeam::run(team, member);
#endif
    }
    relay.rethrow();
}

/// Splits 0..count-1 evenly in ascending order and runs body(begin, end) once on each thread that
/// gets a share; for loops that need scratch of their own.
template <class Body>
void parallelRanges(std::int32_t count, Body&& body) {
    onTeam(count, [&](std::int64_t thread, std::int64_t threads, const ExceptionRelay&) {
        const auto begin = static_cast<std::int32_t>(count * thread / threads);
        const auto end = static_cast<std::int32_t>(count * (thread + 1) / threads);
        if (begin < end)
            body(begin, end);
    });
}

/// Runs body(i) for i in 0..count-1, split in the same way.
template <class Body>
void parallelRows(std::int32_t count, Body&& body) {
    onTeam(count, [&](std::int64_t thread, std::int64_t threads, const ExceptionRelay& relay) {
        const auto end = static_cast<std::int32_t>(count * (thread + 1) / threads);
        for (auto i = static_cast<std::int32_t>(count * thread / threads);
             i < end && !relay.raised(); ++i)
            body(i);
    });
}

/// Runs body(i) for i in 0..count-1, each handed to the next free thread.
template <class Body>
void parallelItems(std::int32_t count, Body&& body) {
    std::atomic<std::int64_t> next{0}; // passes the end once for each thread
    onTeam(count, [&](std::int32_t, std::int32_t, const ExceptionRelay& relay) {
        for (std::int64_t i; (i = next.fetch_add(1, std::memory_order_relaxed)) < count;) {
            if (relay.raised())
                return;
            body(static_cast<std::int32_t>(i));
        }
    });
}

/// Runs body(worker) once on each of at most `workers` threads, worker 0 on the calling thread.
/// What work there is, the workers share out among themselves.
template <class Body>
void parallelWorkers(std::int32_t workers, Body&& body) {
    onTeam(workers, [&](std::int32_t thread, std::int32_t, const ExceptionRelay&) {
        if (thread < workers)
            body(thread);
    });
}

} // namespace kt7
