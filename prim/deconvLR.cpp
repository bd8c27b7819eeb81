#include "prim/deconvLR.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"
#include "prim/memory.h"

namespace kt7 {

namespace {

/// One of the two convolutions as a correlation: the output at a cell is the sum of
/// taps[j * side + i] times the input i - back columns and j - back rows further on.
struct Blur {
    std::int32_t back = 0;
    float* taps = nullptr;
    float* across = nullptr; // factors of the taps when they are an outer product
    float* down = nullptr;
};

/// Weights and rows of one sum.
struct Terms {
    const float* const* rows;
    const float* weights;
    std::int32_t count;
};

} // namespace

struct PrimDeconvLR32f {
    std::int32_t side = 0;
    PrimSize maxFrame{};
    float threshold = 0.0f;
    bool separable = false;
    Blur forward;
    Blur backward;
    const float* kernel = nullptr;
    std::ptrdiff_t stride = 0; // floats between work rows, which have side - 1 zeros on both ends
    float* work = nullptr;
    PrimPtr<float> weightStorage;
    PrimPtr<float> workStorage;
    std::unique_ptr<const float*[]> rows;

    std::int32_t anchor() const { return (side - 1) / 2; }
    float* workRow(std::int32_t y) const { return work + stride * y + side - 1; }
    void factorise(const float* weights);
};

namespace {

/// Window of `side` rows that slides down a plane of work rows. Rows outside the plane count as 0.
/// Separable kernels are applied across when a row comes in.
class Window {
  public:
    Window(const PrimDeconvLR32f& state, const Blur& blur, std::int32_t firstRing, float* zeros,
           PrimSize frame)
        : state_(state), blur_(blur), firstRing_(firstRing), zeros_(zeros), frame_(frame) {}

    void add(std::int32_t y, const float* row) {
        float* kept = ringRow(y);
        const std::int32_t side = state_.side;
        if (state_.separable) {
            for (std::int32_t i = 0; i < side; ++i)
                state_.rows[static_cast<std::size_t>(i)] = row - blur_.back + i;
            deconvKernels->weightedSum(state_.rows.get(), blur_.across, side, kept, frame_.width);
        } else {
            std::copy_n(row - (side - 1), frame_.width + 2 * (side - 1), kept - (side - 1));
        }
    }

    /// What makes up row y of the output.
    Terms termsOf(std::int32_t y) const {
        const std::int32_t side = state_.side;
        const float** term = state_.rows.get();
        for (std::int32_t j = 0; j < side; ++j) {
            const std::int32_t source = y - blur_.back + j;
            const float* row = source < 0 || source >= frame_.height ? zeros_ : ringRow(source);
            if (state_.separable)
                *term++ = row;
            else
                for (std::int32_t i = 0; i < side; ++i)
                    *term++ = row - blur_.back + i;
        }
        return state_.separable ? Terms{state_.rows.get(), blur_.down, side}
                                : Terms{state_.rows.get(), blur_.taps, side * side};
    }

  private:
    float* ringRow(std::int32_t y) const { return state_.workRow(firstRing_ + y % state_.side); }

    const PrimDeconvLR32f& state_;
    const Blur& blur_;
    std::int32_t firstRing_;
    const float* zeros_;
    PrimSize frame_;
};

/// Kernel entries along one axis that still meet the plane.
struct Reach {
    std::int32_t first;
    std::int32_t last;
    bool operator==(const Reach&) const = default;
};

/// One call: a plane inside its frame.
class Deconvolution {
  public:
    Deconvolution(const PrimDeconvLR32f& state, PrimSize plane)
        : state_(state),
          plane_(plane), frame_{plane.width + state.side - 1, plane.height + state.side - 1},
          indent_(state.side - 1 - state.anchor()) {
        std::int32_t next = 2 * state.maxFrame.height;
        firstBlurRing_ = next;
        firstRatioRing_ = next += state.side;
        ratio_ = state.workRow(next += state.side);
        zeros_ = state.workRow(next + 1);
        fades_ = state.workRow(next + 2);
        std::fill_n(state.work + state.stride * firstBlurRing_,
                    state.stride * (2 * state.side + spareRows), 0.0f);
    }

    static constexpr std::int32_t spareRows = 3;

    void observe(const float* src, std::int32_t srcStep);
    void iterate();
    void result(float* dst, std::int32_t dstStep) const;

  private:
    float* estimate(std::int32_t y) const { return state_.workRow(y); }
    float* observed(std::int32_t y) const { return state_.workRow(state_.maxFrame.height + y); }

