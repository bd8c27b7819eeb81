#include "tests/support/failingAllocator.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <limits>

namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
std::atomic<std::int64_t> seen{0};
std::atomic<std::int64_t> firstToFail{never};
std::atomic<std::int64_t> lastToFail{never};

} // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {

bool fails() {
    const std::int64_t first = firstToFail.load(std::memory_order_relaxed);
    if (first == never)
        return false;
    const std::int64_t request = seen.fetch_add(1, std::memory_order_relaxed);
    if (request < first || request > lastToFail.load(std::memory_order_relaxed))
        return false;
    errno = ENOMEM;
    return true;
}

} // namespace

// Definitions in the executable stand before those of the C library, for shared objects too.
extern "C" {

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(block, size);
}
__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment,
                                                           std::size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}
__attribute__((visibility("default"))) int posix_memalign(void** block, std::size_t alignment,
                                                          std::size_t size) {
    void* fresh = fails() ? nullptr : __libc_memalign(alignment, size);
    if (fresh == nullptr)
        return ENOMEM;
    *block = fresh;
    return 0;
}
}

bool kt7::test::canFailAllocations() {
    return true;
}

#else

bool kt7::test::canFailAllocations() {
    return false;
}

#endif

namespace kt7::test {

FailAllocations::FailAllocations(std::int64_t first, bool forever) {
    seen = 0;
    lastToFail = forever ? never : first;
    firstToFail = first;
}

FailAllocations::~FailAllocations() {
    firstToFail = never;
}

std::int64_t FailAllocations::requests() {
    return seen;
}

} // namespace kt7::test
