// Image buffer with a region of interest, owned or a view of foreign storage.
#pragma once

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <span>

#include "prim/memory.h"
#include "prim/primtypes.h"
#include "prim/rows.h"
#include "qxutils/qxbase/QXRC.h"

#if defined(KT7_SANITIZED_ADDRESS)
#include <sanitizer/asan_interface.h>
#endif

namespace kt7 {

/// Samples of type T, N interleaved channels. Never copied; rows are addressed by stepBytes, which
/// differs between buffers of equal width when one of them came from the heap.
template <class T, int N>
struct IMG {
    T* base;                    ///< first sample of the storage
    std::uint8_t primAllocated; ///< 1: the storage goes back through primFree
    std::uint8_t foreign;       ///< 1: the storage is someone else's and never freed here
    T* data;                    ///< sample (0, 0) of the region of interest
    std::int32_t stepBytes;     ///< bytes from one row to the next
    std::int32_t fullWidth;     ///< pixels in a row of the storage
    std::int32_t fullHeight;    ///< rows of the storage
    std::int32_t width;         ///< pixels in a row of the region of interest
    std::int32_t height;        ///< rows of the region of interest
    std::int32_t status;        ///< 1 after construction; may take a primitive's result

    /// Owned storage of width x height pixels, contents undefined: plane memory first, with rows
    /// aligned at 32 bytes, the plain heap as a fallback. Raises noBufferStorage.
    IMG(std::int32_t bufferWidth, std::int32_t bufferHeight)
        : IMG(bufferWidth, bufferHeight, nullptr, 0) {
        allocate();
    }

    /// View of foreign storage whose rows lie `step` bytes apart.
    IMG(std::int32_t viewWidth, std::int32_t viewHeight, T* storage, std::int32_t step)
        : base(storage), primAllocated(0), foreign(storage != nullptr), data(storage),
          stepBytes(step), fullWidth(viewWidth), fullHeight(viewHeight), width(viewWidth),
          height(viewHeight), status(1) {}

    IMG(const IMG&) = delete;
    IMG& operator=(const IMG&) = delete;

    /// Moves the region's top left corner by (x, y); its bottom right corner stays.
    virtual void crop(std::int32_t x, std::int32_t y) {
        data = rowAt(data, stepBytes, y) + std::ptrdiff_t{x} * N;
        width -= x;
        height -= y;
    }

    /// Sets the region to the whole storage.
    virtual void resetRoi() {
        data = base;
        width = fullWidth;
        height = fullHeight;
    }

    virtual ~IMG() { release(); }

    /// Samples of row y of the region.
    std::span<T> row(std::int32_t y) {
        assert(y >= 0 && y < height);
        return {rowAt(data, stepBytes, y), rowSamples()};
    }
    std::span<const T> row(std::int32_t y) const {
        assert(y >= 0 && y < height);
        return {rowAt(static_cast<const T*>(data), stepBytes, y), rowSamples()};
    }

    /// Sample (x, y) in the region's coordinates; may lie in the margin, never outside the storage.
    T* at(std::int32_t x, std::int32_t y) {
        return rowAt(data, stepBytes, y) + std::ptrdiff_t{x} * N;
    }
    const T* at(std::int32_t x, std::int32_t y) const {
        return rowAt(static_cast<const T*>(data), stepBytes, y) + std::ptrdiff_t{x} * N;
    }

    /// Size of the region of interest.
    PrimSize roi() const { return {width, height}; }

  private:
    std::size_t rowSamples() const { return static_cast<std::size_t>(width) * N; }

    void allocate() {
        constexpr std::int64_t largest = std::numeric_limits<std::int32_t>::max();
        const std::int64_t rowBytes =
            std::int64_t{fullWidth} * N * static_cast<std::int64_t>(sizeof(T));
        if (fullWidth < 1 || fullHeight < 1 || rowBytes > largest - 48)
            raise(noBufferStorage);
        stepBytes = static_cast<std::int32_t>(rowBytes);
        unsigned char* storage = primMalloc8uC1(stepBytes, fullHeight, &stepBytes);
        if (storage != nullptr) {
            primAllocated = 1;
        } else {
            // One unit longer even when the step is a multiple of 16 already.
            stepBytes = stepBytes / 16 * 16 + 16;
            storage = static_cast<unsigned char*>(std::malloc(
                static_cast<std::size_t>(stepBytes) * static_cast<std::size_t>(fullHeight)));
            if (storage == nullptr)
                raise(noBufferStorage);
        }
        base = data = reinterpret_cast<T*>(storage);
        guardRowEnds(true);
    }

    void release() noexcept {
        if (foreign != 0 || base == nullptr)
            return;
        guardRowEnds(false);
        if (primAllocated != 0)
            primFree(base);
        else
            std::free(base);
    }

    // Under the address sanitizer the bytes between a row's end and the next row can't be touched.
    void guardRowEnds([[maybe_unused]] bool on) noexcept {
#if defined(KT7_SANITIZED_ADDRESS)
        const std::size_t used = static_cast<std::size_t>(fullWidth) * N * sizeof(T);
        const std::size_t unused = static_cast<std::size_t>(stepBytes) - used;
        for (std::int32_t y = 0; y < fullHeight; ++y) {
            const char* end = reinterpret_cast<const char*>(rowAt(base, stepBytes, y)) + used;
            if (on)
                ASAN_POISON_MEMORY_REGION(end, unused);
            else
                ASAN_UNPOISON_MEMORY_REGION(end, unused);
        }
#endif
    }
};

/// One channel: planes, pyramid levels, tiles, grids, masks.
template <class T>
struct GIMG : IMG<T, 1> {
    using IMG<T, 1>::IMG;
};

/// Three interleaved channels.
template <class T>
struct IMG3 : IMG<T, 3> {
    using IMG<T, 3>::IMG;
};

/// View of width x height samples of `plane`'s region whose top left corner is (x, y).
template <class T>
GIMG<T> viewOf(GIMG<T>& plane, std::int32_t x, std::int32_t y, std::int32_t width,
               std::int32_t height) {
    return GIMG<T>(width, height, plane.at(x, y), plane.stepBytes);
}

/// Takes a rim off all four sides of a buffer's region, and puts the whole region back at the end.
template <class T>
class RoiScope {
  public:
    RoiScope(GIMG<T>& plane, std::int32_t rim) : plane_(plane) {
        plane_.crop(rim, rim);
        plane_.width -= rim;
        plane_.height -= rim;
    }
    ~RoiScope() { plane_.resetRoi(); }
    RoiScope(const RoiScope&) = delete;
    RoiScope& operator=(const RoiScope&) = delete;

  private:
    GIMG<T>& plane_;
};

} // namespace kt7
