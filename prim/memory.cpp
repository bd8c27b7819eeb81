#include "prim/memory.h"

#include <cstdlib>
#include <limits>

namespace kt7 {
namespace {

// One cache line, which also suits the widest vectors; rows are only promised 32.
constexpr std::size_t blockAlignment = 64;

void* allocateBlock(std::int64_t bytes) noexcept {
    if (bytes < 1 || bytes > std::numeric_limits<std::int32_t>::max()) return nullptr;
    const auto size = static_cast<std::size_t>(bytes);
    // aligned_alloc wants a multiple of the alignment.
    return std::aligned_alloc(blockAlignment, (size + blockAlignment - 1) & ~(blockAlignment - 1));
}

template <class T>
T* allocateVector(std::int32_t length) noexcept {
    return static_cast<T*>(
        allocateBlock(std::int64_t{length} * static_cast<std::int64_t>(sizeof(T))));
}

}  // namespace

unsigned char* primMalloc8uC1(std::int32_t widthBytes, std::int32_t height,
                              std::int32_t* stepBytes) noexcept {
    if (stepBytes == nullptr) return nullptr;
    *stepBytes = 0;
    if (widthBytes < 1 || height < 1) return nullptr;
    const std::int64_t step = (std::int64_t{widthBytes} + 31) / 32 * 32;
    if (step > std::numeric_limits<std::int32_t>::max()) return nullptr;
    *stepBytes = static_cast<std::int32_t>(step);
    return static_cast<unsigned char*>(allocateBlock(step * height));
}

std::int16_t* primMalloc16s(std::int32_t length) noexcept {
    return allocateVector<std::int16_t>(length);
}

float* primMalloc32f(std::int32_t length) noexcept { return allocateVector<float>(length); }

void primFree(void* block) noexcept { std::free(block); }

}  // namespace kt7
