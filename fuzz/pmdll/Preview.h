// An 8-bit preview, rewritten in place.
#pragma once

#include "fuzz/Input.h"

namespace kt7::fuzz {

/// What a function does with a preview without a pixel.
enum class EmptyPreview { refused, done };

/// call(rgb, rowBytes, width, height) gives what the function under test does.
template <class Call>
void rewritePreview(Input& in, bool knownMode, EmptyPreview empty, Call call) {
    // Sometimes longer than the strips that rows are worked through in.
    const std::int32_t width = in.between(1, in.take<std::uint8_t>() > 200 ? 4200 : 100);
    const std::int32_t height = in.between(1, 20);
    Rows rows(3 * width, height, in.take<std::uint8_t>() % 40);
    std::int32_t step = rows.stepBytes, w = width, h = height;
    const bool spoilt = spoil(in, 3 * width, step, w, h);
    rows.fill(in.rest());
    const bool done =
        !spoilt || (empty == EmptyPreview::done && std::min(w, h) == 0); // a side of 0, none below
    require(call(rows.data(), step, w, h) == (knownMode && done), "unusable previews are refused");
    rows.requireTouchedInRowsOnly();
    if (spoilt || !knownMode)
        rows.requireUntouched();
}

template <class View>
void rewriteByView(Input in, std::int32_t modes, View view) {
    const std::int32_t mode =
        in.take<std::uint8_t>() % 8 != 7 ? in.between(0, modes) : in.integer();
    const std::int32_t target = in.integer();
    rewritePreview(in, mode >= 0 && mode < modes, EmptyPreview::done,
                   [=](std::uint8_t* rgb, std::int32_t step, std::int32_t w, std::int32_t h) {
                       return view(rgb, step, w, h, mode, target);
                   });
}

} // namespace kt7::fuzz
