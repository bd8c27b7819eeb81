// A progress record that keeps what the library reports.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "include/kt7lib/kt7lib.h"

namespace kt7::test {

struct ProgressLog {
    QxProgress record{0, 0, &ProgressLog::call, this, 0};
    std::vector<std::int32_t> reports;
    std::size_t cancelAt = static_cast<std::size_t>(-1); // index of the report that gets a 0
    std::function<void()> during;                        // runs inside every callback
    bool otherThread = false;                            // a report came from another thread

    ProgressLog() = default;
    ProgressLog(const ProgressLog&) = delete;

    static std::int32_t call(std::int32_t done, std::int32_t total, void* userData) {
        auto& log = *static_cast<ProgressLog*>(userData);
        if (total != 100000 || done != log.record.done)
            log.reports.push_back(-1);
        log.reports.push_back(done);
        log.otherThread |= std::this_thread::get_id() != log.owner_;
        if (log.during)
            log.during();
        return log.reports.size() - 1 == log.cancelAt ? 0 : 1;
    }

  private:
    std::thread::id owner_ = std::this_thread::get_id();
};

} // namespace kt7::test
