#include "prim/resize.h"

#include <algorithm>
#include <new>
#include <utility>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

// Keeps positions that rounding has left a hair below a pixel on that pixel.
constexpr double hair = 1e-7;

/// Pixels start..start+length-1 of one axis that lie inside a source of `size`.
void clip(std::int32_t size, std::int32_t& start, std::int32_t& length) {
    const std::int64_t end = std::min<std::int64_t>(size, std::int64_t{start} + length);
    start = std::max(start, 0);
    length = static_cast<std::int32_t>(std::max<std::int64_t>(0, end - start));
}

/// Pixels of the result along one axis, 0 for none.
std::int32_t resultLength(std::int32_t length, double factor, std::int32_t most) {
    const double exact = hair + length * factor;
    if (exact < 1.0)
        return exact >= 0.5 ? 1 : 0;
    return exact < most ? static_cast<std::int32_t>(exact) : most;
}

/// Positions add up step by step, as their rounding decides which pixels an edge falls on.
void layOutLinear(ResizeTap* taps, std::int32_t count, std::int32_t start, std::int32_t length,
                  double factor) {
    constexpr double unit = 16384.0;
    const double exact = length * factor;
    const double step = exact > 1.0 ? (length - 1) / (exact - 1.0) : 0.0;
    double position = 0.0;
    for (std::int32_t k = 0; k < count; ++k, position += step) {
        const bool last = position + hair >= length - 1;
        const std::int32_t i = last ? length - 2 : static_cast<std::int32_t>(position + hair);
        const auto far =
            last ? std::int16_t{16384} : static_cast<std::int16_t>((position - i) * unit + hair);
        taps[k] = {start + i, static_cast<std::int16_t>(16384 - far), far};
    }
}

void layOutNearest(ResizeTap* taps, std::int32_t count, std::int32_t start, std::int32_t length,
                   double factor) {
    const double step = 1.0 / factor;
    double position = 0.5 * step;
    for (std::int32_t k = 0; k < count; ++k, position += step) {
        const bool beyond = position + hair >= length;
        const std::int32_t i = beyond ? length - 1 : static_cast<std::int32_t>(position + hair);
        taps[k] = {start + i, 16384, 0};
    }
}

constexpr std::ptrdiff_t rgbChannels = 3, screenChannels = 4;

struct Screen8 {
    using Sample = std::uint8_t;
    static void resample(const Sample* row, const ResizeTap* taps, std::int16_t* dst,
                         std::int32_t n) {
        previewKernels->resampleScreen8(row, taps, dst, n);
    }
    static void pick(const Sample* pixel, std::uint8_t* dst) { toScreen8Row(pixel, dst, 1, false); }
};

struct Screen16 {
    using Sample = std::uint16_t;
    static void resample(const Sample* row, const ResizeTap* taps, std::int16_t* dst,
                         std::int32_t n) {
        previewKernels->resampleScreen16(row, taps, dst, n);
    }
    static void pick(const Sample* pixel, std::uint8_t* dst) {
        toScreen16Row(pixel, dst, 1, false);
    }
};

/// The last two source rows that were resampled; rows of the result that lie between the same two
/// need them again.
template <class Kind>
class ResampledRows {
  public:
    ResampledRows(const typename Kind::Sample* src, std::int32_t srcStep, const ResizeTap* columns,
                  std::int32_t width)
        : src_(src), srcStep_(srcStep), columns_(columns), width_(width) {
        for (Row& row : rows_)
            row.values.reset(new (std::nothrow)
                                 std::int16_t[static_cast<std::size_t>(width * screenChannels)]);
    }

    bool allocated() const { return rows_[0].values && rows_[1].values; }

    /// Row y, kept until two other rows have been asked for.
    const std::int16_t* at(std::int32_t y) {
        if (rows_[1].y == y)
            std::swap(rows_[0], rows_[1]);
        if (rows_[0].y != y) {
            std::swap(rows_[0], rows_[1]);
            Kind::resample(rowAt(src_, srcStep_, y), columns_, rows_[0].values.get(), width_);
            rows_[0].y = y;
        }
        return rows_[0].values.get();
    }

