#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

constexpr std::int32_t lanes = 16;

// Sums lie in lanes, by column, so that every target adds in the same order.
struct LaneSums {
    float response[lanes] = {};
    float root[lanes] = {};
    std::int32_t count[lanes] = {};
};

void sumFlat(const std::uint8_t* gradients, std::int32_t limit, const float* guide, float low,
             float high, const float* response, std::int32_t n, FlatSums* sums) {
    LaneSums lane;
    const auto add = [&](std::int32_t x, std::int32_t j) {
        const float p = guide[x + j];
        const bool used = (std::int32_t{gradients[x + j]} <= limit) & (p >= low) & (p <= high);
        lane.response[j] += used ? __builtin_fabsf(response[x + j]) : 0.0f;
        lane.root[j] += __builtin_sqrtf(used ? p : 0.0f);
        lane.count[j] += used;
    };
    std::int32_t x = 0;
    for (; x + lanes <= n; x += lanes)
        for (std::int32_t j = 0; j < lanes; ++j)
            add(x, j);
    for (std::int32_t j = 0; j < n - x; ++j)
        add(x, j);
    *sums = {};
    for (std::int32_t j = 0; j < lanes; ++j) {
        sums->response += lane.response[j];
        sums->root += lane.root[j];
        sums->count += lane.count[j];
    }
}

} // namespace

const NoiseKernels KT7_NAME(noiseKernels){&sumFlat};

} // namespace kt7
