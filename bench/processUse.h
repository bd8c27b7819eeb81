// What the process has used so far.
#pragma once

#include <sys/resource.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace kt7::bench {

inline double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// A field of /proc/self/status in bytes, such as "VmRSS:".
inline std::int64_t memory(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field))
            return std::stoll(line.substr(field.size())) * 1024;
    return 0;
}

/// Peak resident memory since the last reset.
inline std::int64_t peakMemory() {
    return memory("VmHWM:");
}
inline void resetPeakMemory() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

} // namespace kt7::bench
