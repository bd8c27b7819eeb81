// Plain forms, which only tests link.
#include "qxutils/DCT.h"

#include <cmath>
#include <cstddef>
#include <numbers>

#include "prim/plainForms.h"

namespace kt7 {
namespace {

// The definition, along one axis of `side` elements `stride` apart, in double precision.
template <int side>
void transformAxis(float* x, std::ptrdiff_t stride, bool forward) {
    double out[side] = {};
    for (int k = 0; k < side; ++k)
        for (int i = 0; i < side; ++i) {
            const double weight = std::cos((2 * i + 1) * k * std::numbers::pi / (2 * side)) *
                                  std::sqrt((k == 0 ? 1.0 : 2.0) / side);
            out[forward ? k : i] += weight * double{x[stride * (forward ? i : k)]};
        }
    for (int i = 0; i < side; ++i)
        x[stride * i] = static_cast<float>(out[i]);
}

} // namespace

void nDCT8x8x8(float* cube) {
    for (std::ptrdiff_t block = 0; block < 8; ++block)
        primDCT8x8Fwd32fC1I(cube + 64 * block);
    for (int i = 0; i < 64; ++i)
        transformAxis<8>(cube + i, 64, true);
}

void nIDCT8x8x8(float* cube) {
    for (std::ptrdiff_t block = 0; block < 8; ++block)
        primDCT8x8Inv32fC1I(cube + 64 * block);
    for (int i = 0; i < 64; ++i)
        transformAxis<8>(cube + i, 64, false);
}

void dct4x4(float* block) {
    for (std::ptrdiff_t i = 0; i < 4; ++i)
        transformAxis<4>(block + 4 * i, 1, true);
    for (int i = 0; i < 4; ++i)
        transformAxis<4>(block + i, 4, true);
}

} // namespace kt7