  private:
    struct Row {
        std::int32_t y = -1;
        std::unique_ptr<std::int16_t[]> values;
    };
    const typename Kind::Sample* src_;
    std::int32_t srcStep_;
    const ResizeTap* columns_;
    std::int32_t width_;
    Row rows_[2];
};

} // namespace

ResizePlan::ResizePlan() = default;
ResizePlan::~ResizePlan() = default;

PrimStatus ResizePlan::setup(PrimSize srcSize, PrimRect srcRect, PrimSize dstSize, double xFactor,
                             double yFactor, std::int32_t interpolation) {
    size_ = {0, 0};
    if (checkSize(srcSize) != primOk || checkSize(dstSize) != primOk)
        return primBadSize;
    if (!(xFactor > 0.0 && yFactor > 0.0))
        return primBadFactor;
    if (interpolation != primResizeNearest && interpolation != primResizeLinear)
        return primBadInterpolation;
    clip(srcSize.width, srcRect.x, srcRect.width);
    clip(srcSize.height, srcRect.y, srcRect.height);
    if (srcRect.width < 1 || srcRect.height < 1)
        return primEmptyResult;
    const PrimSize size{resultLength(srcRect.width, xFactor, dstSize.width),
                        resultLength(srcRect.height, yFactor, dstSize.height)};
    if (size.width < 1 || size.height < 1)
        return primEmptyResult;

    columns_.reset(new (std::nothrow) ResizeTap[static_cast<std::size_t>(size.width)]);
    rows_.reset(new (std::nothrow) ResizeTap[static_cast<std::size_t>(size.height)]);
    if (!columns_ || !rows_)
        return primNoMem;
    nearest_ = interpolation == primResizeNearest || srcRect.width < 2 || srcRect.height < 2;
    const auto layOut = nearest_ ? &layOutNearest : &layOutLinear;
    layOut(columns_.get(), size.width, srcRect.x, srcRect.width, xFactor);
    layOut(rows_.get(), size.height, srcRect.y, srcRect.height, yFactor);
    size_ = size;
    return primOk;
}

template <class Kind>
PrimStatus ResizePlan::run(const typename Kind::Sample* src, std::int32_t srcStep,
                           std::uint8_t* dst, std::int32_t dstStep, std::int32_t begin,
                           std::int32_t end) const {
    if (nearest_) {
        for (std::int32_t y = begin; y < end; ++y) {
            const auto* from = rowAt(src, srcStep, rows_[static_cast<std::size_t>(y)].index);
            std::uint8_t* to = rowAt(dst, dstStep, y);
            for (std::int32_t x = 0; x < size_.width; ++x)
                Kind::pick(from + rgbChannels * columns_[static_cast<std::size_t>(x)].index,
                           to + screenChannels * x);
        }
        return primOk;
    }
    ResampledRows<Kind> resampled(src, srcStep, columns_.get(), size_.width);
    if (!resampled.allocated())
        return primNoMem;
    for (std::int32_t y = begin; y < end; ++y) {
        const ResizeTap tap = rows_[static_cast<std::size_t>(y)];
        const std::int16_t* const nearRow = resampled.at(tap.index);
        const std::int16_t* const farRow = resampled.at(tap.index + 1);
        previewKernels->blendRows(nearRow, farRow, tap, rowAt(dst, dstStep, y),
                                  static_cast<std::int32_t>(screenChannels * size_.width));
    }
    return primOk;
}

PrimStatus ResizePlan::rowsToScreen8u(const std::uint8_t* rgb, std::int32_t rgbStep,
                                      std::uint8_t* bgra, std::int32_t bgraStep, std::int32_t begin,
                                      std::int32_t end) const {
    return run<Screen8>(rgb, rgbStep, bgra, bgraStep, begin, end);
}

PrimStatus ResizePlan::rowsToScreen16u(const std::uint16_t* rgb, std::int32_t rgbStep,
                                       std::uint8_t* bgra, std::int32_t bgraStep,
                                       std::int32_t begin, std::int32_t end) const {
    return run<Screen16>(rgb, rgbStep, bgra, bgraStep, begin, end);
}

} // namespace kt7
