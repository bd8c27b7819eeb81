// Plane and filter primitives on one megapixel, on every CPU target. Argument: the target.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "prim/arith.h"
#include "prim/convert.h"
#include "prim/copy.h"
#include "prim/filter.h"
#include "prim/histogram.h"
#include "prim/kernels/select.h"
#include "prim/median.h"
#include "prim/sobel.h"
#include "prim/stats.h"
#include "prim/threshold.h"

namespace kt7 {
namespace {

constexpr std::int32_t side = 1024, margin = 8, stride = side + 2 * margin;
constexpr PrimSize size{side, side};

template <class T>
struct Plane {
    std::vector<T> samples;
    static constexpr std::int32_t step = stride * sizeof(T);
    Plane() {
        std::mt19937 random(1);
        for (std::int32_t i = 0; i < stride * stride; ++i)
            samples.push_back(static_cast<T>(random() % 30000));
    }
    T* at() { return samples.data() + margin * stride + margin; }
};

struct Planes {
    Plane<float> f, g;
    Plane<std::int16_t> s, t;
    Plane<std::uint8_t> b;
    Plane<std::uint16_t> w;
};

void primitive(benchmark::State& state, PrimStatus (*run)(Planes&)) {
    const auto target = static_cast<CpuTarget>(state.range(0));
    if (target > bestCpuTarget()) {
        state.SkipWithError("this CPU lacks the target");
        return;
    }
    selectKernels(target);
    static Planes planes;
    for (auto _ : state) {
        benchmark::DoNotOptimize(run(planes));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * side * side);
    selectKernels(bestCpuTarget());
}

#define FLOATS p.f.at(), p.f.step
#define FLOATS2 p.g.at(), p.g.step
#define SHORTS p.s.at(), p.s.step
#define SHORTS2 p.t.at(), p.t.step
#define BYTES p.b.at(), p.b.step
#define WORDS p.w.at(), p.w.step
#define KT7_PRIM_BENCH(name, call)                                                                 \
    BENCHMARK_CAPTURE(primitive, name, [](Planes& p) -> PrimStatus { return call; })               \
        ->ArgName("target")                                                                        \
        ->DenseRange(0, 2)                                                                         \
        ->Unit(benchmark::kMicrosecond)

constexpr float taps[25] = {0.1f, -0.7f, 1.3f, 0.01f, 2.0f, -3.0f, 0.5f, 0.25f, -0.6f, 0.9f};

// The yardstick: what moving the samples takes.
KT7_PRIM_BENCH(Copy32f, primCopy32fC1(FLOATS, FLOATS2, size));
KT7_PRIM_BENCH(Convert16s32f, primConvert16s32fC1(SHORTS, FLOATS2, size));
KT7_PRIM_BENCH(Convert32f16s, primConvert32f16sC1(FLOATS, SHORTS2, size, primNearest));
KT7_PRIM_BENCH(Convert32f8u, primConvert32f8uC1(FLOATS, BYTES, size, primTruncate));
KT7_PRIM_BENCH(Add16s, primAdd16sC1I(SHORTS, SHORTS2, size, 0));
KT7_PRIM_BENCH(SubC16u, primSubC16uC1(WORDS, 128, WORDS, size, 7));
KT7_PRIM_BENCH(MulC8u, primMulC8uC1I(9, BYTES, size, 3));
KT7_PRIM_BENCH(ThresholdLT32f, primThresholdLT32fC1I(FLOATS, size, 0.5f));
KT7_PRIM_BENCH(Max16s, ([&] {
                   std::int16_t most = 0;
                   const PrimStatus status = primMax16sC1(SHORTS, size, &most);
                   benchmark::DoNotOptimize(most);
                   return status;
               }()));
KT7_PRIM_BENCH(Sum8u, ([&] {
                   std::uint64_t sum = 0;
                   const PrimStatus status = primSum8uC1(BYTES, size, &sum);
                   benchmark::DoNotOptimize(sum);
                   return status;
               }()));
KT7_PRIM_BENCH(Histogram8u, ([&] {
                   std::int32_t hist[256], levels[257];
                   return primHistogramEven8uC1(BYTES, size, hist, levels, 257, 0, 256);
               }()));
KT7_PRIM_BENCH(Box2x2, primFilterBox32fC1(FLOATS, FLOATS2, size, {2, 2}, {0, 0}));
KT7_PRIM_BENCH(Gauss3x3, primFilterGauss32fC1(FLOATS, FLOATS2, size, 33));
KT7_PRIM_BENCH(SobelHoriz, primFilterSobelHoriz32fC1(FLOATS, FLOATS2, size));
KT7_PRIM_BENCH(SobelVert, primFilterSobelVert32fC1(FLOATS, FLOATS2, size));
KT7_PRIM_BENCH(Filter3x3, primFilter32fC1(FLOATS, FLOATS2, size, taps, {3, 3}, {1, 1}));
KT7_PRIM_BENCH(Filter5x5, primFilter32fC1(FLOATS, FLOATS2, size, taps, {5, 5}, {2, 2}));
KT7_PRIM_BENCH(Median3x3, primFilterMedian32fC1(FLOATS, FLOATS2, size, {3, 3}, {1, 1}));
KT7_PRIM_BENCH(MedianCross, primFilterMedianCross16sC1(SHORTS, SHORTS2, size, 33));

} // namespace
} // namespace kt7