    Reach reachOf(std::int32_t q, std::int32_t length) const {
        return {std::max(0, state_.anchor() - q),
                std::min(state_.side - 1, length - 1 - q + state_.anchor())};
    }
    float weightOf(Reach x, Reach y) const {
        float sum = 0.0f;
        for (std::int32_t j = y.first; j <= y.last; ++j)
            for (std::int32_t i = x.first; i <= x.last; ++i)
                sum += state_.kernel[j * state_.side + i];
        return sum;
    }
    void fillFades(Reach cellRows, Reach nearestRows);

    const PrimDeconvLR32f& state_;
    PrimSize plane_;
    PrimSize frame_;
    std::int32_t indent_; // of the plane in its frame
    std::int32_t firstBlurRing_;
    std::int32_t firstRatioRing_;
    float* ratio_;
    float* zeros_;
    float* fades_;
};

// By how much a cell of the frame is dimmer than the pixel of the plane nearest to it.
void Deconvolution::fillFades(Reach cellRows, Reach nearestRows) {
    Reach cellBefore{}, nearestBefore{};
    for (std::int32_t x = 0; x < frame_.width; ++x) {
        const std::int32_t q = x - indent_;
        const Reach cell = reachOf(q, plane_.width);
        const Reach nearest = reachOf(std::clamp(q, 0, plane_.width - 1), plane_.width);
        if (x > 0 && cell == cellBefore && nearest == nearestBefore) {
            fades_[x] = fades_[x - 1];
        } else {
            const float full = weightOf(nearest, nearestRows);
            fades_[x] =
                weightOf(cell, cellRows) / (std::abs(full) < state_.threshold ? 1.0f : full);
        }
        cellBefore = cell;
        nearestBefore = nearest;
    }
}

void Deconvolution::observe(const float* src, std::int32_t srcStep) {
    Reach cellBefore{}, nearestBefore{};
    for (std::int32_t y = 0; y < frame_.height; ++y) {
        const std::int32_t q = y - indent_;
        const std::int32_t nearestRow = std::clamp(q, 0, plane_.height - 1);
        const Reach cell = reachOf(q, plane_.height);
        const Reach nearest = reachOf(nearestRow, plane_.height);
        if (y == 0 || cell != cellBefore || nearest != nearestBefore)
            fillFades(cell, nearest);
        cellBefore = cell;
        nearestBefore = nearest;

        const float* from = rowAt(src, srcStep, nearestRow);
        float* row = observed(y);
        float* middle = row + indent_;
        for (std::int32_t x = 0; x < indent_; ++x)
            row[x] = from[0] * fades_[x];
        for (std::int32_t x = indent_ + plane_.width; x < frame_.width; ++x)
            row[x] = from[plane_.width - 1] * fades_[x];
        if (q == nearestRow)
            std::copy_n(from, plane_.width, middle);
        else
            for (std::int32_t x = 0; x < plane_.width; ++x)
                middle[x] = from[x] * fades_[indent_ + x];
        float* begin = estimate(y) - (state_.side - 1);
        std::fill_n(begin, state_.side - 1, 0.0f);
        std::copy_n(row, frame_.width, estimate(y));
        std::fill_n(estimate(y) + frame_.width, state_.side - 1, 0.0f);
    }
}

// One sweep makes blurred rows, ratios and corrections. A row of the estimate is corrected once
// every ratio that it needs is there, and by then no blurred row needs its old values any more.
void Deconvolution::iterate() {
    Window blurred(state_, state_.forward, firstBlurRing_, zeros_, frame_);
    Window ratios(state_, state_.backward, firstRatioRing_, zeros_, frame_);
    const std::int32_t lead = state_.side - 1 - state_.forward.back;
    const std::int32_t lag = state_.side - 1 - state_.backward.back;
    for (std::int32_t y = 0; y < std::min(lead, frame_.height); ++y)
        blurred.add(y, estimate(y));
    for (std::int32_t y = 0; y < frame_.height + lag; ++y) {
        if (y + lead < frame_.height)
            blurred.add(y + lead, estimate(y + lead));
        if (y < frame_.height) {
            const Terms terms = blurred.termsOf(y);
            deconvKernels->ratio(terms.rows, terms.weights, terms.count, observed(y),
                                 state_.threshold, ratio_, frame_.width);
            ratios.add(y, ratio_);
        }
        if (y >= lag) {
            const Terms terms = ratios.termsOf(y - lag);
            deconvKernels->correct(terms.rows, terms.weights, terms.count, estimate(y - lag),
                                   frame_.width);
        }
    }
}

void Deconvolution::result(float* dst, std::int32_t dstStep) const {
    for (std::int32_t y = 0; y < plane_.height; ++y) {
        const float* from = estimate(y + indent_) + indent_;
        float* row = rowAt(dst, dstStep, y);
        for (std::int32_t x = 0; x < plane_.width; ++x)
            row[x] = std::abs(from[x]) > state_.threshold ? from[x] : 0.0f;
    }
}

} // namespace

// The factors of an outer product are the sums of its columns and of its rows.
void PrimDeconvLR32f::factorise(const float* weights) {
    float total = 0.0f, largest = 0.0f;
    const auto entry = [&](std::int32_t j, std::int32_t i) { return weights[j * side + i]; };
    for (std::int32_t j = 0; j < side; ++j)
        for (std::int32_t i = 0; i < side; ++i) {
            total += entry(j, i);
            largest = std::max(largest, std::abs(entry(j, i)));
        }
    for (std::int32_t j = 0; j < side; ++j) {
        float column = 0.0f, row = 0.0f;
        for (std::int32_t i = 0; i < side; ++i) {
            column += entry(i, j);
            row += entry(j, i);
        }
        // Taps run against the kernel, and the transposed kernel's columns are its rows.
        const std::int32_t at = side - 1 - j;
        forward.across[at] = backward.down[at] = column / total;
        forward.down[at] = backward.across[at] = row;
    }
    separable = true;
    for (std::int32_t j = 0; j < side; ++j)
        for (std::int32_t i = 0; i < side; ++i) {
            const float tap = forward.down[j] * forward.across[i];
            separable = separable && std::abs(tap - forward.taps[j * side + i]) <= 1e-6f * largest;
        }
}

PrimStatus primDeconvLRInitAlloc32fC1(PrimDeconvLR32f** state, const float* kernel, std::int32_t K,
                                      PrimSize maxSize, float threshold) {
    if (state == nullptr || kernel == nullptr)
        return primNullPtr;
    if (K < 1 || maxSize.width < 1 || maxSize.height < 1 || K > maxSize.width || K > maxSize.height)
        return primBadSize;
    if (!(threshold >= 0.0f))
        return primBadArg;

    const std::int64_t area = std::int64_t{K} * K;
    const std::int64_t stride =
        (std::int64_t{maxSize.width} + 2 * (std::int64_t{K} - 1) + 15) / 16 * 16;
    const std::int64_t workRows = 2 * (std::int64_t{maxSize.height} + K) + Deconvolution::spareRows;
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max() / 4;
    if (3 * area + 4 * std::int64_t{K} > most || stride > most || workRows > most / stride)
        return primNoMem;
    std::unique_ptr<PrimDeconvLR32f> made(new (std::nothrow) PrimDeconvLR32f);
    if (!made)
        return primNoMem;
    made->weightStorage.reset(primMalloc32f(static_cast<std::int32_t>(3 * area + 4 * K)));
    made->workStorage.reset(primMalloc32f(static_cast<std::int32_t>(stride * workRows)));
    made->rows.reset(new (std::nothrow) const float*[static_cast<std::size_t>(area)]);
    if (!made->weightStorage || !made->workStorage || !made->rows)
        return primNoMem;

    made->side = K;
    made->maxFrame = maxSize;
    made->threshold = threshold;
    made->stride = stride;
    made->work = made->workStorage.get();
    float* next = made->weightStorage.get();
    const auto take = [&next](std::int64_t count) {
        float* taken = next;
        next += count;
        return taken;
    };
    made->kernel = std::copy_n(kernel, area, take(area)) - area;
    made->forward = {K - 1 - made->anchor(), take(area), take(K), take(K)};
    made->backward = {made->anchor(), take(area), take(K), take(K)};
    for (std::int32_t j = 0; j < K; ++j)
        for (std::int32_t i = 0; i < K; ++i) {
            made->forward.taps[j * K + i] = kernel[(K - 1 - j) * K + K - 1 - i];
            made->backward.taps[j * K + i] = kernel[(K - 1 - i) * K + K - 1 - j];
        }
    made->factorise(kernel);
    *state = made.release();
    return primOk;
}

PrimStatus primDeconvLR32fC1(const float* src, std::int32_t srcStep, float* dst,
                             std::int32_t dstStep, PrimSize size, std::int32_t iterations,
                             PrimDeconvLR32f* state) {
    if (state == nullptr)
        return primNullPtr;
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    if (std::int64_t{size.width} + state->side - 1 > state->maxFrame.width ||
        std::int64_t{size.height} + state->side - 1 > state->maxFrame.height)
        return primBadSize;
    const std::int64_t rowBytes = std::int64_t{size.width} * 4;
    if (srcStep < rowBytes || dstStep < rowBytes)
        return primBadStep;
    if (srcStep % 4 != 0 || dstStep % 4 != 0)
        return primUnalignedStep;
    if (iterations < 1)
        return primBadArg;
    Deconvolution run(*state, size);
    run.observe(src, srcStep);
    for (std::int32_t i = 0; i < iterations; ++i)
        run.iterate();
    run.result(dst, dstStep);
    return primOk;
}

void primDeconvLRFree32fC1(PrimDeconvLR32f* state) noexcept {
    delete state;
}

} // namespace kt7
