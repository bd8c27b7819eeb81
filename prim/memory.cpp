#include "prim/memory.h"

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

// The address sanitizer watches blocks of the C library alone.
#if defined(__linux__) && !defined(KT7_SANITIZED_ADDRESS)
#include <sys/mman.h>
#define KT7_MAP_LARGE_BLOCKS 1
#else
#define KT7_MAP_LARGE_BLOCKS 0
#endif

namespace kt7 {
namespace {

// One cache line, which also suits the widest vectors; rows are only promised 32.
constexpr std::size_t blockAlignment = 64;

// Stands in the cache line before a block.
struct BlockHeader {
    std::size_t mappedBytes; // 0: the block came from the C library
};

// The C library keeps freed memory for its next request. Planes and the large work arrays of a
// layer are mapped by themselves, so that they are gone from the process once they are freed.
constexpr std::size_t leastMappedBlock = std::size_t{1} << 18;

void* allocateBlock(std::int64_t bytes) noexcept {
    if (bytes < 1 || bytes > std::numeric_limits<std::int32_t>::max())
        return nullptr;
    // aligned_alloc wants a multiple of the alignment.
    const std::size_t size =
        blockAlignment +
        ((static_cast<std::size_t>(bytes) + blockAlignment - 1) & ~(blockAlignment - 1));
    std::byte* start = nullptr;
    std::size_t mappedBytes = 0;
#if KT7_MAP_LARGE_BLOCKS
    if (size >= leastMappedBlock) {
        void* mapped =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED)
            return nullptr;
        madvise(mapped, size, MADV_HUGEPAGE); // fewer page faults; a refusal does no harm
        start = static_cast<std::byte*>(mapped);
        mappedBytes = size;
    }
#endif
    if (start == nullptr)
        start = static_cast<std::byte*>(std::aligned_alloc(blockAlignment, size));
    if (start == nullptr)
        return nullptr;
    ::new (start) BlockHeader{mappedBytes};
    return start + blockAlignment;
}

template <class T>
T* allocateVector(std::int32_t length) noexcept {
    return static_cast<T*>(
        allocateBlock(std::int64_t{length} * static_cast<std::int64_t>(sizeof(T))));
}

} // namespace

unsigned char* primMalloc8uC1(std::int32_t widthBytes, std::int32_t height,
                              std::int32_t* stepBytes) noexcept {
    if (stepBytes == nullptr)
        return nullptr;
    *stepBytes = 0;
    if (widthBytes < 1 || height < 1)
        return nullptr;
    const std::int64_t step = (std::int64_t{widthBytes} + 31) / 32 * 32;
    if (step > std::numeric_limits<std::int32_t>::max())
        return nullptr;
    *stepBytes = static_cast<std::int32_t>(step);
    return static_cast<unsigned char*>(allocateBlock(step * height));
}

std::int16_t* primMalloc16s(std::int32_t length) noexcept {
    return allocateVector<std::int16_t>(length);
}

float* primMalloc32f(std::int32_t length) noexcept {
    return allocateVector<float>(length);
}

void primFree(void* block) noexcept {
    if (block == nullptr)
        return;
    std::byte* start = static_cast<std::byte*>(block) - blockAlignment;
#if KT7_MAP_LARGE_BLOCKS
    const std::size_t mappedBytes =
        std::launder(reinterpret_cast<BlockHeader*>(start))->mappedBytes;
    if (mappedBytes != 0) {
        munmap(start, mappedBytes);
        return;
    }
#endif
    std::free(start);
}

} // namespace kt7
