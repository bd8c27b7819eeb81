// A plane taken from one sample scale to the other.
#pragma once

#include "fuzz/Input.h"

namespace kt7::fuzz {

template <class S, class D>
void convertPlane(Input in, std::int32_t (*convert)(const S*, std::int32_t, std::int32_t,
                                                    std::int32_t, D*, std::int32_t)) {
    constexpr auto sBytes = static_cast<std::int32_t>(sizeof(S));
    constexpr auto dBytes = static_cast<std::int32_t>(sizeof(D));
    const std::int32_t width = in.between(1, 4200), height = in.between(1, 5);
    Rows src(sBytes * width, height, in.between(0, 80));
    const Rows dst(dBytes * width, height, in.between(0, 80));
    std::int32_t srcStep = src.stepBytes, dstStep = dst.stepBytes, w = width, h = height;
    const bool spoiltSource = spoil(in, sBytes * width, srcStep, w, h);
    const bool spoilt = spoil(in, dBytes * width, dstStep, w, h) || spoiltSource;
    src.fill(in.rest());
    const std::int32_t result = convert(src.samples<S>(), srcStep, w, h, dst.samples<D>(), dstStep);
    require(result == (spoilt ? -1001 : 1), "unusable planes are refused");
    src.requireUntouched();
    dst.requireTouchedInRowsOnly();
    if (spoilt)
        dst.requireUntouched();
    for (std::int32_t y = 0; !spoilt && y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            require(sampleAt<D>(dst.row(y), x) <= (sizeof(D) == 1 ? 255 : 32768),
                    "samples end in range");
}

} // namespace kt7::fuzz
