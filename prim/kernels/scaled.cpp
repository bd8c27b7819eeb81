#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

template <class T>
struct Range;
template <>
struct Range<std::int16_t> {
    static constexpr std::int32_t low = -32768, high = 32767;
};
template <>
struct Range<std::uint8_t> {
    static constexpr std::int32_t low = 0, high = 255;
};
template <>
struct Range<std::uint16_t> {
    static constexpr std::int32_t low = 0, high = 65535;
};

template <class T, class Wide>
T saturated(Wide v) {
    constexpr Wide low = Range<T>::low, high = Range<T>::high;
    const Wide raised = v > low ? v : low;
    return static_cast<T>(raised < high ? raised : high);
}

// Planes of a host pass through here: their 16-bit samples need not lie on even addresses.
template <class T>
T sampleAt(const T* address) {
    T v;
    __builtin_memcpy(&v, address, sizeof v);
    return v;
}

template <class T, class Wide>
void put(T* address, Wide v) {
    const T held = saturated<T>(v);
    __builtin_memcpy(address, &held, sizeof held);
}

// dst(x) = the scaled value of op(x), which lies within 17 bits and a sign. Scales at which 32 bits
// hold every intermediate value take the narrow loops.
template <class T, class Op>
void scaleRow(T* dst, std::int32_t n, std::int32_t scale, Op op) {
    constexpr std::int32_t mostUp = -13, mostDown = 16, beyondAll = 40;
    if (scale == 0) {
        for (std::int32_t x = 0; x < n; ++x)
            put(dst + x, op(x));
    } else if (scale > 0 && scale <= mostDown) {
        const std::int32_t half = (1 << (scale - 1)) - 1;
        for (std::int32_t x = 0; x < n; ++x) {
            const std::int32_t r = op(x);
            put(dst + x, (r + half + ((r >> scale) & 1)) >> scale);
        }
    } else if (scale < 0 && scale >= mostUp) {
        const std::int32_t factor = 1 << -scale;
        for (std::int32_t x = 0; x < n; ++x)
            put(dst + x, op(x) * factor);
    } else if (scale > 0) {
        const std::int32_t shift = scale < beyondAll ? scale : beyondAll;
        const std::int64_t half = (std::int64_t{1} << (shift - 1)) - 1;
        for (std::int32_t x = 0; x < n; ++x) {
            const std::int64_t r = op(x);
            put(dst + x, (r + half + ((r >> shift) & 1)) >> shift);
        }
    } else {
        const std::int64_t factor = std::int64_t{1} << (scale > -beyondAll ? -scale : beyondAll);
        for (std::int32_t x = 0; x < n; ++x)
            put(dst + x, op(x) * factor);
    }
}

void add16s(const std::int16_t* src, std::int16_t* row, std::int32_t n, std::int32_t scale) {
    scaleRow(row, n, scale, [=](std::int32_t x) { return row[x] + src[x]; });
}

void sub16s(const std::int16_t* src, std::int16_t* row, std::int32_t n, std::int32_t scale) {
    scaleRow(row, n, scale, [=](std::int32_t x) { return row[x] - src[x]; });
}

void sub8u(const std::uint8_t* src, std::uint8_t* row, std::int32_t n, std::int32_t scale) {
    scaleRow(row, n, scale, [=](std::int32_t x) { return row[x] - src[x]; });
}

void subC8u(const std::uint8_t* src, std::uint8_t c, std::uint8_t* dst, std::int32_t n,
            std::int32_t scale) {
    scaleRow(dst, n, scale, [=](std::int32_t x) { return src[x] - c; });
}

void mulC8u(std::uint8_t c, std::uint8_t* row, std::int32_t n, std::int32_t scale) {
    scaleRow(row, n, scale, [=](std::int32_t x) { return row[x] * c; });
}

void mulC8uC3(const std::uint8_t* c, std::uint8_t* row, std::int32_t n, std::int32_t scale) {
    // Factors laid out over whole pixels, so that a block of samples meets them one to one.
    constexpr std::int32_t pixels = 32;
    std::int32_t factors[3 * pixels];
    for (std::int32_t i = 0; i < 3 * pixels; ++i)
        factors[i] = c[i % 3];
    for (std::int32_t x = 0; x < n; x += pixels) {
        const std::int32_t count = n - x < pixels ? n - x : pixels;
        std::uint8_t* block = row + std::ptrdiff_t{3} * x;
        scaleRow(block, 3 * count, scale,
                 [=, &factors](std::int32_t i) { return block[i] * factors[i]; });
    }
}

void addC16u(std::uint16_t c, std::uint16_t* row, std::int32_t n, std::int32_t scale) {
    scaleRow(row, n, scale, [=](std::int32_t x) { return sampleAt(row + x) + c; });
}

void subC16u(const std::uint16_t* src, std::uint16_t c, std::uint16_t* dst, std::int32_t n,
             std::int32_t scale) {
    scaleRow(dst, n, scale, [=](std::int32_t x) { return sampleAt(src + x) - c; });
}

} // namespace

const ScaledKernels KT7_NAME(scaledKernels){&add16s, &sub16s,   &sub8u,   &subC8u,
                                            &mulC8u, &mulC8uC3, &addC16u, &subC16u};

} // namespace kt7
