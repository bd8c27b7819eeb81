// Floating-point mode of the calling thread.
#pragma once

#include <cfenv>
#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kt7 {

/// Takes denormal operands and results as zero on this thread, with the underflow exception masked.
/// Denormals cost hundreds of cycles each and no result depends on them.
inline void flushDenormals() noexcept {
#if defined(__x86_64__)
    constexpr unsigned flushToZero = 0x8000, denormalsAreZero = 0x0040, underflowMask = 0x0800;
    _mm_setcsr(_mm_getcsr() | flushToZero | denormalsAreZero | underflowMask);
#elif defined(__aarch64__)
    std::uint64_t mode = 0;
    asm volatile("mrs %0, fpcr" : "=r"(mode));
    asm volatile("msr fpcr, %0" : : "r"(mode | (std::uint64_t{1} << 24)));
#endif
}

/// Undoes flushDenormals, but for the exception mask.
inline void keepDenormals() noexcept {
#if defined(__x86_64__)
    _mm_setcsr(_mm_getcsr() & ~0x8040u);
#elif defined(__aarch64__)
    std::uint64_t mode = 0;
    asm volatile("mrs %0, fpcr" : "=r"(mode));
    asm volatile("msr fpcr, %0" : : "r"(mode & ~(std::uint64_t{1} << 24)));
#endif
}

/// Gives this thread the library's mode while it lives: no exception stops the program, results are
/// rounded to nearest, denormals are flushed. Then the mode before is back, flags included. The
/// compiler knows nothing of it, so what is to run in this mode has to be a call of its own.
class FloatModeScope {
  public:
    FloatModeScope() noexcept {
        std::fegetenv(&before_);
        std::fesetenv(FE_DFL_ENV);
        flushDenormals();
    }
    ~FloatModeScope() { std::fesetenv(&before_); }
    FloatModeScope(const FloatModeScope&) = delete;
    FloatModeScope& operator=(const FloatModeScope&) = delete;

  private:
    std::fenv_t before_;
};

} // namespace kt7
