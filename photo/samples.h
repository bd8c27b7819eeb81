// Rows of a host's photo as numbers, and back.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "include/kt7photo/kt7photo.h"

namespace kt7::photo {

/// Bytes of a sample; 0 for an unknown type.
std::int32_t bytesOf(std::int32_t sampleType) noexcept;

/// One row of a photo.
class PhotoRow {
  public:
    explicit PhotoRow(const Kt7PhotoImage& image);

    void read(std::int32_t y);

    std::int32_t colours() const noexcept { return image_.colours; }
    /// Samples as they stand in the photo, 1 being full scale.
    const float* raw(std::int32_t colour) const { return raw_[index(colour)].data(); }
    /// What is worked on: without alpha, finite, within 0..1.
    const float* inner(std::int32_t colour) const { return inner_[index(colour)].data(); }
    /// 1 where the photo has none.
    const float* alpha() const { return alpha_.data(); }

  private:
    static std::size_t index(std::int32_t colour) { return static_cast<std::size_t>(colour); }

    Kt7PhotoImage image_;
    std::array<std::vector<float>, 3> raw_, inner_;
    std::vector<float> alpha_;
};

/// Values of one row of a mask, held within 0..1.
void readMaskRow(const Kt7PhotoMask& mask, std::int32_t y, std::vector<float>& row);

/// Writes rows of a result over, or beside, those of a source.
class RowWriter {
  public:
    RowWriter(const Kt7PhotoImage& source, const Kt7PhotoImage& target);

    /// Writes row y: the source's samples plus change[colour], which is that of colours without
    /// alpha. The row has been read.
    void write(const PhotoRow& row, const float* const change[3], std::int32_t y);
    /// Writes row y of the source as it is. The row has been read.
    void copy(const PhotoRow& row, std::int32_t y);

  private:
    void writeAlpha(const PhotoRow& row, std::int32_t y);

    Kt7PhotoImage source_, target_;
    std::vector<float> values_;
    const std::vector<float> noChange_;
};

} // namespace kt7::photo
