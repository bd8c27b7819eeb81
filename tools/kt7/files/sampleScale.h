// Conversions between sample scales; every one rounds to the nearest value.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace kt7::tool {

/// White of the library's 16-bit images.
inline constexpr std::uint32_t libraryWhite = 32768;

/// From 0..`from` to 0..`to`, neither above 65535; samples above the scale count as its top.
inline std::uint16_t rescale(std::uint32_t sample, std::uint32_t from, std::uint32_t to) {
    return static_cast<std::uint16_t>((std::min(sample, from) * to + from / 2) / from);
}

/// The same for many samples: a table costs less than their divisions.
class Rescale {
  public:
    Rescale(std::uint32_t from, std::uint32_t to) : top_(from), table_(from + 1) {
        for (std::uint32_t v = 0; v <= from; ++v)
            table_[v] = rescale(v, from, to);
    }
    std::uint16_t operator()(std::uint32_t sample) const { return table_[std::min(sample, top_)]; }

  private:
    std::uint32_t top_;
    std::vector<std::uint16_t> table_;
};

} // namespace kt7::tool
