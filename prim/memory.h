// Plane memory: aligned blocks, and the owning pointer over them.
#pragma once

#include <cstdint>
#include <memory>

#include "prim/primtypes.h"

namespace kt7 {

/// Allocates a plane. widthBytes: bytes that a row needs; stepBytes receives them rounded up to a
/// multiple of 32. Returns storage of stepBytes x height bytes aligned at 64 bytes, contents
/// undefined, to be freed with primFree; or null when memory runs out, when the block would pass
/// 2^31 - 1 bytes, when a side is below 1 (stepBytes is then 0) or when stepBytes is null.
unsigned char* primMalloc8uC1(std::int32_t widthBytes, std::int32_t height,
                              std::int32_t* stepBytes) noexcept;

/// Allocate a vector of `length` elements, aligned at 64 bytes; null when length is below 1 or
/// memory runs out. Freed with primFree.
std::int16_t* primMalloc16s(std::int32_t length) noexcept;
float* primMalloc32f(std::int32_t length) noexcept;

/// Frees a block of any of the allocators above; null is allowed.
void primFree(void* block) noexcept;

struct PrimFree {
    void operator()(void* block) const noexcept { primFree(block); }
};

/// Owns an array from the allocators above.
template <class T>
using PrimPtr = std::unique_ptr<T[], PrimFree>;

} // namespace kt7
