// A photo as three planes of floats in orthonormal opponent colours.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kt7::photo {

/// Place of a sample in a line of `length` that is mirrored at its ends for ever; at is not negative.
inline std::int32_t mirrored(std::int32_t at, std::int32_t length) {
    const std::int32_t turn = at % (2 * length);
    return turn < length ? turn : 2 * length - 1 - turn;
}

/// O0 = (R + G + B) / sqrt 3, O1 = (R - B) / sqrt 2, O2 = (R - 2 G + B) / sqrt 6, of R, G and B on the
/// scale 0..255; of a grey photo O0 alone. Mirrored to the right and below until blocks of 8 on a
/// grid of 4 cover it and the smallest search finds enough of them.
class Planes {
  public:
    static constexpr float top = 255.0f;

    /// Of a photo of this size; the samples are undefined. Raises kt7PhotoNoMemory.
    Planes(std::int32_t photoWidth, std::int32_t photoHeight, std::int32_t planeCount);

    float* row(std::int32_t plane, std::int32_t y) {
        return planes_[static_cast<std::size_t>(plane)].get() + offset(y);
    }
    const float* row(std::int32_t plane, std::int32_t y) const {
        return planes_[static_cast<std::size_t>(plane)].get() + offset(y);
    }

    /// Sets row y of the photo from colours on the scale 0..scale.
    template <class Sample>
    void setRow(std::int32_t y, const Sample* red, const Sample* green, const Sample* blue,
                std::ptrdiff_t step, float scale);
    /// What R, G and B of a pixel are above those of other planes, 1 being full scale.
    void change(const Planes& before, std::int32_t x, std::int32_t y, float (&rgb)[3]) const;
    /// Fills in what lies right of the photo and below it.
    void extend();

    /// Of what is worked on, which may be larger than the photo.
    std::int32_t width, height;
    std::int32_t photoWidth, photoHeight;
    std::int32_t count; ///< 3, or 1 of a grey photo

  private:
    std::size_t offset(std::int32_t y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
    }
    std::array<std::unique_ptr<float[]>, 3> planes_;
};

inline constexpr float rootThird = 0.57735027f, rootHalf = 0.70710678f, rootSixth = 0.40824829f;

template <class Sample>
void Planes::setRow(std::int32_t y, const Sample* red, const Sample* green, const Sample* blue,
                    std::ptrdiff_t step, float scale) {
    const float factor = top / scale;
    float* to[3] = {row(0, y), count > 1 ? row(1, y) : nullptr, count > 1 ? row(2, y) : nullptr};
    for (std::int32_t x = 0; x < photoWidth; ++x) {
        const float r = factor * static_cast<float>(red[x * step]);
        const float g = factor * static_cast<float>(green[x * step]);
        const float b = factor * static_cast<float>(blue[x * step]);
        to[0][x] = rootThird * (r + g + b);
        if (count > 1) {
            to[1][x] = rootHalf * (r - b);
            to[2][x] = rootSixth * (r - 2.0f * g + b);
        }
    }
}

inline void Planes::change(const Planes& before, std::int32_t x, std::int32_t y,
                           float (&rgb)[3]) const {
    const auto of = [&](std::int32_t plane) { return row(plane, y)[x] - before.row(plane, y)[x]; };
    const float grey = rootThird / top * of(0);
    if (count == 1) {
        rgb[0] = rgb[1] = rgb[2] = grey;
        return;
    }
    const float redBlue = rootHalf / top * of(1), green = rootSixth / top * of(2);
    rgb[0] = grey + redBlue + green;
    rgb[1] = grey - 2.0f * green;
    rgb[2] = grey - redBlue + green;
}

} // namespace kt7::photo
