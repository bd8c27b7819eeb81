#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

// Added and taken off again, 1.5 * 2^23 leaves a float of magnitude below 2^22 rounded to the
// nearest integer with ties to even, without an instruction that the portable target lacks.
constexpr float roundingShift = 12582912.0f;

float rounded(float v) {
    return (v + roundingShift) - roundingShift;
}

// The comparisons are ordered so that a NaN ends at 0.
float held8u(float v) {
    const float low = v > 0.0f ? v : 0.0f;
    return low < 255.0f ? low : 255.0f;
}

// A NaN ends at the top: -32768 marks unwritten samples elsewhere and must not arise here.
float held16s(float v) {
    const float high = v < 32767.0f ? v : 32767.0f;
    return high > -32768.0f ? high : -32768.0f;
}

void from16s(const std::int16_t* src, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = static_cast<float>(src[x]);
}

// The samples are a host's, whose rows need not lie on even addresses.
void widen8u(const std::uint8_t* src, std::uint16_t* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        const std::uint16_t v = src[x];
        __builtin_memcpy(dst + x, &v, sizeof v);
    }
}

void narrow16u(const std::uint16_t* src, std::uint8_t* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = static_cast<std::uint8_t>(src[x] < 255 ? src[x] : 255);
}

// Through int32: a direct conversion to a narrow type isn't vectorised everywhere.
void truncTo8u(const float* src, std::uint8_t* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = static_cast<std::uint8_t>(static_cast<std::int32_t>(held8u(src[x])));
}

void roundTo8u(const float* src, std::uint8_t* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = static_cast<std::uint8_t>(static_cast<std::int32_t>(rounded(held8u(src[x]))));
}

void truncTo16s(const float* src, std::int16_t* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = static_cast<std::int16_t>(static_cast<std::int32_t>(held16s(src[x])));
}

void roundTo16s(const float* src, std::int16_t* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = static_cast<std::int16_t>(static_cast<std::int32_t>(rounded(held16s(src[x]))));
}

} // namespace

const ConvertKernels KT7_NAME(convertKernels){&from16s,   &widen8u,    &narrow16u, &truncTo8u,
                                              &roundTo8u, &truncTo16s, &roundTo16s};

} // namespace kt7
