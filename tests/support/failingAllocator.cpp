#include "tests/support/failingAllocator.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kt7::test {
namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
std::atomic<std::int64_t> seen{0};
std::atomic<std::int64_t> held{0};
std::atomic<std::int64_t> firstToFail{never};
std::atomic<std::int64_t> lastToFail{never};

} // namespace

FailAllocations::FailAllocations(std::int64_t first, bool forever) {
    seen = 0;
    held = 0;
    lastToFail = forever ? never : first;
    firstToFail = first;
}

FailAllocations::~FailAllocations() {
    firstToFail = never;
}

std::int64_t FailAllocations::requests() {
    return seen;
}

std::int64_t FailAllocations::blocksHeld() {
    return held;
}

#if defined(KT7_SANITIZED) && !defined(KT7_SANITIZED_ADDRESS)
#define KT7_OWN_ALLOCATOR 0
#else
#define KT7_OWN_ALLOCATOR 1
#define KT7_SHOWN __attribute__((visibility("default")))
#endif

bool canFailAllocations() {
    return KT7_OWN_ALLOCATOR;
}

} // namespace kt7::test

#if KT7_OWN_ALLOCATOR

// Definitions in the executable stand before those of the C library, the C++ library and the
// address sanitizer, for shared objects too. Behind them the sanitizer still watches every block.
#if defined(KT7_SANITIZED_ADDRESS)
#define KT7_NEXT(name) __interceptor_##name
#else
#define KT7_NEXT(name) __libc_##name
#endif

extern "C" {
void* KT7_NEXT(malloc)(std::size_t);
void* KT7_NEXT(calloc)(std::size_t, std::size_t);
void* KT7_NEXT(realloc)(void*, std::size_t);
void* KT7_NEXT(memalign)(std::size_t, std::size_t);
void KT7_NEXT(free)(void*);

#if defined(KT7_SANITIZED_ADDRESS)
// The leak checker leaves out what the dynamic linker asks for itself, but sees us ask.
KT7_SHOWN const char* __lsan_default_suppressions() {
    return "leak:ld-linux";
}
#endif
}

namespace {

/// The block that take() gets, or null when this request is one that fails.
template <class Take>
void* request(Take take) {
    using namespace kt7::test;
    const std::int64_t number = seen.fetch_add(1, std::memory_order_relaxed);
    void* block = nullptr;
    if (number < firstToFail.load(std::memory_order_relaxed) ||
        number > lastToFail.load(std::memory_order_relaxed))
        block = take();
    if (block == nullptr)
        errno = ENOMEM;
    else
        held.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void release(void* block) {
    if (block != nullptr)
        kt7::test::held.fetch_sub(1, std::memory_order_relaxed);
    KT7_NEXT(free)(block);
}

void* requestOrThrow(std::size_t size) {
    void* block = std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

} // namespace

extern "C" {

KT7_SHOWN void* malloc(std::size_t size) {
    return request([=] { return KT7_NEXT(malloc)(size); });
}
KT7_SHOWN void* calloc(std::size_t count, std::size_t size) {
    return request([=] { return KT7_NEXT(calloc)(count, size); });
}
KT7_SHOWN void* realloc(void* block, std::size_t size) {
    void* moved = request([=] { return KT7_NEXT(realloc)(block, size); });
    if (block != nullptr && (moved != nullptr || size == 0)) // the old block is gone
        kt7::test::held.fetch_sub(1, std::memory_order_relaxed);
    return moved;
}
KT7_SHOWN void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return request([=] { return KT7_NEXT(memalign)(alignment, size); });
}
KT7_SHOWN int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    void* fresh = request([=] { return KT7_NEXT(memalign)(alignment, size); });
    if (fresh == nullptr)
        return ENOMEM;
    *block = fresh;
    return 0;
}
KT7_SHOWN void free(void* block) {
    release(block);
}

#if !defined(KT7_SANITIZED_ADDRESS) // under which nothing of ours maps memory
KT7_SHOWN void* mmap(void* at, std::size_t size, int access, int flags, int file, off_t offset) {
    void* block = request([=]() -> void* {
        void* mapped =
            reinterpret_cast<void*>(syscall(SYS_mmap, at, size, access, flags, file, offset));
        return mapped == MAP_FAILED ? nullptr : mapped;
    });
    return block == nullptr ? MAP_FAILED : block;
}
KT7_SHOWN int munmap(void* block, std::size_t size) {
    kt7::test::held.fetch_sub(1, std::memory_order_relaxed);
    return static_cast<int>(syscall(SYS_munmap, block, size));
}
#endif
}

KT7_SHOWN void* operator new(std::size_t size) {
    return requestOrThrow(size);
}
KT7_SHOWN void* operator new[](std::size_t size) {
    return requestOrThrow(size);
}
KT7_SHOWN void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
KT7_SHOWN void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
KT7_SHOWN void operator delete(void* block) noexcept {
    release(block);
}
KT7_SHOWN void operator delete[](void* block) noexcept {
    release(block);
}
KT7_SHOWN void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
KT7_SHOWN void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
KT7_SHOWN void operator delete(void* block, const std::nothrow_t&) noexcept {
    release(block);
}
KT7_SHOWN void operator delete[](void* block, const std::nothrow_t&) noexcept {
    release(block);
}

#endif
