// What Emscripten's C++ library (LLVM 13) lacks of C++20 and kt7 uses; included before all else.
#pragma once

#include <algorithm>
#include <iterator>
#include <memory>
#include <type_traits>
#include <version>

#if _LIBCPP_VERSION < 14000
namespace std {
template <class To, class From>
constexpr To bit_cast(const From& from) noexcept {
    return __builtin_bit_cast(To, from);
}
} // namespace std
#endif

#if _LIBCPP_VERSION < 15000
namespace std::ranges {
template <class Range, class Output>
constexpr void copy(const Range& range, Output to) {
    std::copy(std::begin(range), std::end(range), to);
}
template <class Range, class T>
constexpr void fill(Range&& range, const T& value) {
    std::fill(std::begin(range), std::end(range), value);
}
template <class Range, class T>
constexpr auto find(Range&& range, const T& value) {
    return std::find(std::begin(range), std::end(range), value);
}
template <class Range, class Test>
constexpr bool any_of(Range&& range, Test test) {
    return std::any_of(std::begin(range), std::end(range), test);
}
template <class Range, class Test>
constexpr auto find_if(Range&& range, Test test) {
    return std::find_if(std::begin(range), std::end(range), test);
}
} // namespace std::ranges
#endif

#if _LIBCPP_VERSION < 16000
namespace std {
template <class T>
requires std::is_unbounded_array_v<T> unique_ptr<T> make_unique_for_overwrite(size_t count) {
    return unique_ptr<T>(new std::remove_extent_t<T>[count]);
}
} // namespace std
#endif
