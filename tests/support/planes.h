// Planes as tests fill and read them.
#pragma once

#include <concepts>
#include <vector>

#include "qxutils/qxbase/IMG.h"

namespace kt7::test {

/// Sets every sample to what `value` gives: a number, a function of nothing (in row order) or one
/// of the place.
template <class T, class Value>
void fill(GIMG<T>& plane, Value&& value) {
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int32_t x = 0; x < plane.width; ++x)
            if constexpr (std::invocable<Value&, std::int32_t, std::int32_t>)
                *plane.at(x, y) = static_cast<T>(value(x, y));
            else if constexpr (std::invocable<Value&>)
                *plane.at(x, y) = static_cast<T>(value());
            else
                *plane.at(x, y) = static_cast<T>(value);
}

/// All samples, row by row, without what lies between the rows.
template <class T>
std::vector<T> samplesOf(const GIMG<T>& plane) {
    std::vector<T> samples;
    for (std::int32_t y = 0; y < plane.height; ++y)
        samples.insert(samples.end(), plane.row(y).begin(), plane.row(y).end());
    return samples;
}

} // namespace kt7::test
