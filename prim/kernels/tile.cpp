#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

void load(const std::int16_t* src, float scale, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = static_cast<float>(src[x]) * scale;
}

void hold(float scale, float limit, float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        float v = row[x] * scale;
        v = v > limit ? limit : v;
        row[x] = v > -limit ? v : -limit; // written so that a NaN ends at the limit too
    }
}

void fade(const float* src, const float* weight, std::int32_t weightStride, std::int16_t unwritten,
          std::int16_t* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        const float w = weight[x * weightStride];
        const float t = src[x];
        const float p = static_cast<float>(dst[x]);
        const float mixed = t * w + p * (1.0f - w);
        const float v = dst[x] == unwritten ? t : mixed;
        dst[x] = static_cast<std::int16_t>(static_cast<std::int32_t>(v));
    }
}

} // namespace

const TileKernels KT7_NAME(tileKernels){&load, &hold, &fade};

} // namespace kt7
