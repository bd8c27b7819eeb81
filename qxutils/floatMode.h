// Flush-to-zero mode of the calling thread.
#pragma once

#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kt7 {

/// Takes denormal operands and results as zero on this thread, with the underflow exception masked.
/// Denormals cost hundreds of cycles each and no result depends on them. Returns the mode before.
inline std::uint64_t flushDenormals() noexcept {
#if defined(__x86_64__)
    constexpr unsigned flushToZero = 0x8000, denormalsAreZero = 0x0040, underflowMask = 0x0800;
    const unsigned before = _mm_getcsr();
    _mm_setcsr(before | flushToZero | denormalsAreZero | underflowMask);
    return before;
#elif defined(__aarch64__)
    std::uint64_t before = 0;
    asm volatile("mrs %0, fpcr" : "=r"(before));
    asm volatile("msr fpcr, %0" : : "r"(before | (std::uint64_t{1} << 24)));
    return before;
#else
    return 0;
#endif
}

/// Puts a mode back that flushDenormals returned.
inline void restoreFloatMode([[maybe_unused]] std::uint64_t mode) noexcept {
#if defined(__x86_64__)
    _mm_setcsr(static_cast<unsigned>(mode));
#elif defined(__aarch64__)
    asm volatile("msr fpcr, %0" : : "r"(mode));
#endif
}

/// Flushes denormals on this thread while it lives.
class FloatModeScope {
  public:
    FloatModeScope() noexcept : before_(flushDenormals()) {}
    ~FloatModeScope() { restoreFloatMode(before_); }
    FloatModeScope(const FloatModeScope&) = delete;
    FloatModeScope& operator=(const FloatModeScope&) = delete;

  private:
    std::uint64_t before_;
};

} // namespace kt7
