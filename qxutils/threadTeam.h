// A team of threads for platforms without OpenMP; included by parallel.h alone.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace kt7 {

/// The process's helpers. They are started when a region first wants them and then wait for the next
/// one until the process ends; the thread that opens a region is member 0.
class ThreadTeam {
  public:
    /// What the process allows the regions of this thread.
    static inline thread_local std::int32_t allowed = 4;

    /// One where the platform has no threads.
    static std::int32_t processors() noexcept {
#if defined(__EMSCRIPTEN__) && !defined(__EMSCRIPTEN_PTHREADS__)
        return 1;
#else
        return static_cast<std::int32_t>(std::max(1u, std::thread::hardware_concurrency()));
#endif
    }

    /// Runs member(i, count), which must not throw, on up to `team` threads, count being how many
    /// there are, and returns when all have left. While another region runs, inside of it too, the
    /// caller is alone.
    template <class Member>
    static void run(std::int32_t team, const Member& member) {
        ThreadTeam& shared = instance();
        if (shared.open_.exchange(true, std::memory_order_acquire)) {
            member(0, 1);
            return;
        }
        const std::int32_t count = shared.start(team - 1) + 1;
        if (count > 1)
            shared.begin({&call<Member>, &member, count});
        member(0, count);
        if (count > 1)
            shared.waitForAll();
        shared.open_.store(false, std::memory_order_release);
    }

  private:
    struct Task {
        void (*call)(const void* member, std::int32_t thread, std::int32_t threads);
        const void* member;
        std::int32_t threads;
    };

    template <class Member>
    static void call(const void* member, std::int32_t thread, std::int32_t threads) {
        (*static_cast<const Member*>(member))(thread, threads);
    }

    /// Never destroyed, as its helpers wait on it.
    static ThreadTeam& instance() {
        static ThreadTeam& team = *new ThreadTeam;
        return team;
    }

    /// How many helpers of those wanted there are.
    std::int32_t start(std::int32_t wanted) noexcept {
        try {
            while (helpers_ < wanted) {
                std::thread(&ThreadTeam::help, this, helpers_ + 1, round_).detach();
                ++helpers_;
            }
        } catch (const std::exception&) { // the system has no more
        }
        return std::min(helpers_, wanted);
    }

    void begin(const Task& task) {
        const std::scoped_lock lock(mutex_);
        task_ = task;
        running_ = task.threads - 1;
        ++round_;
        changed_.notify_all();
    }

    void waitForAll() {
        std::unique_lock lock(mutex_);
        finished_.wait(lock, [&] { return running_ == 0; });
    }

    void help(std::int32_t thread, std::uint64_t seen) {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [&] { return round_ != seen; });
            seen = round_;
            if (thread >= task_.threads)
                continue;
            const Task task = task_;
            lock.unlock();
            task.call(task.member, thread, task.threads);
            lock.lock();
            if (--running_ == 0)
                finished_.notify_one();
        }
    }

    // A region is open. No mutex: the thread that opened it may ask again, from inside.
    std::atomic<bool> open_{false};
    std::mutex mutex_; // over what follows, but helpers_ belongs to the region
    std::condition_variable changed_, finished_;
    Task task_{};
    std::uint64_t round_ = 0;
    std::int32_t running_ = 0;
    std::int32_t helpers_ = 0;
};

} // namespace kt7
