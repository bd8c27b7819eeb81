// Resizing of host images into screen pixels, by linear interpolation in fixed
// point or by the nearest pixel.
#pragma once

#include <memory>

#include "prim/primtypes.h"

namespace kt7 {

struct ResizeTap;

enum PrimInterpolation : std::int32_t { primResizeNearest = 1, primResizeLinear = 2 };

/// Where the pixels of a resized image come from; laid out once, then used for any range of rows by
/// any number of threads. The corner pixels of the result lie on those of the source.
class ResizePlan {
  public:
    ResizePlan();
    ~ResizePlan();
    ResizePlan(ResizePlan&&) = delete;

    /// srcRect is clipped to the source. The result has the size of the rectangle times the
    /// factors, truncated, at most dstSize. A source of one row or column is taken by the nearest
    /// pixel. Gives primBadSize, primBadFactor, primBadInterpolation, primEmptyResult or primNoMem;
    /// the result is then empty.
    PrimStatus setup(PrimSize srcSize, PrimRect srcRect, PrimSize dstSize, double xFactor,
                     double yFactor, std::int32_t interpolation);

    /// Size of the result.
    PrimSize size() const { return size_; }

    /// Where each column and row of the result comes from.
    const ResizeTap* columns() const { return columns_.get(); }
    const ResizeTap* rows() const { return rows_.get(); }

    /// Write the result's rows begin..end-1, which exist, of the image at dst. Pixels of rgb are 3
    /// samples; those of bgra are B, G, R, 255, and 16-bit samples are divided by 128 and held at
    /// 255 before they are mixed. primNoMem or primOk.
    PrimStatus rowsToScreen8u(const std::uint8_t* rgb, std::int32_t rgbStep, std::uint8_t* bgra,
                              std::int32_t bgraStep, std::int32_t begin, std::int32_t end) const;
    PrimStatus rowsToScreen16u(const std::uint16_t* rgb, std::int32_t rgbStep, std::uint8_t* bgra,
                               std::int32_t bgraStep, std::int32_t begin, std::int32_t end) const;

  private:
    template <class Kind>
    PrimStatus run(const typename Kind::Sample* src, std::int32_t srcStep, std::uint8_t* dst,
                   std::int32_t dstStep, std::int32_t begin, std::int32_t end) const;

    PrimSize size_{0, 0};
    bool nearest_ = false;
    std::unique_ptr<ResizeTap[]> columns_, rows_; // in pixels of the source
};

} // namespace kt7
