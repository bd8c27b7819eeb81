// Counts requests for memory and makes them fail, for the whole process and everything it is linked
// with: malloc and its family, operator new, mapped memory.
#pragma once

#include <cstdint>

namespace kt7::test {

/// False where the allocator can't be replaced (under the thread sanitizer).
bool canFailAllocations();

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
