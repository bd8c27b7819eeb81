#include "qxenhlib/grainStage.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "prim/randGauss.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/hostFormat.h"

namespace kt7 {
namespace {

/// Spreads a counter over all 32 bits (the finaliser of splitmix64), so that neighbouring bands of
/// rows have unrelated seeds.
std::uint32_t mixed(std::uint64_t v) {
    v += 0x9e3779b97f4a7c15u;
    v = (v ^ (v >> 30)) * 0xbf58476d1ce4e5b9u;
    v = (v ^ (v >> 27)) * 0x94d049bb133111ebu;
    return static_cast<std::uint32_t>(v >> 32);
}

} // namespace

void addGrain(GIMG<std::int16_t>& luma, float grain) {
    if (!(grain > 1e-5f))
        return;
    constexpr auto most = static_cast<float>(sampleMax);
    const auto stdDev = static_cast<std::int16_t>(std::min(grain * most + 0.499f, most));
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    const std::uint64_t call = static_cast<std::uint64_t>(now) << 24;
    parallelRanges(luma.height, [&](std::int32_t begin, std::int32_t end) {
        std::uint32_t seed = mixed(call + static_cast<std::uint64_t>(begin));
        primAddRandGauss16sC1I(luma.at(0, begin), luma.stepBytes, {luma.width, end - begin}, 0,
                               stdDev, &seed);
    });
}

} // namespace kt7
