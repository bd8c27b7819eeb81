// Counts requests for memory and makes them fail, for the whole process and everything it is linked
// with: malloc and its family, operator new, mapped memory.
#pragma once

#include <cstdint>

namespace kt7::test {

/// False where the allocator can't be replaced (under the thread sanitizer).
bool canFailAllocations();

/// From one refused request to the next, for tests that refuse each in turn: every one, but
/// instrumented calls take ten times as long.
#if defined(KT7_SANITIZED)
inline constexpr std::int64_t requestStep = 7;
#else
inline constexpr std::int64_t requestStep = 1;
#endif

/// While it lives, request number `first` fails (0 is the next one), and with `forever` all after
/// it.
class FailAllocations {
  public:
    FailAllocations(std::int64_t first, bool forever);
    ~FailAllocations();
    FailAllocations(const FailAllocations&) = delete;
    FailAllocations& operator=(const FailAllocations&) = delete;

    /// Requests seen so far.
    static std::int64_t requests();
    /// Blocks taken since it began to live, less those given back.
    static std::int64_t blocksHeld();
};

} // namespace kt7::test
