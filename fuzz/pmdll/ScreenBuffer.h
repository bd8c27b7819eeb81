// An image and the screen buffer that it is shown in.
#pragma once

#include "fuzz/Input.h"

namespace kt7::fuzz {

struct ScreenBuffer {
    explicit ScreenBuffer(Input& in)
        : format(HostImage::anyFormat(in)),
          // Braces: the draws come in this order with any compiler.
          image{in, format, format == 3 || format == 6 || format == 8 ? 2 : 1, in.between(1, 90),
                in.between(1, 90)},
          factor(in.number(3.0f)), width(in.between(1, 130)), height(in.between(1, 60)),
          rows(4 * width, height, in.take<std::uint8_t>() % 40), step(rows.stepBytes),
          spoilt(spoil(in, 4 * width, step, width, height)) {}

    /// After a call that gave `result`; `good` holds what it may be when all is usable.
    void requireContract(std::int32_t result, std::initializer_list<std::int32_t> good) const {
        image.rows.requireUntouched();
        rows.requireTouchedInRowsOnly();
        const bool threeChannels = format == 1 || format == 3 || format == 5 || format == 6;
        const bool refused = !threeChannels || image.spoilt || spoilt;
        if (refused)
            rows.requireUntouched();
        require(!threeChannels ? result == -3
                : refused      ? result == -1001
                               : std::ranges::find(good, result) != good.end(),
                "results say what happened");
        // The buffer held no opaque pixel.
        const bool sameScale = !(factor < 0.99f || factor > 1.01f);
        for (std::int32_t y = 0; !refused && y < height; ++y)
            for (std::int32_t x = 0; x < width; ++x) {
                const bool written =
                    !sameScale || (x < image.record.width && y < image.record.height);
                require((rows.row(y)[4 * x + 3] == 255) == written,
                        "the picture is opaque and black surrounds it, unless it is not resized");
            }
    }

    std::int32_t format;
    HostImage image;
    float factor;
    std::int32_t width, height;
    Rows rows;
    std::int32_t step;
    bool spoilt;
};

} // namespace kt7::fuzz
